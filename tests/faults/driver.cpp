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
    {"attached", {"--attach", "TASKS", "--script", "FOLDER/script", "--debugger", standin}},
};

struct Case : Fault {
    const Plan* plan = nullptr;
    const Lines* model = nullptr; // what the session shows when nothing fails
    bool last = false;            // of its series, as far as is known

    std::string str() const {
        std::ostringstream text;
        text << plan->name << ":" << Board::processes[role].name << ":" << Board::kinds[kind] << ":"
             << number;
        return text.str();
    }
    int next() const {
        return number + (kind == Board::kindOf("malloc") && number >= densely ? sparsely : 1);
    }
};

// What differs from run to run is left out.
Lines linesOf(const std::string& screen) {
    Lines lines;
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
                    const Lines& model) {
    std::string wrong;
    const auto blame = [&](bool found, const char* what) {
        if (found) wrong += (wrong.empty() ? "" : ", ") + std::string(what);
    };
    const auto lines = linesOf(outcome.screen);
    const auto among = [](const auto& all) {
        return [&all](const std::string& line) { return std::ranges::count(all, line) > 0; };
    };
    const bool whole = std::ranges::all_of(model, among(lines));
    const bool told = std::ranges::any_of(lines, [&](const std::string& line) {
        const auto holds = [&](const char* text) { return line.find(text) != line.npos; };
        return !among(model)(line) && (holds("vex: ") || holds(" was terminated") || holds("-  "));
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
        std::cout << progress->runs << " sessions, in " << progress->reached
                  << " of them the call was reached: " << progress->ended << " went on unchanged, "
                  << progress->found << " findings\n";
        return progress->found == 0 ? 0 : 1;
    }

  private:
    Progress* progress = nullptr;
    std::deque<Lines> models;
    std::vector<Case> cases;

    // Nothing fails; then everything is cut, or interrupted, and all is as before.
    void findCases() {
        Runner runner(false);
        for (const Plan& plan : plans) {
            if (!only.empty() && !(only + ":").starts_with(plan.name + ":")) continue;
            Lines& model = models.emplace_back();
            for (const auto mode : {Board::NOTHING, Board::CUT, Board::INTERRUPT}) {
                const Outcome outcome = runner.run(plan, mode);
                if (mode == Board::NOTHING) {
                    model = linesOf(outcome.screen);
                    addCases(plan, model, runner.found());
                }
                std::string wrong = verdict(plan, outcome, runner.found(), model);
                if (outcome.status != 0) wrong += " status " + std::to_string(outcome.status);
                if (wrong.empty()) continue;
                ++progress->found;
                std::cout << plan.name << " in mode " << mode << ": " << wrong << "\n"
                          << outcome.screen << std::endl;
            }
        }
        std::ranges::stable_sort(cases, std::ranges::greater(), &Case::kind);
        if (all || !only.empty()) return;
        // Evenly from all; a multiple of no count of series.
        std::vector<Case> sample;
        for (std::size_t i = 0; i < sampled; ++i)
            sample.push_back(cases[i * cases.size() / sampled]);
        cases = sample;
    }

    void addCases(const Plan& plan, const Lines& model, const Board& found) {
        for (std::size_t role = 0; role < Board::processes.size(); ++role) {
            for (std::size_t kind = 0; kind < Board::kinds.size(); ++kind) {
                const int most = found.calls[role][kind];
                for (Case at{{role, kind, 1}, &plan, &model}; at.number <= most;
                     at.number = at.next()) {
                    at.last = at.next() > most;
                    if (only.empty() || (at.str() + ":").starts_with(only + ":"))
                        cases.push_back(at);
                }
            }
        }
    }

    void work() {
        Runner runner(!only.empty());
        for (std::size_t i; (i = progress->next++) < cases.size();) {
            Case at = cases[i];
            // A busier session than the model may make more calls: until it does not get there.
            while (judge(runner, at) && at.last && all)
                at.number = at.next();
        }
    }

    // Whether the call was reached.
    bool judge(Runner& runner, const Case& at) {
        const Outcome outcome = runner.run(*at.plan, Board::FAIL, at);
        const Board& board = runner.found();
        const std::string wrong = verdict(*at.plan, outcome, board, *at.model);
        ++progress->runs;
        progress->reached += board.reached;
        progress->ended += board.reached && wrong.empty() && outcome.status == 0;
        progress->found += !wrong.empty();
        std::ostringstream line;
        if (!wrong.empty()) line << at.str() << " " << wrong << " (" << outcome.status << ")\n";
        if (!only.empty())
            line << outcome.screen << "\n== " << at.str() << " " << outcome.status
                 << (board.reached ? "\n" : " not reached\n");
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
