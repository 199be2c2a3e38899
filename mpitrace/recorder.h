#pragma once

#include "mpitrace/library.h"
#include "mpitrace/page.h"

#include <cstddef>
#include <cstdint>

/// Writes into the page of this process which call of MPI each of its threads is in: a thread's
/// outermost, and nothing of what an MPI calls by itself. The first eight threads that call are
/// recorded. Uses no C++ library, since it is loaded into any program.
class Recorder {
  public:
    /// What was known of the communicators that are in use.
    struct Comm {
        Word handle = 0; // 0: an empty place; `freed`: one that was used
        std::uint64_t id = 0;
        std::uint32_t size = 0;
        std::uint32_t collectives = 0;
        std::uint32_t created = 0; // communicators made from it
        int place = 0;             // in the page, from 1; 0: none
        int* ranks = nullptr;      // in MPI_COMM_WORLD; null: the same there
        int rankOf(int member) const;
    };

    /// The one of this process.
    static Recorder& get();

    /// MPI is about to be started, and has been.
    void beginInit();
    void endInit();
    void finalized();

    /// A call begins or ends. False: it is not recorded, and not to be ended.
    bool begin(MpiPage::Call call);
    void end();
    // What the call that has begun waits for; each may come several times, `publish` last.
    void waitForPeer(Word comm, int peer, int tag, bool sends);
    void waitForMembers(Word comm);
    void waitForRequest(Word request);
    /// What all members call, but does not wait for them.
    void countFor(Word comm);
    void publish();

    /// The MPI's request is for this from now on.
    void requested(Word request, Word comm, int peer, int tag, bool sends);
    void requestedFromMembers(Word request, Word comm);
    /// A communicator was made from another one, or is no more.
    void created(Word comm, Word parent);
    void freed(Word comm);

    Library library;

  private:
    struct Request {
        Word handle; // 0: an empty place
        std::uint64_t comm;
        std::uint32_t commSize;
        std::uint32_t collective;
        std::int32_t peer;
        std::int32_t tag;
        bool sends;
    };
    static constexpr std::size_t maxComms = 512, maxRequests = 4096; // powers of two

    MpiPage::Page* page = nullptr;
    bool started = false;  // endInit was called
    bool threaded = false; // several threads may call at a time
    char locked = 0;
    int threads = 0; // that have called
    Comm comms[maxComms];
    Request requests[maxRequests] = {};

    MpiPage::Slot* mine();
    Comm* commOf(Word handle);
    Comm* newComm(Word handle, std::uint64_t parent, std::uint32_t number);
    std::uint32_t count(Comm& comm);
    Request& requestAt(Word handle);
    void addPeer(MpiPage::Slot& slot, int peer, int tag);
    void lock();
    void unlock();
};
