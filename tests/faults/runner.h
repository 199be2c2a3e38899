#pragma once

#include "backend/os/processtree.h"
#include "tests/faults/board.h"
#include "tests/support/tempdir.h"
#include "tests/support/terminal.h"

#include <cstdio>
#include <iostream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/un.h>

inline constexpr auto bound = std::chrono::seconds(25);   // in which every session ends
inline constexpr auto clearing = std::chrono::seconds(5); // in which nothing is left of it

/// What a user waits for, and types then.
struct Typed {
    const char *after, *text;
};

/// A short session.
struct Plan {
    const char* name;
    Lines arguments; // FOLDER and TASK stand for what their names say
    std::vector<Typed> typed = {};
};

inline const char script[] =
    "print 1\nwhere\ngroup a = 0\non a\nprint 2\non all\nstat\nmatch 'step'\n"
    "vex who\n";

/// The call that fails.
struct Fault {
    int role = 0, kind = 0, number = 0;
};

/// What a session came to.
struct Outcome {
    int status = -1; // -1: it did not end
    bool clear = false, restored = false, tasksRun = true, socketLeft = false;
    std::string screen;
};

/// One session after the other, in a directory of their own. The process is the reaper of all that
/// they leave.
class Runner {
  public:
    explicit Runner(bool tracing) : traces(tracing) {
        ::prctl(PR_SET_CHILD_SUBREAPER, 1);
        folder.write("script", script);
        // As launchers do, it ends all when one has failed.
        folder.write("loop", "#!/bin/bash\nfor r in 0 1; do PMI_SIZE=2 PMI_RANK=$r \"$@\" & done\n"
                             "wait -n && wait -n && exit\nstatus=$?\nkill $(jobs -p)\nwait\n"
                             "exit $status\n");
        ::chmod(folder.path("loop").c_str(), 0700);
        folder.write("board", std::string(sizeof(Board), '\0'));
        const int fd = ::open(folder.path("board").c_str(), O_RDWR | O_CLOEXEC);
        page = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        ::close(fd);
        if (page == MAP_FAILED) throw std::runtime_error("mmap failed");
    }
    ~Runner() { ::munmap(page, sizeof(Board)); }
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    Outcome run(const Plan& plan, Board::Mode mode, const Fault& at = {}) {
        board = new (page) Board;
        board->role = at.role;
        board->kind = at.kind;
        board->number = at.number;
        board->mode = mode;
        std::filesystem::remove(folder.path("trace"));
        for (const char* each : {"home", "tmp", "launch"}) {
            std::filesystem::remove_all(folder.path(each));
            ::mkdir(folder.path(each).c_str(), 0700);
        }
        const std::vector<pid_t> tasks = startTasks(plan);
        Outcome outcome;
        {
            Terminal vex(startOf(plan, tasks));
            use(vex, plan);
            if (!vex.running()) outcome.status = vex.exitStatus();
            outcome.screen = vex.screen();
            const termios now = vex.settings();
            outcome.restored = std::memcmp(&now, &vex.initialSettings(), sizeof now) == 0;
        }
        // A session outlives its console: its guardian, ours now, ends it.
        if (outcome.screen.find("goes on without a console") != std::string::npos) {
            for (const pid_t id : ProcessTree::children(::getpid()))
                if (std::ranges::count(tasks, id) == 0) ::kill(id, SIGTERM);
        }
        outcome.clear = clears(tasks);
        if (traces) outcome.screen += folder.read("trace");
        outcome.socketLeft = socketLeft();
        outcome.tasksRun = std::ranges::all_of(tasks, runs);
        for (const pid_t task : tasks) {
            ::kill(task, SIGKILL);
            ::waitpid(task, nullptr, 0);
        }
        return outcome;
    }
    const Board& found() const { return *board; }

  private:
    const bool traces;
    TempDir folder;
    void* page = nullptr;
    Board* board = nullptr;

    static std::vector<pid_t> startTasks(const Plan& plan) {
        std::vector<pid_t> tasks;
        for (int i = 0; i < 2 && std::ranges::count(plan.arguments, "TASK") > 0; ++i) {
            const pid_t task = ::fork();
            if (task == 0) {
                ::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);
                ::prctl(PR_SET_PDEATHSIG, SIGKILL);
                ::execlp("sleep", "sleep", "1000", nullptr);
                ::_exit(127);
            }
            tasks.push_back(task);
        }
        return tasks;
    }

    Terminal::Start startOf(const Plan& plan, const std::vector<pid_t>& tasks) const {
        Terminal::Start start{{VEX_BIN_DIR "/vex"}};
        for (std::string word : plan.arguments) {
            if (word.starts_with("FOLDER")) word.replace(0, 6, folder.path());
            if (word == "TASK") word = std::to_string(tasks[0]) + "," + std::to_string(tasks[1]);
            start.argv.push_back(word);
        }
        start.environment = {{"LD_PRELOAD", VEX_FAULTS_SHIM},
                             {Board::variable, folder.path("board")},
                             {Board::traceVariable, traces ? folder.path("trace") : ""},
                             {"HOME", folder.path("home")},
                             {"TMPDIR", folder.path("tmp")},
                             {"VEX_LAUNCH_DIR", folder.path("launch")},
                             {"XDG_CACHE_HOME", ""},
                             {"TERM", "xterm"},
                             {"LC_ALL", "C"}};
        return start;
    }

    // Until its end, or until it has had its time.
    static void use(Terminal& vex, const Plan& plan) {
        std::size_t mark = 0, next = 0;
        for (const Deadline deadline(bound); vex.running() && deadline.left() > 0; sleepFor(2)) {
            if (next == plan.typed.size()) continue;
            const std::string& screen = vex.screen();
            const std::size_t at = screen.find(plan.typed[next].after, mark);
            if (at == std::string::npos) continue;
            mark = at + std::strlen(plan.typed[next].after);
            vex.type(plan.typed[next++].text);
        }
    }

    // Whether nothing but the tasks is left soon; makes it so.
    bool clears(const std::vector<pid_t>& tasks) const {
        bool clear = false;
        for (const Deadline deadline(clearing); !clear && deadline.left() > 0; sleepFor(1)) {
            ProcessTree::reapStrangers(sorted(tasks));
            auto rest = ProcessTree::descendants(::getpid());
            std::erase_if(rest, [&](pid_t id) { return std::ranges::count(tasks, id) > 0; });
            clear = rest.empty();
        }
        if (!clear) {
            for (const pid_t id : ProcessTree::descendants(::getpid())) {
                if (std::ranges::count(tasks, id) > 0) continue;
                if (traces) std::cout << "left: " << id << " " << ProcessTree::nameOf(id) << "\n";
                ::kill(id, SIGKILL);
            }
            sleepFor(50);
            ProcessTree::reapStrangers(sorted(tasks));
        }
        return clear && std::filesystem::is_empty(folder.path("launch"));
    }

    static std::vector<pid_t> sorted(std::vector<pid_t> ids) {
        std::ranges::sort(ids);
        return ids;
    }

    // A file behind which nobody listens: the number may have gone to another session, which is
    // about to listen or to end.
    bool socketLeft() const {
        for (int i = 0; i < 10; ++i) {
            if (!refuses()) return false;
            sleepFor(20);
        }
        return true;
    }

    bool refuses() const {
        if (::access(board->socketFile, F_OK) == -1 ||
            birthOf(board->socketFile) != board->socketBirth)
            return false;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", board->socketFile);
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool refused =
            ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1 &&
            errno == ECONNREFUSED;
        ::close(socket);
        return refused;
    }

    // It sleeps, and may only just have begun to.
    static bool runs(pid_t task) {
        for (const Deadline deadline(clearing); deadline.left() > 0; sleepFor(2)) {
            const std::string status = ProcessTree::fileOf(task, "status");
            if (status.find("TracerPid:\t0\n") != std::string::npos &&
                status.find("State:\tS") != std::string::npos)
                return true;
        }
        return false;
    }
};
