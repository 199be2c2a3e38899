#include "backend/clients/mpireader.h"

#include "backend/os/directory.h"
#include "backend/os/processtree.h"
#include "common/descriptor.h"
#include "mpitrace/page.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

constexpr const char* callNames[] = {
    "",
#define VEX_MPI_NAME(Name, ...) "MPI_" #Name,
    VEX_MPI_CALLS(VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME,
                  VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME,
                  VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME)
#undef VEX_MPI_NAME
};

// How often a page is read that changes meanwhile.
constexpr int maxTries = 5;

Descriptor pageOf(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process) + "/fd";
    for (const std::string& name : namesIn(folder)) {
        const std::string path = folder + "/" + name;
        std::error_code gone;
        if (std::filesystem::read_symlink(path, gone) == MpiPage::linkName && !gone)
            return Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    }
    return Descriptor();
}

bool read(const Descriptor& file, MpiPage::Page& page) {
    return ::pread(file.get(), &page, sizeof page, 0) == static_cast<ssize_t>(sizeof page) &&
           page.magic == MpiPage::magic;
}

// What a thread has begun and not ended; nothing: it is between two calls.
std::optional<MpiPage::Slot> callOf(const Descriptor& file, std::size_t thread) {
    MpiPage::Page first, second;
    for (int tries = 0; tries < maxTries; ++tries) {
        if (!read(file, first) || !read(file, second)) return std::nullopt;
        const MpiPage::Slot& slot = second.slots[thread];
        if (slot.sequence % 2 == 1 || std::memcmp(&first.slots[thread], &slot, sizeof slot) != 0)
            continue;
        if (slot.call == MpiPage::NO_CALL || slot.call >= MpiPage::CALL_COUNT) return std::nullopt;
        return slot;
    }
    return std::nullopt;
}

void enter(MpiState& state, const MpiPage::Slot& slot) {
    state.kind = MpiState::INSIDE;
    state.call = callNames[slot.call];
    state.tag = std::max(slot.tag, MpiState::noTag);
    state.collective = slot.collective;
    state.comm = {slot.comm, slot.commSize, 0};
    const std::uint32_t held = std::min<std::uint32_t>(slot.peerCount, MpiPage::maxPeers);
    for (std::uint32_t i = 0; i < held; ++i)
        state.peers.push_back(std::max(slot.peers[i], MpiState::unknown));
    // It may be one of those that are not held.
    if (held < slot.peerCount) state.peers.push_back(MpiState::unknown);
}

MpiState::Kind withoutPage(pid_t process) {
    const std::string maps = ProcessTree::fileOf(process, "maps");
    if (maps.empty()) return MpiState::NO_PROCESS;
    if (maps.find(".so") == std::string::npos) return MpiState::NO_LOADER;
    if (maps.find("/libvexmpi.so") == std::string::npos) return MpiState::NO_LIBRARY;
    // libmpi.so.40, libmpich.so.12, libmpi_cray.so; and not this library's own name.
    return maps.find("/libmpi") == std::string::npos ? MpiState::NO_MPI : MpiState::NOT_STARTED;
}

bool isStopped(pid_t process) {
    const std::string text = ProcessTree::fileOf(process, "stat");
    const std::size_t at = text.rfind(") ");
    return at != std::string::npos && at + 2 < text.size() &&
           (text[at + 2] == 't' || text[at + 2] == 'T');
}

} // namespace

MpiState MpiReader::stateOf(pid_t process) {
    MpiState state;
    if (process <= 0) return state;
    MpiPage::Page page;
    const Descriptor file = pageOf(process);
    // A forked process has its parent's page.
    if (!file || !read(file, page) || page.pid != process) {
        state.kind = withoutPage(process);
        return state;
    }
    state.stopped = isStopped(process);
    state.rank = page.rank;
    state.size = page.size;
    state.kind = page.over != 0  ? MpiState::OVER
                 : page.rank < 0 ? MpiState::NOT_STARTED
                                 : MpiState::OUTSIDE;
    for (const MpiPage::Comm& comm : page.comms) {
        if (comm.id != 0) state.comms.push_back({comm.id, comm.size, comm.collectives});
    }
    for (std::size_t i = 0; i < MpiPage::maxThreads; ++i) {
        state.calls += page.slots[i].calls;
        if (state.kind == MpiState::INSIDE || page.slots[i].call == MpiPage::NO_CALL) continue;
        if (const auto slot = callOf(file, i)) enter(state, *slot);
    }
    return state;
}
