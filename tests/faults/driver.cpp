// Runs short sessions in which one call fails, once, and judges how they end. Without options a
// sample of all cases; --all runs each of them, --only SESSION:PROCESS:KIND[:NUMBER] some or one;
// VEX_SOAK_WORKERS so many at a time. A session whose calls are merely cut or interrupted must be
// like one in which nothing happens.

#include "tests/faults/runner.h"

#include <regex>

namespace {

constexpr int sampled = 180; // cases, without --all
constexpr int densely = 500; // so many allocations fail one by one, then one in:
constexpr int sparsely = 50;

const std::string standin = VEX_BIN_DIR "/gdb-standin";

std::vector<Plan> plans{
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
    bool last = false; // of its series, as far as is known

    std::string str() const {
        return plan->name + ":" + std::string(Board::processes[role].name) + ":" +
               std::string(Board::kinds[kind]) + ":" + std::to_string(number);
    }
    int next() const {
        return number + (kind == Board::kindOf("malloc") && number >= densely ? sparsely : 1);
    }
};

// What differs from run to run is left out.
Lines linesOf(const std::string& screen) {
    // The progress of the start, control sequences, numbers.
    static const std::regex changing("[\\s\\S]*\r|\x1b[^A-Za-z]*[A-Za-z]?|[0-9]");
    Lines lines;
    std::istringstream text(screen);
    for (std::string line; std::getline(text, line);) {
        line = std::regex_replace(line, changing, "");
        if (!line.empty() && line != "(all) ") lines.push_back(line);
    }
    return lines;
}

/// What is wrong with how a session ended; empty when nothing is.
std::string verdict(const Plan& plan, const Outcome& outcome, const Board& board) {
    const auto lines = linesOf(outcome.screen);
    const auto among = [](const auto& all) {
        return [&all](const std::string& line) { return std::ranges::count(all, line) > 0; };
    };
    const bool whole = std::ranges::all_of(plan.shown, among(lines));
    const bool told = std::ranges::any_of(lines, [&](const std::string& line) {
        const auto holds = [&](const char* text) { return line.find(text) != line.npos; };
        return !among(plan.shown)(line) &&
               (holds("vex: ") || holds(" was terminated") || holds("-  "));
    });
    const int status = outcome.status;
    const bool crashed = board.aborted || status == 128 + SIGABRT || status == 128 + SIGSEGV;
    const bool empty = status == 0 && !whole && !told && plan.typed.empty();
    const std::pair<bool, const char*> faults[] = {{status == -1, "does not end"},
                                                   {crashed, "crashes"},
                                                   {!outcome.clear, "leaves something"},
                                                   {outcome.socketLeft, "leaves its socket file"},
                                                   {!outcome.tasksRun, "attached tasks do not run"},
                                                   {!outcome.restored, "terminal not restored"},
                                                   {!told && status != 0, "says nothing"},
                                                   {empty, "succeeds without its output"}};
    std::string wrong;
    for (const auto& [found, what] : faults)
        if (found) wrong += (wrong.empty() ? "" : ", ") + std::string(what);
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

    int run() {
        void* page = ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED) return 1;
        progress = new (page) Progress;
        findCases();
        std::cout.flush();
        for (long i = 0; i < soak("VEX_SOAK_WORKERS", 4); ++i) {
            if (::fork() == 0) {
                work();
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
    std::vector<Case> cases;

    // Nothing fails; then everything is cut, or interrupted, and all is as before.
    void findCases() {
        Runner runner(false);
        for (Plan& plan : plans) {
            if (!only.empty() && !(only + ":").starts_with(plan.name + ":")) continue;
            for (const auto mode : {Board::NOTHING, Board::CUT, Board::INTERRUPT}) {
                const Outcome outcome = runner.run(plan, mode);
                if (mode == Board::NOTHING) {
                    plan.shown = linesOf(outcome.screen);
                    addCases(plan, runner.found());
                }
                std::string wrong = verdict(plan, outcome, runner.found());
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

    void addCases(const Plan& plan, const Board& found) {
        for (std::size_t role = 0; role < Board::processes.size(); ++role) {
            for (std::size_t kind = 0; kind < Board::kinds.size(); ++kind) {
                const int most = found.calls[role][kind];
                for (Case at{{role, kind, 1}, &plan}; at.number <= most; at.number = at.next()) {
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
        const std::string wrong = verdict(*at.plan, outcome, board);
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
    const Lines words(argv + 1, argv + argc);
    Driver driver;
    driver.all = words == Lines{"--all"};
    if (words.size() == 2 && words[0] == "--only") driver.only = words[1];
    if (!words.empty() && !driver.all && driver.only.empty()) {
        std::cerr << "usage: vex_faults [--all | --only SESSION:PROCESS:KIND[:NUMBER]]\n";
        return 2;
    }
    if (::getuid() == 0) {
        std::cerr << "skipped: run the tests as an ordinary user\n";
        return 77;
    }
    return driver.run();
}
