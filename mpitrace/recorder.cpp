#include "mpitrace/recorder.h"

#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// The handle of a communicator that is no more.
constexpr Word freedComm = 1;

// Where a process that the task has forked writes, for nobody.
MpiPage::Page nowhere;

struct Thread {
    MpiPage::Slot* slot = nullptr;
    MpiPage::Slot draft{}; // what the call waits for
    int depth = 0;         // of calls within calls
    bool known = false;
};
// In the block that each thread has from its start: no call is needed to find it.
__attribute__((tls_model("initial-exec"))) constinit thread_local Thread self;

std::uint64_t mixed(std::uint64_t hash, std::uint64_t value) {
    hash = (hash ^ value) * 0x9e3779b97f4a7c15;
    return hash ^ (hash >> 29);
}

std::size_t scattered(Word handle) { return mixed(7, handle) >> 16; }

// The new file's number is high, out of the way of programs that count on low ones.
MpiPage::Page* newPage() {
    const int made = ::memfd_create(MpiPage::fileName, MFD_CLOEXEC);
    if (made == -1) return nullptr;
    const int high = ::fcntl(made, F_DUPFD_CLOEXEC, 500);
    const int file = high == -1 ? made : high;
    if (file != made) ::close(made);
    void* const memory =
        ::ftruncate(file, sizeof(MpiPage::Page)) == 0
            ? ::mmap(nullptr, sizeof(MpiPage::Page), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0)
            : MAP_FAILED;
    if (memory == MAP_FAILED) {
        ::close(file);
        return nullptr;
    }
    return static_cast<MpiPage::Page*>(memory);
}

} // namespace

int Recorder::Comm::rankOf(int member) const {
    if (member < 0 || static_cast<std::uint32_t>(member) >= size) return MpiPage::UNKNOWN;
    if (!ranks) return member;
    return ranks[member] < 0 ? MpiPage::UNKNOWN : ranks[member];
}

Recorder& Recorder::get() {
    static constinit Recorder recorder;
    return recorder;
}

// --- the page

void Recorder::beginInit() {
    lock();
    if (!page) {
        library.find();
        page = library.family == Library::NONE ? nullptr : newPage();
        if (!page) page = &nowhere;
        page->pid = ::getpid();
        page->rank = page->size = -1;
        __atomic_store_n(&page->magic, MpiPage::magic, __ATOMIC_RELEASE);
        // The child's calls are its own.
        ::pthread_atfork(nullptr, nullptr, [] {
            Recorder& recorder = get();
            recorder.page = &nowhere;
            recorder.threads = 0;
            self = {};
        });
    }
    unlock();
}

void Recorder::endInit() {
    if (!page) beginInit();
    if (started || library.family == Library::NONE) return;
    threaded = library.threaded();
    lock();
    page->size = library.size();
    newComm(library.world, 0, 0);
    page->rank = library.rank();
    started = true;
    unlock();
}

void Recorder::finalized() {
    if (page) page->over = 1;
}

MpiPage::Slot* Recorder::mine() {
    if (!self.known) {
        self.known = true;
        const int number = __atomic_fetch_add(&threads, 1, __ATOMIC_RELAXED);
        if (number < MpiPage::maxThreads) self.slot = &page->slots[number];
    }
    return self.slot;
}

// --- calls

bool Recorder::begin(MpiPage::Call call) {
    if (self.depth > 0) return false;
    if (!started && call != MpiPage::Init && call != MpiPage::Init_thread) endInit();
    if (!mine() || library.family == Library::NONE) return false;
    self.depth = 1;
    MpiPage::Slot& draft = self.draft;
    draft.call = call;
    draft.sends = 0;
    draft.comm = 0;
    draft.commSize = draft.collective = draft.peerCount = 0;
    draft.tag = MpiPage::noTag;
    return true;
}

void Recorder::end() {
    self.depth = 0;
    __atomic_store_n(&self.slot->call, MpiPage::NO_CALL, __ATOMIC_RELEASE);
}

void Recorder::publish() {
    MpiPage::Slot &to = *self.slot, &from = self.draft;
    const std::uint32_t sequence = to.sequence;
    __atomic_store_n(&to.sequence, sequence + 1, __ATOMIC_RELAXED);
    __atomic_thread_fence(__ATOMIC_RELEASE);
    to.call = from.call;
    to.sends = from.sends;
    ++to.calls;
    to.comm = from.comm;
    to.commSize = from.commSize;
    to.collective = from.collective;
    to.tag = from.tag;
    to.peerCount = from.peerCount;
    for (std::uint32_t i = 0; i < from.peerCount && i < MpiPage::maxPeers; ++i)
        to.peers[i] = from.peers[i];
    __atomic_store_n(&to.sequence, sequence + 2, __ATOMIC_RELEASE);
}

void Recorder::addPeer(MpiPage::Slot& slot, int peer, int tag) {
    if (peer == MpiPage::NOBODY) return;
    for (std::uint32_t i = 0; i < slot.peerCount && i < MpiPage::maxPeers; ++i) {
        if (slot.peers[i] != peer) continue;
        if (slot.tag != tag) slot.tag = MpiPage::noTag;
        return;
    }
    slot.tag = slot.peerCount == 0 ? tag : MpiPage::noTag;
    if (slot.peerCount < MpiPage::maxPeers) slot.peers[slot.peerCount] = peer;
    ++slot.peerCount;
}

void Recorder::waitForPeer(Word handle, int peer, int tag, bool sends) {
    lock();
    MpiPage::Slot& draft = self.draft;
    const Comm* const comm = commOf(handle);
    draft.comm = comm ? comm->id : 0;
    draft.commSize = comm ? comm->size : 0;
    draft.sends = sends;
    addPeer(draft,
            peer == library.nobody      ? MpiPage::NOBODY
            : peer == library.anySource ? MpiPage::ANYBODY
            : comm                      ? comm->rankOf(peer)
                                        : MpiPage::UNKNOWN,
            tag);
    unlock();
}

void Recorder::waitForMembers(Word handle) {
    lock();
    if (Comm* const comm = commOf(handle)) {
        self.draft.comm = comm->id;
        self.draft.commSize = comm->size;
        self.draft.collective = count(*comm);
    }
    unlock();
}

void Recorder::countFor(Word handle) {
    lock();
    if (Comm* const comm = commOf(handle)) count(*comm);
    unlock();
}

void Recorder::waitForRequest(Word handle) {
    lock();
    const Request& request = requestAt(handle);
    if (request.handle == handle && handle != 0) {
        MpiPage::Slot& draft = self.draft;
        draft.comm = request.comm;
        draft.commSize = request.commSize;
        if (request.collective != 0) {
            draft.collective = request.collective;
        } else {
            draft.sends = request.sends;
            addPeer(draft, request.peer, request.tag);
        }
    }
    unlock();
}

// --- communicators

// Their numbers come from what all members do in the same order, so that these agree without a
// message.
Recorder::Comm* Recorder::newComm(Word handle, std::uint64_t parent, std::uint32_t number) {
    std::size_t at = scattered(handle) % maxComms;
    for (std::size_t tries = 0; comms[at].handle != 0 && comms[at].handle != freedComm; ++tries) {
        if (tries == maxComms - 1) return nullptr;
        at = (at + 1) % maxComms;
    }
    const int size = library.sizeOf(handle);
    if (size <= 0) return nullptr;
    Comm& comm = comms[at];
    comm = Comm();
    comm.handle = handle;
    comm.size = static_cast<std::uint32_t>(size);
    comm.id = MpiPage::worldId;
    if (handle != library.world) {
        comm.id = mixed(mixed(mixed(11, parent), number), comm.size);
        comm.ranks = static_cast<int*>(std::malloc(comm.size * sizeof(int)));
        if (!comm.ranks || !library.ranksOf(handle, size, comm.ranks)) {
            std::free(comm.ranks);
            comm.handle = freedComm;
            return nullptr;
        }
        for (int i = 0; i < size; ++i)
            comm.id = mixed(comm.id, static_cast<std::uint64_t>(comm.ranks[i]));
        if (comm.id <= MpiPage::worldId) comm.id += 2;
    }
    for (int i = 0; i < MpiPage::maxComms && comm.place == 0; ++i) {
        if (page->comms[i].id == 0) comm.place = i + 1;
    }
    if (comm.place != 0) {
        MpiPage::Comm& shown = page->comms[comm.place - 1];
        shown.size = comm.size;
        shown.collectives = 0;
        __atomic_store_n(&shown.id, comm.id, __ATOMIC_RELEASE);
    }
    return &comm;
}

Recorder::Comm* Recorder::commOf(Word handle) {
    std::size_t at = scattered(handle) % maxComms;
    for (std::size_t tries = 0; tries < maxComms && comms[at].handle != 0; ++tries) {
        if (comms[at].handle == handle) return &comms[at];
        at = (at + 1) % maxComms;
    }
    return newComm(handle, 0, 0);
}

std::uint32_t Recorder::count(Comm& comm) {
    ++comm.collectives;
    if (comm.place != 0) page->comms[comm.place - 1].collectives = comm.collectives;
    return comm.collectives;
}

void Recorder::created(Word handle, Word parent) {
    if (handle == library.noComm || handle == 0) return;
    lock();
    if (Comm* const from = commOf(parent)) newComm(handle, from->id, from->collectives);
    unlock();
}

void Recorder::freed(Word handle) {
    lock();
    if (Comm* const comm = commOf(handle)) {
        if (comm->place != 0)
            __atomic_store_n(&page->comms[comm->place - 1].id, 0, __ATOMIC_RELEASE);
        std::free(comm->ranks);
        *comm = Comm();
        comm->handle = freedComm;
    }
    unlock();
}

// --- requests

// The place of the request, or that where it may be put: of few that share one, the last counts.
Recorder::Request& Recorder::requestAt(Word handle) {
    const std::size_t first = scattered(handle) % maxRequests;
    constexpr std::size_t near = 8;
    std::size_t empty = maxRequests;
    for (std::size_t i = 0; i < near; ++i) {
        const std::size_t at = (first + i) % maxRequests;
        if (requests[at].handle == handle) return requests[at];
        if (requests[at].handle == 0 && empty == maxRequests) empty = at;
    }
    return requests[empty == maxRequests ? first : empty];
}

void Recorder::requested(Word handle, Word commHandle, int peer, int tag, bool sends) {
    lock();
    const Comm* const comm = commOf(commHandle);
    requestAt(handle) = {handle,
                         comm ? comm->id : 0,
                         comm ? comm->size : 0,
                         0,
                         peer == library.nobody      ? MpiPage::NOBODY
                         : peer == library.anySource ? MpiPage::ANYBODY
                         : comm                      ? comm->rankOf(peer)
                                                     : MpiPage::UNKNOWN,
                         tag,
                         sends};
    unlock();
}

void Recorder::requestedFromMembers(Word handle, Word commHandle) {
    lock();
    Comm* const comm = commOf(commHandle);
    requestAt(handle) = {handle,
                         comm ? comm->id : 0,
                         comm ? comm->size : 0,
                         comm ? comm->collectives : 0,
                         MpiPage::UNKNOWN,
                         MpiPage::noTag,
                         false};
    unlock();
}

void Recorder::lock() {
    if (!threaded) return;
    while (__atomic_exchange_n(&locked, 1, __ATOMIC_ACQUIRE) != 0) {
    }
}

void Recorder::unlock() {
    if (threaded) __atomic_store_n(&locked, 0, __ATOMIC_RELEASE);
}
