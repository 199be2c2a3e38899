#include "backend/jobs/mpir.h"

#include "common/descriptor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int maxEntries = 1 << 20;
constexpr std::size_t maxText = 4096;

// Bounded reads of a file whose offsets come from itself.
class Image {
  public:
    explicit Image(const std::string& path)
        : file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        struct stat status {};
        if (file && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode))
            size = static_cast<std::uint64_t>(status.st_size);
    }

    template <typename Record>
    bool read(std::uint64_t offset, Record& into) const {
        return read(offset, &into, sizeof into);
    }
    // All records of a table; none when they are not all there.
    template <typename Record>
    std::vector<Record> table(std::uint64_t offset, std::uint64_t bytes) const {
        if (!holds(offset, bytes)) return {};
        std::vector<Record> records(bytes / sizeof(Record));
        if (!read(offset, records.data(), records.size() * sizeof(Record))) records.clear();
        return records;
    }

  private:
    const Descriptor file;
    std::uint64_t size = 0;

    bool holds(std::uint64_t offset, std::uint64_t bytes) const {
        return offset <= size && bytes <= size - offset;
    }
    bool read(std::uint64_t offset, void* into, std::size_t bytes) const {
        return holds(offset, bytes) &&
               ::pread(file.get(), into, bytes, static_cast<off_t>(offset)) ==
                   static_cast<ssize_t>(bytes);
    }
};

// Where the file's first page comes to lie when it is linked to address 0.
std::optional<std::uint64_t> linkBase(const Image& image, const Elf64_Ehdr& header) {
    const auto segments =
        image.table<Elf64_Phdr>(header.e_phoff, std::uint64_t{header.e_phnum} * sizeof(Elf64_Phdr));
    const auto first = std::ranges::find(segments, Elf64_Word{PT_LOAD}, &Elf64_Phdr::p_type);
    if (first == segments.end()) return std::nullopt;
    return first->p_vaddr - first->p_offset;
}

std::string textAt(const Mpir::Memory& memory, std::uint64_t address) {
    std::string text;
    std::array<char, 64> piece;
    while (address != 0 && text.size() < maxText) {
        // Up to the next multiple of the piece's size: never across a page in vain.
        const std::size_t length = piece.size() - address % piece.size();
        if (!memory(address, piece.data(), length)) return "";
        const std::size_t used = ::strnlen(piece.data(), length);
        text.append(piece.data(), used);
        if (used < length) return text;
        address += length;
    }
    return text;
}

// The files that a process has mapped, each with where its first page lies.
std::vector<std::pair<std::string, std::uint64_t>> mappedFiles(pid_t pid) {
    std::vector<std::pair<std::string, std::uint64_t>> files;
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        unsigned long long start = 0, offset = 0;
        int at = 0;
        if (std::sscanf(line.c_str(), "%llx-%*x %*s %llx %*s %*s %n", &start, &offset, &at) != 2 ||
            offset != 0 || at == 0 || line[static_cast<std::size_t>(at)] != '/')
            continue;
        files.emplace_back(line.substr(static_cast<std::size_t>(at)), start);
    }
    return files;
}

} // namespace

std::map<std::string, std::uint64_t> Mpir::symbols(const std::string& file,
                                                   const std::vector<std::string>& names) {
    std::map<std::string, std::uint64_t> found;
    const Image image(file);
    Elf64_Ehdr header;
    if (!image.read(0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_shentsize != sizeof(Elf64_Shdr))
        return found;
    const auto base = linkBase(image, header);
    const auto sections =
        image.table<Elf64_Shdr>(header.e_shoff, std::uint64_t{header.e_shnum} * sizeof(Elf64_Shdr));
    for (const Elf64_Shdr& section : sections) {
        if (!base || (section.sh_type != SHT_DYNSYM && section.sh_type != SHT_SYMTAB) ||
            section.sh_link >= sections.size())
            continue;
        const Elf64_Shdr& strings = sections[section.sh_link];
        const auto text = image.table<char>(strings.sh_offset, strings.sh_size);
        for (const Elf64_Sym& symbol : image.table<Elf64_Sym>(section.sh_offset, section.sh_size)) {
            if (symbol.st_shndx == SHN_UNDEF || ELF64_ST_TYPE(symbol.st_info) != STT_OBJECT ||
                symbol.st_name >= text.size())
                continue;
            const char* name = text.data() + symbol.st_name;
            const std::size_t length = ::strnlen(name, text.size() - symbol.st_name);
            const auto wanted = std::ranges::find(names, std::string_view(name, length));
            if (wanted != names.end()) found.emplace(*wanted, symbol.st_value - *base);
        }
    }
    return found;
}

std::vector<Mpir::Entry> Mpir::read(const Memory& memory, std::uint64_t table, int count) {
    struct Raw {
        std::uint64_t host, executable;
        std::int32_t pid, padding;
    };
    static_assert(sizeof(Raw) == 24);
    std::vector<Entry> entries;
    if (table == 0 || count < 0 || count > maxEntries) return entries;
    for (int i = 0; i < count; ++i) {
        Raw raw;
        if (!memory(table + static_cast<std::uint64_t>(i) * sizeof raw, &raw, sizeof raw))
            return {};
        entries.push_back({textAt(memory, raw.host), textAt(memory, raw.executable), raw.pid});
    }
    return entries;
}

std::vector<Mpir::Entry> Mpir::tableOf(pid_t launcher) {
    const std::string path = "/proc/" + std::to_string(launcher) + "/mem";
    const Descriptor mem(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!mem)
        throw std::runtime_error("cannot read the memory of process " + std::to_string(launcher) +
                                 ": " + std::strerror(errno) +
                                 ". Is it the mpirun, mpiexec or srun of a job of yours?");
    const Memory memory = [&mem](std::uint64_t address, void* into, std::size_t length) {
        return ::pread64(mem.get(), into, length, static_cast<off64_t>(address)) ==
               static_cast<ssize_t>(length);
    };
    const std::vector<std::string> names{"MPIR_proctable", "MPIR_proctable_size"};
    for (const auto& [file, start] : mappedFiles(launcher)) {
        const auto found = symbols(file, names);
        if (found.size() != names.size()) continue;
        std::uint64_t table = 0;
        std::int32_t count = 0;
        if (!memory(start + found.at(names[0]), &table, sizeof table) ||
            !memory(start + found.at(names[1]), &count, sizeof count))
            continue;
        if (auto entries = read(memory, table, count); !entries.empty()) return entries;
    }
    return {};
}
