// What the front end costs, from a few tasks to many: vex itself over stand-in debuggers, with its
// own tasks and with agents that a shell loop starts. Prints a table; figures are processor time of
// the session's process where nothing else is said, and ratios within this run.
// Usage: bench_frontend BINARIES STANDIN [TASKS...]

#include "backend/os/processtree.h"
#include "backend/os/pty.h"
#include "bench/vexunderload.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr const char* command = "lines 100"; // of 80 bytes
constexpr std::size_t bytesOfCommand = 100 * 81;
constexpr int repetitions = 9; // of what is set against something else: the middle one counts

std::string standin;

// The processor time in which a bare loop reads the command's output from as many terminals: the
// least that anybody can do who owns them. In seconds.
double bareLoop(int tasks) {
    struct Task {
        std::unique_ptr<Pty> pty;
        pid_t process;
    };
    std::vector<Task> all;
    const int queue = ::epoll_create1(EPOLL_CLOEXEC);
    for (int i = 0; i < tasks; ++i) {
        auto pty = std::make_unique<Pty>();
        const pid_t process = ::fork();
        if (process == 0) {
            ::dup2(pty->terminal(), STDIN_FILENO);
            ::dup2(pty->terminal(), STDOUT_FILENO);
            ::execl(standin.c_str(), standin.c_str(), nullptr);
            ::_exit(127);
        }
        pty->closeTerminal();
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = pty->master();
        ::epoll_ctl(queue, EPOLL_CTL_ADD, pty->master(), &event);
        all.push_back({std::move(pty), process});
    }
    const auto readAll = [&](std::size_t expected) {
        std::vector<char> buffer(65536);
        epoll_event events[256];
        while (expected > 0) {
            const int ready = ::epoll_wait(queue, events, 256, 10000);
            if (ready <= 0) break;
            for (int i = 0; i < ready; ++i) {
                const ssize_t got = ::read(events[i].data.fd, buffer.data(), buffer.size());
                if (got > 0) expected -= std::min(expected, static_cast<std::size_t>(got));
            }
        }
    };
    const std::size_t prompt = std::string("(gdb) ").size();
    const std::size_t count = static_cast<std::size_t>(tasks);
    readAll(count * prompt);
    const std::string line = std::string(command) + "\n";
    const double before = VexUnderLoad::processorOf(::getpid());
    for (const Task& each : all)
        if (::write(each.pty->master(), line.data(), line.size()) == -1) std::perror("write");
    readAll(count * (bytesOfCommand + prompt));
    const double cost = VexUnderLoad::processorOf(::getpid()) - before;
    for (Task& each : all) {
        each.pty->closeMaster();
        ::kill(each.process, SIGKILL);
        ::waitpid(each.process, nullptr, 0);
    }
    ::close(queue);
    return cost;
}

double megabytes(std::size_t bytes) { return static_cast<double>(bytes) / 1024 / 1024; }

// A row of the table, and the figures that growth is told of.
struct Row {
    int tasks = 0;
    double start = 0, lines = 0, quit = 0;
};

void printHead(const char* what) {
    std::printf("\n%s\n%8s %9s %9s %9s %9s %8s %8s %9s %9s %9s %9s\n", what, "tasks", "start s",
                "cpu s", "lines s", "x bare", "records", "kB", "where s", "print s", "kquit s",
                "peak MB");
}

template <typename Value, typename Key>
Value middle(std::vector<Value> values, const Key& key) {
    std::ranges::nth_element(values, values.begin() + std::ssize(values) / 2, {}, key);
    return values[values.size() / 2];
}

Row measure(VexUnderLoad& vex, int tasks, double bare) {
    Row row;
    row.tasks = tasks;
    row.start = vex.startCost().processor;
    std::vector<VexUnderLoad::Cost> costs;
    for (int i = 0; i < repetitions; ++i)
        costs.push_back(vex.command(command));
    const auto lines = middle(costs, [](const auto& cost) { return cost.processor; });
    const auto where = vex.command("where");
    const auto print = vex.command("print rank");
    const std::size_t peak = VexUnderLoad::peakOf(vex.session());
    row.lines = lines.processor;
    const auto end = vex.quit();
    row.quit = end.wall;
    std::printf("%8d %9.2f %9.3f %9.4f %9.1f %8d %8.1f %9.4f %9.4f %9.2f %9.1f\n", tasks,
                vex.startCost().wall, row.start, row.lines, bare > 0 ? row.lines / bare : 0.0,
                lines.records - 1, static_cast<double>(lines.bytes) / 1024, where.processor,
                print.processor, row.quit, megabytes(peak));
    std::fflush(stdout);
    return row;
}

// Costs grow with the number of tasks to the power of these: over all sizes, and between the last
// two, where what is spent once counts for less.
void printGrowth(const std::vector<Row>& rows) {
    const auto print = [](const Row& first, const Row& last) {
        const auto exponent = [&](double a, double b) {
            return std::log(b / a) / std::log(static_cast<double>(last.tasks) / first.tasks);
        };
        std::printf("growth from %d to %d: start %.2f, lines %.2f, kquit %.2f\n", first.tasks,
                    last.tasks, exponent(first.start, last.start),
                    exponent(first.lines, last.lines), exponent(first.quit, last.quit));
    };
    if (rows.size() > 1) print(rows.front(), rows.back());
    if (rows.size() > 2) print(rows[rows.size() - 2], rows.back());
}

// What bounds the number of tasks on this machine.
void printLimits() {
    const auto limit = [](auto resource) {
        rlimit found{};
        ::getrlimit(resource, &found);
        return found.rlim_max == RLIM_INFINITY ? std::string("no bound")
                                               : std::to_string(found.rlim_max);
    };
    std::string terminals;
    std::ifstream("/proc/sys/kernel/pty/max") >> terminals;
    std::printf("Limits: %s descriptors a process, %s processes a user, %s pseudo-terminals; %ld "
                "processors\n",
                limit(RLIMIT_NOFILE).c_str(), limit(RLIMIT_NPROC).c_str(), terminals.c_str(),
                ::sysconf(_SC_NPROCESSORS_ONLN));
}

void local(const std::string& binaries, const std::vector<int>& sizes) {
    printHead("Tasks of this host, started by vex -n (bare: a loop that reads the same terminals)");
    std::vector<Row> rows;
    for (const int tasks : sizes) {
        std::vector<double> costs;
        for (int i = 0; i < repetitions; ++i)
            costs.push_back(bareLoop(tasks));
        const double bare = middle(costs, [](double cost) { return cost; });
        VexUnderLoad vex(binaries, {"-n", std::to_string(tasks), "--debugger", standin, "true"});
        rows.push_back(measure(vex, tasks, bare));
    }
    printGrowth(rows);
}

// What the agents of this host take, and how many connections the session has to them.
void printAgents(const VexUnderLoad& vex, int tasks) {
    std::size_t memory = 0, largest = 0;
    int processes = 0;
    for (const pid_t each : ProcessTree::descendants(vex.session())) {
        if (!ProcessTree::nameOf(each).starts_with("vexagent")) continue;
        const std::size_t own = VexUnderLoad::privateOf(each);
        memory += own;
        largest = std::max(largest, own);
        ++processes;
    }
    int sockets = 0;
    const std::string folder = "/proc/" + std::to_string(vex.session()) + "/fd";
    std::error_code fault;
    for (const auto& entry : std::filesystem::directory_iterator(folder, fault))
        sockets += std::filesystem::read_symlink(entry, fault).string().starts_with("socket:");
    std::printf(
        "%8d tasks: %d processes of agents, %.1f MB in all, %.1f MB the largest; %d sockets "
        "of the session\n",
        tasks, processes, megabytes(memory), megabytes(largest), sockets);
}

void agents(const std::string& binaries, const std::vector<int>& sizes) {
    printHead("The same behind agents, started by a shell loop on this host");
    char name[] = "/tmp/vex-bench.XXXXXX";
    if (!::mkdtemp(name)) return;
    const std::string loop = std::string(name) + "/loop";
    std::ofstream(loop) << "#!/bin/sh\nn=$1\nshift\nr=0\nwhile [ $r -lt $n ]; do PMI_SIZE=$n "
                           "PMI_RANK=$r \"$@\" & r=$((r + 1)); done\nwait\n";
    ::chmod(loop.c_str(), S_IRWXU);
    std::vector<Row> rows;
    for (const int tasks : sizes) {
        VexUnderLoad vex(binaries, {"--launch", loop + " " + std::to_string(tasks), "--debugger",
                                    standin, "true"});
        printAgents(vex, tasks);
        rows.push_back(measure(vex, tasks, 0));
    }
    printGrowth(rows);
    std::filesystem::remove_all(name);
}

// The nodes simulate their clients; each has a connection of its own.
void nodes(const std::string& binaries, const std::vector<std::pair<int, int>>& sizes) {
    printHead("Nodes that simulate their clients (nodes x clients)");
    const std::string counter = "/tmp/vex-bench.sent." + std::to_string(::getpid());
    ::setenv("VEX_BENCH_SENT", counter.c_str(), 1);
    const auto sent = [&] {
        double bytes = 0;
        std::ifstream(counter) >> bytes;
        return bytes;
    };
    std::vector<Row> rows;
    for (const auto& [count, each] : sizes) {
        VexUnderLoad vex(binaries, {"--launch",
                                    binaries + "/bench_nodes " + std::to_string(count) + " " +
                                        std::to_string(each),
                                    "true"});
        const int tasks = count * each;
        const double before = sent();
        const auto stat = vex.stat();
        const double ofStat = sent() - before;
        vex.command(command);
        const double ofLines = sent() - before - ofStat;
        std::printf("%8d = %d x %d, stat: %.3f s, %.1f kB in %d records; a node sends %.1f kB for "
                    "it, %.1f kB for the lines\n",
                    tasks, count, each, stat.processor, static_cast<double>(stat.bytes) / 1024,
                    stat.records - 1, ofStat / count / 1024, ofLines / count / 1024);
        rows.push_back(measure(vex, tasks, 0));
    }
    std::filesystem::remove(counter);
    printGrowth(rows);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: bench_frontend BINARIES STANDIN [TASKS...]\n");
        return 2;
    }
    standin = argv[2];
    std::vector<int> sizes;
    for (int i = 3; i < argc; ++i)
        sizes.push_back(std::atoi(argv[i]));
    if (sizes.empty()) sizes = {8, 128, 1000, 2000};
    try {
        printLimits();
        local(argv[1], sizes);
        agents(argv[1], sizes);
        nodes(argv[1], {{1, 8}, {16, 128}, {80, 128}, {1024, 128}});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_frontend: %s\n", error.what());
        return 1;
    }
}
