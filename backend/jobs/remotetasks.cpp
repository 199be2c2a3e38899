#include "backend/jobs/remotetasks.h"

#include "backend/jobs/logins.h"
#include "backend/os/eventloop.h"
#include "backend/os/limits.h"
#include "backend/os/processtree.h"
#include "backend/os/signals.h"
#include "backend/os/text.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <optional>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace {

bool isNumber(int rank) { return rank >= 0 && rank < Limits::maxTasks; }

// What a login prints goes to the user's terminal.
std::string safe(std::string line) {
    std::ranges::replace_if(
        line, [](char each) { return std::iscntrl(static_cast<unsigned char>(each)) != 0; }, '?');
    return line;
}

// Asks all process managers of a job, some at a time.
class Search : private Logins::Owner {
  public:
    Search(RunningJob& running, const std::vector<std::string>& rsh, const std::string& path)
        : job(running),
          words(rsh),
          agent(path),
          signals(loop, {SIGCHLD, SIGINT},
                  [this](int number) { number == SIGCHLD ? logins.collect() : giveUp(); }),
          patience(loop),
          logins(loop, job.managers().size(), std::nullopt, *this) {}
    ~Search() override { std::signal(SIGINT, SIG_IGN); }

    void run() {
        sayWhoIsMissing();
        logins.startNext();
        loop.run();
        if (givenUp) throw std::runtime_error("the search for the tasks was given up");
    }

  private:
    RunningJob& job;
    const std::vector<std::string>& words;
    const std::string& agent;
    EventLoop loop;
    Signals signals;
    Timer patience; // of the user
    Logins logins;  // one for each manager
    bool givenUp = false;

    const std::string& hostOf(std::size_t manager) const { return job.managers()[manager].host; }

    void giveUp() {
        givenUp = true;
        loop.stop();
    }
    void sayWhoIsMissing() {
        patience.after(std::chrono::seconds(10), [this] {
            std::set<std::string> missing;
            for (std::size_t i = 0; i < logins.count(); ++i) {
                if (logins.underWay(i)) missing.insert(hostOf(i));
            }
            for (const std::string& host : missing)
                std::fprintf(stderr, "vex: no answer yet from host %s; Ctrl-C gives up\n",
                             host.c_str());
            sayWhoIsMissing();
        });
    }

    // Logins::Owner
    Logins::Command commandOf(std::size_t login) override {
        const auto& [host, name] = job.managers()[login];
        std::vector<std::string> argv = words;
        argv.insert(argv.end(), {host, Text::quoted(agent), "--tasks-of", Text::quoted(name)});
        return {argv, ""};
    }
    void onLine(std::size_t login, const std::string& line) override {
        std::istringstream text(line);
        std::string word, program;
        int rank = -1;
        pid_t pid = 0;
        if (line.starts_with("size ") && text >> word >> rank && isNumber(rank - 1))
            job.noteSize(rank);
        else if (text >> word >> rank >> pid && word == "task" && pid > 0 &&
                 (rank == -1 || isNumber(rank)) && std::getline(text >> std::ws, program))
            job.addRemote({rank, pid, hostOf(login), program});
        else
            std::fprintf(stderr, "vex: %s: %s\n", hostOf(login).c_str(), safe(line).c_str());
    }
    void onEnded(std::size_t login, const std::string& how) override {
        if (how != "ended with status 0") {
            job.noteSilent(hostOf(login));
            std::fprintf(stderr, "vex: the tasks of host %s are left out: %s %s\n",
                         hostOf(login).c_str(), words[0].c_str(), how.c_str());
        }
        logins.finish(login);
        logins.startNext();
        if (logins.allFinished()) loop.stop();
    }
};

} // namespace

void RemoteTasks::addTo(RunningJob& job, const std::vector<std::string>& rsh,
                        const std::string& agent) {
    Search(job, rsh, agent).run();
}

void RemoteTasks::list(const std::string& manager, std::ostream& out) {
    RunningJob job;
    job.addManaged(manager);
    if (job.size() > 0) out << "size " << job.size() << '\n';
    for (const Target& task : job.targets()) {
        out << "task " << task.rank << ' ' << task.pid << ' '
            << Text::baseName(ProcessTree::executableOf(task.pid)) << '\n';
    }
}
