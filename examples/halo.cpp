// Heat in a ring of N tasks, and one of them goes astray.
//
// Every task owns a slab of the ring. In each cycle it sends the cells at its two edges to its
// neighbours, waits for theirs (the halo), and relaxes its own cells until they have settled. One
// task never settles in cycle 4; its neighbours wait for its message, then theirs for theirs, until
// the whole job stands still. Options:
//   --healthy  all tasks come to the end
//   --crash    in cycle 4 another task dies of a null pointer
//   --fork     task 0 has a child that outlives it by nothing and keeps a snapshot of its slab
//
// A task finds its place in the environment: VEX_TASK (its rank), VEX_NTASKS (how many there are)
// and VEX_JOB (a text that is the job's own); else, on one machine, in what Open MPI and MPICH tell
// their tasks. Messages travel over Unix datagram sockets in the abstract namespace, which leave
// nothing behind, however the job ends.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum Side { LEFT, RIGHT };

constexpr int cells = 16;
constexpr int cycles = 20;
constexpr int critical_cycle = 4;
constexpr int patience = 1500; // ms

// The edge cell of a slab, for the neighbour at one of its sides.
struct Message {
    Side side; // of the receiver
    int cycle;
    double value;
};

// This task's place in the job, and how far it has come. Names that a debugger finds from every
// frame.
int rank = 0;
int ntasks = 1;
int cycle = 0;
std::string job;

// This task's part of the ring: the first and the last cell are copies of the neighbours' edges.
std::array<double, cells + 2> heat;
double tolerance = 0.001;
double highest = 0;

int mailbox = -1;
Message early[4]; // a neighbour may be one cycle ahead
int early_count = 0;

[[noreturn]] static void give_up(const char* what) {
    std::fprintf(stderr, "rank %d: %s: %s\n", rank, what, std::strerror(errno));
    std::exit(1);
}

static int neighbour(Side side) { return (rank + (side == LEFT ? ntasks - 1 : 1)) % ntasks; }

static socklen_t address_of(int task, sockaddr_un& address) {
    const std::string name = "halo-" + job + "-" + std::to_string(task);
    address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

static void open_mailbox() {
    sockaddr_un address;
    const socklen_t length = address_of(rank, address);
    mailbox = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (mailbox == -1 || bind(mailbox, reinterpret_cast<sockaddr*>(&address), length) == -1)
        give_up("cannot open a mailbox");
}

static void send_message(Side side, double value) {
    const Message message{side == LEFT ? RIGHT : LEFT, cycle, value};
    sockaddr_un address;
    const socklen_t length = address_of(neighbour(side), address);
    while (sendto(mailbox, &message, sizeof message, 0, reinterpret_cast<sockaddr*>(&address),
                  length) == -1) {
        // The neighbour may not have started yet, or has ended after its last cycle.
        if (errno == ECONNREFUSED && cycle == cycles - 1) return;
        if (errno != ECONNREFUSED && errno != EINTR) give_up("cannot send");
        usleep(1000);
    }
}

// A place to stop at: this task has waited long for its neighbour.
static void still_waiting() {
    std::printf("rank %d still waits in cycle %d\n", rank, cycle);
    std::fflush(stdout);
}

static bool take_early(Side side, double& value) {
    for (int i = 0; i < early_count; ++i) {
        if (early[i].side != side || early[i].cycle != cycle) continue;
        value = early[i].value;
        early[i] = early[--early_count];
        return true;
    }
    return false;
}

static double wait_for_message(Side side) {
    double value = 0;
    bool told = false;
    while (!take_early(side, value)) {
        pollfd ready{mailbox, POLLIN, 0};
        const int got = poll(&ready, 1, told ? -1 : patience);
        if (got == 0) {
            told = true;
            still_waiting();
        }
        if (got <= 0) continue;
        Message message;
        if (recv(mailbox, &message, sizeof message, 0) != sizeof message || early_count == 4)
            give_up("cannot receive");
        early[early_count++] = message;
    }
    return value;
}

static void exchange_halo() {
    send_message(LEFT, heat[1]);
    send_message(RIGHT, heat[cells]);
    heat[0] = wait_for_message(LEFT);
    heat[cells + 1] = wait_for_message(RIGHT);
}

// One sweep over the slab; gives the largest change of a cell.
static double sweep() {
    double change = 0;
    for (int i = 1; i <= cells; ++i) {
        const double mean = (heat[i - 1] + heat[i] + heat[i + 1]) / 3;
        change = std::fmax(change, std::fabs(mean - heat[i]));
        heat[i] = mean;
    }
    return change;
}

// A place to stop at: something is wrong with this slab.
static void does_not_settle(double change) {
    std::printf("rank %d does not settle in cycle %d: %g > %g\n", rank, cycle, change, tolerance);
    std::fflush(stdout);
}

static void relax() {
    int sweeps = 0;
    double change = sweep();
    while (change > tolerance) {
        change = sweep();
        if (++sweeps == 1000000) does_not_settle(change);
    }
}

// The largest cell of a slab, unless there is none.
static double peak(const double* slab) {
    double most = slab[1];
    for (int i = 2; i <= cells; ++i)
        most = std::fmax(most, slab[i]);
    return most;
}

// The child keeps the slab as it was until its parent ends.
static void keep_snapshot() {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == -1) give_up("cannot fork");
    if (child != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    while (getppid() == parent)
        poll(nullptr, 0, -1);
    std::exit(0);
}

static void simulate(int stray, int crashing) {
    heat[1] = 100.0 * (rank + 1);
    for (cycle = 0; cycle < cycles; ++cycle) {
        exchange_halo();
        // No change is smaller than a negative tolerance.
        if (cycle == critical_cycle && rank == stray) tolerance = -0.001;
        relax();
        const bool lost = cycle == critical_cycle && rank == crashing;
        highest = peak(lost ? nullptr : heat.data());
    }
}

static double total() {
    double sum = 0;
    for (int i = 1; i <= cells; ++i)
        sum += heat[i];
    return sum;
}

static void find_place() {
    static const char* const names[][2] = {{"VEX_TASK", "VEX_NTASKS"},
                                           {"OMPI_COMM_WORLD_RANK", "OMPI_COMM_WORLD_SIZE"},
                                           {"PMI_RANK", "PMI_SIZE"}};
    const char* name = std::getenv("VEX_JOB");
    job = name ? name : "of-" + std::to_string(getppid());
    for (const auto& [task, tasks] : names) {
        if (!std::getenv(task) || !std::getenv(tasks)) continue;
        rank = std::atoi(std::getenv(task));
        ntasks = std::atoi(std::getenv(tasks));
        return;
    }
}

int main(int argc, char** argv) {
    const auto asked = [&](const char* option) {
        return std::any_of(argv + 1, argv + argc,
                           [&](const char* word) { return std::strcmp(word, option) == 0; });
    };
    find_place();
    open_mailbox();
    if (asked("--fork") && rank == 0) keep_snapshot();
    simulate(asked("--healthy") ? -1 : ntasks * 5 / 8, asked("--crash") ? ntasks / 8 : -1);
    std::printf("rank %d is done: heat %.3f, at most %.3f\n", rank, total(), highest);
    return 0;
}
