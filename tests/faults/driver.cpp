// Runs short sessions in which one call fails, once, and judges how they end. Without options a
// sample of all cases; --all runs each of them, --only SESSION:PROCESS:KIND[:NUMBER] some or one,
// --workers N so many at a time. A session whose calls are merely cut or interrupted must be like
// one in which nothing happens.

#include "tests/faults/runner.h"

namespace {

constexpr int sampled = 180; // cases, without --all
constexpr int densely = 500; // so many allocations fail one by one, then one in:
constexpr int sparsely = 50;

const std::string standin = VEX_BIN_DIR "/gdb-standin";

const std::vector<Plan> plans{
    {"local", {"-n", "2", "--script", "FOLDER/script", "--debugger", standin, "true"}},
    {"launched",
     {"--launch", "FOLDER/loop", "--script", "FOLDER/script", "--debugger", standin, "true"}},
    {"typed",
     {"-n", "2", "--debugger", standin, "true"},
     {{"(all) ", "print 1\n"},
      {"(all) ", "where\n"},
      {"(all) ", "kquit\n"},
      {"(y/n) ", "y\n"},
      {"(all) ", "kquit\n"}, // when the answer was not heard
      {"(y/n) ", "y\n"}}},
    {"attached", {"--attach", "TASK", "--script", "FOLDER/script", "--debugger", standin}},
};

struct Case : Fault {
    int plan = 0;
    bool last = false; // of its series, as far as is known

    std::string str() const {
        return std::string(plans[static_cast<std::size_t>(plan)].name) + ":" +
               Board::processes[static_cast<std::size_t>(role)].name + ":" +
               Board::kindNames[static_cast<std::size_t>(kind)] + ":" + std::to_string(number);
    }
};

/// What a session is compared with: what it shows and calls when nothing fails.
struct Model {
    std::vector<std::string> lines;
    std::array<std::array<int, Board::kinds>, Board::roles> calls{};
};

// What differs from run to run is left out.
std::vector<std::string> linesOf(const std::string& screen) {
    std::vector<std::string> lines;
    std::istringstream text(screen);
    for (std::string line; std::getline(text, line);) {
        std::string plain;
        for (std::size_t i = 0; i < line.size(); ++i) {
            if (line[i] == '\x1b') {
                while (i < line.size() && std::isalpha(static_cast<unsigned char>(line[i])) == 0)
                    ++i;
            } else if (line[i] == '\r') {
                plain.clear(); // the progress of the start
            } else if (std::isdigit(static_cast<unsigned char>(line[i])) == 0) {
                plain += line[i];
            }
        }
        if (!plain.empty() && plain != "(all) ") lines.push_back(plain);
    }
    return lines;
}

/// What is wrong with how a session ended; empty when nothing is.
std::string verdict(const Plan& plan, const Outcome& outcome, const Board& board,
                    const Model& model) {
    std::string wrong;
    const auto blame = [&](bool found, const char* what) {
        if (found) wrong += (wrong.empty() ? "" : ", ") + std::string(what);
    };
    const auto lines = linesOf(outcome.screen);
    const auto among = [](const auto& all) {
        return [&all](const std::string& line) { return std::ranges::count(all, line) > 0; };
    };
    const bool whole = std::ranges::all_of(model.lines, among(lines));
    const bool told = std::ranges::any_of(lines, [&](const std::string& line) {
        const auto holds = [&](const char* text) { return line.find(text) != line.npos; };
        return !among(model.lines)(line) &&
               (holds("vex: ") || holds(" was terminated") || holds("-  "));
    });
    const int status = outcome.status;
    blame(status == -1, "does not end");
    blame(board.aborted || status == 128 + SIGABRT || status == 128 + SIGSEGV, "crashes");
    blame(!outcome.clear, "leaves something");
    blame(outcome.socketLeft, "leaves its socket file");
    blame(!outcome.tasksRun, "attached tasks do not run");
    blame(!outcome.restored, "terminal not restored");
    blame(!told && status != 0, "says nothing");
    blame(status == 0 && !whole && !told && plan.typed.empty(), "succeeds without its output");
    return wrong;
}

/// All cases, and where the workers are in them; in memory that the workers share.
struct Progress {
    std::atomic<std::size_t> next = 0;
    std::atomic<int> runs = 0, reached = 0, ended = 0, found = 0;
};

class Driver {
  public:
    bool all = false;
    std::string only;
    int workers = 4;

    int run() {
        void* page = ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED) return 1;
        progress = new (page) Progress;
        findModels();
        findCases();
        std::cout.flush();
        for (int i = 0; i < workers; ++i) {
            if (::fork() == 0) {
                work();
                std::cout.flush();
                ::_exit(0);
            }
        }
        while (::wait(nullptr) > 0) {
        }
        std::printf("%d sessions, in %d of them the call was reached: %d went on unchanged, %d "
                    "findings\n",
                    progress->runs.load(), progress->reached.load(), progress->ended.load(),
                    progress->found.load());
        return progress->found == 0 ? 0 : 1;
    }

  private:
    Progress* progress = nullptr;
    std::vector<Model> models;
    std::vector<Case> cases;

    bool wanted(const std::string& name) const {
        return only.empty() || name.starts_with(only + ":") || only.starts_with(name);
    }

    // Nothing fails; then everything is cut, or interrupted, and all is as before.
    void findModels() {
        Runner runner(false);
        for (const Plan& plan : plans) {
            Model& model = models.emplace_back();
            if (!wanted(std::string(plan.name))) continue;
            for (const auto mode : {Board::NOTHING, Board::CUT, Board::INTERRUPT}) {
                const Outcome outcome = runner.run(plan, mode);
                for (std::size_t role = 0; role < Board::roles && mode == Board::NOTHING; ++role) {
                    for (std::size_t kind = 0; kind < Board::kinds; ++kind)
                        model.calls[role][kind] = runner.found().calls[role][kind];
                }
                if (mode == Board::NOTHING) model.lines = linesOf(outcome.screen);
                std::string wrong = verdict(plan, outcome, runner.found(), model);
                if (outcome.status != 0) wrong += " status " + std::to_string(outcome.status);
                if (wrong.empty()) continue;
                ++progress->found;
                std::cout << plan.name << " in mode " << mode << ": " << wrong << "\n"
                          << outcome.screen << std::endl;
            }
        }
    }

    void findCases() {
        for (int kind = Board::kinds - 1; kind >= 0; --kind) {
            for (int plan = 0; plan < static_cast<int>(plans.size()); ++plan) {
                for (int role = 0; role < Board::roles; ++role)
                    addSeries({{role, kind, 1}, plan});
            }
        }
        if (all || !only.empty()) return;
        // Evenly from all; a multiple of no count of series.
        std::vector<Case> sample;
        for (std::size_t i = 0; i < sampled; ++i)
            sample.push_back(cases[i * cases.size() / sampled]);
        cases = sample;
    }

    static int after(const Case& at) {
        return at.number + (at.kind == Board::MALLOC && at.number >= densely ? sparsely : 1);
    }

    void addSeries(Case at) {
        const int most =
            models[static_cast<std::size_t>(at.plan)]
                .calls[static_cast<std::size_t>(at.role)][static_cast<std::size_t>(at.kind)];
        for (; at.number <= most; at.number = after(at)) {
            at.last = after(at) > most;
            if (only.empty() || (at.str() + ":").starts_with(only + ":")) cases.push_back(at);
        }
    }

    void work() {
        Runner runner(!only.empty());
        for (std::size_t i; (i = progress->next++) < cases.size();) {
            Case at = cases[i];
            // A busier session than the model may make more calls: until it does not get there.
            while (judge(runner, at) && at.last && all)
                at.number = after(at);
        }
    }

    // Whether the call was reached.
    bool judge(Runner& runner, const Case& at) {
        const Plan& plan = plans[static_cast<std::size_t>(at.plan)];
        const Outcome outcome = runner.run(plan, Board::FAIL, at);
        const Board& board = runner.found();
        const std::string wrong =
            verdict(plan, outcome, board, models[static_cast<std::size_t>(at.plan)]);
        ++progress->runs;
        progress->reached += board.reached;
        progress->ended += board.reached && wrong.empty() && outcome.status == 0;
        progress->found += !wrong.empty();
        std::ostringstream line;
        if (!wrong.empty()) line << at.str() << " " << wrong << " (" << outcome.status << ")\n";
        if (!only.empty()) line << outcome.screen << "\n== " << at.str() << " " << outcome.status;
        if (!only.empty()) line << (board.reached ? "" : " not reached") << "\n";
        std::cout << line.str() << std::flush;
        return board.reached;
    }
};

} // namespace

int main(int argc, char** argv) {
    Driver driver;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--all") {
            driver.all = true;
        } else if (word == "--only" && i + 1 < argc) {
            driver.only = argv[++i];
        } else if (word == "--workers" && i + 1 < argc) {
            driver.workers = std::max(1, std::atoi(argv[++i]));
        } else {
            std::cerr << "usage: vex_faults [--all] [--only SESSION:PROCESS:KIND[:NUMBER]] "
                         "[--workers N]\n";
            return 2;
        }
    }
    if (::getuid() == 0) {
        std::cerr << "skipped: run the tests as an ordinary user\n";
        return 77;
    }
#ifdef VEX_SANITIZED
    std::cerr
        << "skipped: a sanitizer's library wants to be loaded first, and has its own malloc\n";
    return 77;
#endif
    return driver.run();
}
