#pragma once

#include "mpitrace/calls.h"

#include <cstddef>
#include <cstdint>

/// What libvexmpi.so keeps of one task, in memory that others of the task's user read through
/// /proc/PID/fd: a file in memory, which ends with its last process.
namespace MpiPage {

/// How the file is called in /proc/PID/fd and /proc/PID/maps.
constexpr char linkName[] = "/memfd:vex-mpi (deleted)";
constexpr const char* fileName = "vex-mpi";
/// At the beginning of a page of this layout.
constexpr std::uint64_t magic = 0x3149504d58455601;

constexpr int maxThreads = 8;
constexpr int maxPeers = 32;
constexpr int maxComms = 64;

/// A peer that is no rank in MPI_COMM_WORLD.
enum Peer : std::int32_t { ANYBODY = -1, NOBODY = -2, UNKNOWN = -3 };
constexpr std::int32_t anyTag = -1;
/// There is none, or there are several.
constexpr std::int32_t noTag = -2;

/// The numbers of calls; 0: no call.
enum Call : std::uint16_t {
    NO_CALL,
#define VEX_MPI_NAME(Name, ...) Name,
    VEX_MPI_CALLS(VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME,
                  VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME,
                  VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME, VEX_MPI_NAME)
#undef VEX_MPI_NAME
        CALL_COUNT
};

/// What a thread waits for. `sequence` is odd while the thread writes.
struct Slot {
    std::uint32_t sequence;
    std::uint16_t call;
    std::uint16_t sends; // whether the one peer is to take a message
    std::uint64_t calls; // how many were begun
    std::uint64_t comm;  // 0: not known
    std::uint32_t commSize;
    std::uint32_t collective; // its number on the communicator, from 1; 0: it waits for none
    std::int32_t tag;
    std::uint32_t peerCount; // beyond maxPeers, the rest is not held
    std::int32_t peers[maxPeers];
};

/// A communicator of the task.
struct Comm {
    std::uint64_t id;          // the same in all of its members; 0: an empty place
    std::uint32_t size;        // members
    std::uint32_t collectives; // how many the task has begun
};

struct Page {
    std::uint64_t magic;
    std::int32_t pid;  // of the task: a forked process has the page, too
    std::int32_t rank; // in MPI_COMM_WORLD; -1 until MPI is started
    std::int32_t size;
    std::int32_t over;    // whether MPI_Finalize has come back
    Comm comms[maxComms]; // the first is MPI_COMM_WORLD
    Slot slots[maxThreads];
};
static_assert(sizeof(Page) < 4096);

constexpr std::uint64_t worldId = 1;

} // namespace MpiPage
