#pragma once

#include "common/unixsock.h"
#include "tests/faults/board.h"
#include "tests/support/tempdir.h"
#include "tests/support/terminal.h"
#include "tests/support/walker.h"

#include <deque>
#include <iostream>
#include <sys/mman.h>
#include <sys/prctl.h>

inline constexpr auto bound = std::chrono::seconds(25);   // in which every session ends
inline constexpr auto clearing = std::chrono::seconds(5); // in which nothing is left of it

/// A short session, and what its user types after which text.
struct Plan {
    std::string name;
    Lines arguments; // FOLDER and TASKS stand for what their names say
    std::vector<std::pair<const char*, const char*>> typed = {};
    Lines shown = {}; // when nothing fails
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
        folder.write("script", "print 1\nwhere\ngroup a = 0\non a\nprint 2\non all\nstat\n"
                               "match 'step'\nvex who\n");
        // As launchers do, it ends all when one has failed.
        folder.write("loop", "#!/bin/bash\nfor r in 0 1; do PMI_SIZE=2 PMI_RANK=$r \"$@\" & done\n"
                             "wait -n && wait -n && exit\nstatus=$?\nkill $(jobs -p)\nwait\n"
                             "exit $status\n");
        ::chmod(folder.path("loop").c_str(), 0700);
        const Descriptor file(::open(folder.write("board", "").c_str(), O_RDWR | O_CLOEXEC));
        page = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
        if (page == MAP_FAILED) throw std::runtime_error("mmap failed");
    }
    ~Runner() { ::munmap(page, sizeof(Board)); }

    Outcome run(const Plan& plan, Board::Mode mode, const Fault& fault = {}) {
        std::filesystem::resize_file(folder.path("board"), sizeof(Board)); // drops the traces
        board = new (page) Board{.mode = mode, .fault = fault, .traces = traces};
        for (const char* each : {"home", "tmp", "launch"}) {
            std::filesystem::remove_all(folder.path(each));
            ::mkdir(folder.path(each).c_str(), 0700);
        }
        const std::deque<Walker> walkers(plan.arguments[0] == "--attach" ? 2 : 0);
        tasks.clear();
        for (const Walker& each : walkers)
            tasks.push_back(each.pid());
        std::ranges::sort(tasks);
        Outcome outcome;
        {
            Terminal vex(startOf(plan));
            use(vex, plan);
            if (!vex.running()) outcome.status = vex.exitStatus();
            outcome.screen = vex.screen();
            outcome.restored = vex.isRestored();
        }
        // A session outlives its console: its guardian, ours now, ends it.
        if (outcome.screen.find("goes on without a console") != std::string::npos) {
            for (const pid_t id : left())
                if (ProcessTree::parentOf(id) == ::getpid()) ::kill(id, SIGTERM);
        }
        const Deadline deadline(clearing);
        while (!left().empty() && deadline.left() > 0)
            sleepFor(1);
        outcome.clear = left().empty() && std::filesystem::is_empty(folder.path("launch"));
        for (auto rest = left(); !rest.empty(); rest = left()) {
            for (const pid_t id : rest) {
                if (traces) std::cout << "left: " << id << " " << ProcessTree::nameOf(id) << "\n";
                ::kill(id, SIGKILL);
            }
            sleepFor(50);
        }
        if (traces) outcome.screen += folder.read("board").substr(sizeof(Board));
        outcome.socketLeft = socketLeft();
        outcome.tasksRun = std::ranges::all_of(walkers, &Walker::walks);
        return outcome;
    }
    const Board& found() const { return *board; }

  private:
    const bool traces;
    TempDir folder;
    void* page = nullptr;
    Board* board = nullptr;
    std::vector<pid_t> tasks; // to attach to

    Terminal::Start startOf(const Plan& plan) const {
        Terminal::Start start{{VEX_BIN_DIR "/vex"}};
        for (std::string word : plan.arguments) {
            if (word.starts_with("FOLDER")) word.replace(0, 6, folder.path());
            if (word == "TASKS") word = std::to_string(tasks[0]) + "," + std::to_string(tasks[1]);
            start.argv.push_back(word);
        }
        start.environment = {{"LD_PRELOAD", VEX_FAULTS_SHIM},
                             {Board::variable, folder.path("board")},
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
            const auto [after, text] = plan.typed[next];
            const std::size_t at = vex.screen().find(after, mark);
            if (at == std::string::npos) continue;
            mark = at + std::strlen(after);
            vex.type(text);
            ++next;
        }
    }

    // The processes that live below this one, but for the tasks.
    std::vector<pid_t> left() const {
        ProcessTree::reapStrangers(tasks);
        auto found = ProcessTree::descendants(::getpid());
        std::erase_if(found, [this](pid_t id) { return std::ranges::count(tasks, id) > 0; });
        return found;
    }

    // A file behind which nobody listens for a second: the number may have gone to another session,
    // which is about to listen or to end.
    bool socketLeft() const {
        const char* const path = board->socketFile;
        const auto remains = [&] {
            return ::access(path, F_OK) == 0 && birthOf(path) == board->socketBirth;
        };
        return remains() && UnixSocket().connect(path, 1) != 0 && remains();
    }
};
