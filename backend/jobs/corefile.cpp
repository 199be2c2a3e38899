#include "backend/jobs/corefile.h"

#include "backend/os/rankvariables.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <string_view>
#include <sys/procfs.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// The kernel lets arguments and environment take no more.
constexpr std::uint64_t maxEnvironment = 8 * 1024 * 1024;
constexpr std::uint64_t maxSegments = 1 << 20;
// Of all segments; a thread has a handful.
constexpr int maxNotes = 1 << 18;
// Bytes; the kernel's are 400 or so.
constexpr std::uint64_t maxVectors = 4096;
constexpr std::size_t blockSize = 4096;

constexpr char ownOrder = std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;
constexpr char ownClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;

using Header = ElfW(Ehdr);
using Program = ElfW(Phdr);
using Note = ElfW(Nhdr);
using Vector = ElfW(auxv_t);

constexpr std::uint64_t padded(std::uint64_t size) { return (size + 3) / 4 * 4; }

} // namespace

template <class T>
bool CoreFile::get(std::uint64_t offset, T& into) {
    static_assert(sizeof into <= blockSize);
    const auto holds = [&] {
        return offset >= blockBegin && offset - blockBegin < block.size() &&
               block.size() - (offset - blockBegin) >= sizeof into;
    };
    if (!holds()) {
        block.resize(blockSize);
        const ssize_t got =
            ::pread(file.get(), block.data(), block.size(), static_cast<off_t>(offset));
        block.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        blockBegin = offset;
        if (!holds()) return false;
    }
    std::memcpy(&into, block.data() + (offset - blockBegin), sizeof into);
    return true;
}

std::optional<CoreFile> CoreFile::open(const std::string& path) {
    CoreFile core;
    core.file = Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    unsigned char head[18];
    if (!core.file || ::fstat(core.file.get(), &status) == -1 || !S_ISREG(status.st_mode) ||
        !core.get(0, head) || std::memcmp(head, ELFMAG, SELFMAG) != 0)
        return std::nullopt;
    // The type is of two bytes, in the order that the sixth byte tells.
    const bool little = head[EI_DATA] == ELFDATA2LSB;
    if (head[little ? 16 : 17] != ET_CORE || head[little ? 17 : 16] != 0) return std::nullopt;
    if (head[EI_CLASS] == ownClass && head[EI_DATA] == ownOrder) core.read();
    core.file.reset();
    core.block = {};
    return core;
}

void CoreFile::read() {
    Header header;
    if (!get(0, header) || header.e_phentsize != sizeof(Program)) return;
    std::uint64_t count = header.e_phnum;
    // There are more than the field holds.
    if (ElfW(Shdr) first; count == PN_XNUM && get(header.e_shoff, first)) count = first.sh_info;
    std::vector<Program> notes;
    for (std::uint64_t i = 0; i < std::min(count, maxSegments); ++i) {
        Program program;
        if (!get(header.e_phoff + i * sizeof program, program)) break;
        if (program.p_type == PT_LOAD)
            memory.push_back({program.p_vaddr, program.p_offset, program.p_filesz});
        else if (program.p_type == PT_NOTE)
            notes.push_back(program);
    }
    int left = maxNotes;
    for (const Program& each : notes)
        readNotes(each.p_offset, each.p_filesz, left);
    readEnvironment();
}

// At most so many as are left, and fewer then.
void CoreFile::readNotes(std::uint64_t offset, std::uint64_t size, int& left) {
    for (const std::uint64_t end = offset + size; left > 0 && offset + sizeof(Note) <= end;
         --left) {
        Note note;
        if (!get(offset, note)) return;
        const std::uint64_t content = offset + sizeof note + padded(note.n_namesz);
        if (elf_prpsinfo process;
            note.n_type == NT_PRPSINFO && note.n_descsz >= sizeof process && get(content, process))
            pid = process.pr_pid;
        if (note.n_type == NT_AUXV) readVectors(content, note.n_descsz);
        offset = content + padded(note.n_descsz);
    }
}

void CoreFile::readVectors(std::uint64_t offset, std::uint64_t size) {
    Vector each;
    size = std::min(size, maxVectors);
    for (std::uint64_t at = 0; at + sizeof each <= size && get(offset + at, each);
         at += sizeof each) {
        if (each.a_type == AT_RANDOM) random = each.a_un.a_val;
        if (each.a_type == AT_EXECFN) name = each.a_un.a_val;
    }
}

// The kernel puts the arguments, the environment and the program's name at the stack's end.
void CoreFile::readEnvironment() {
    const auto stack = std::ranges::find_if(memory, [this](const Segment& each) {
        return name > each.address && name - each.address <= each.size;
    });
    if (stack == memory.end()) return;
    std::uint64_t begin = stack->address;
    if (name - begin > maxEnvironment) begin = name - maxEnvironment;
    if (random < name && random > begin) begin = random;
    environment.resize(name - begin);
    const ssize_t got = ::pread(file.get(), environment.data(), environment.size(),
                                static_cast<off_t>(stack->offset + (begin - stack->address)));
    if (got != static_cast<ssize_t>(environment.size())) environment.clear();
}

// What stands last counts: the arguments come before.
std::optional<std::string> CoreFile::variable(const std::string& wanted) const {
    const std::string begin = std::string(1, '\0') + wanted + "=";
    const std::size_t at = environment.rfind(begin);
    if (at == std::string::npos) return std::nullopt;
    return std::string(environment.c_str() + at + begin.size());
}

int CoreFile::rank() const {
    const auto valueOf = [this](const char* wanted) {
        const auto text = variable(wanted);
        return text ? RankVariables::valueOf(text->c_str()) : -1;
    };
    for (const auto& names : RankVariables::all) {
        if (const int rank = valueOf(names.rank); rank >= 0) return rank;
    }
    return valueOf("VEX_TASK");
}
