#include "backend/jobs/remotetasks.h"

#include "backend/jobs/launcher.h"
#include "backend/os/eventloop.h"
#include "backend/os/processtree.h"
#include "backend/os/signals.h"
#include "backend/os/text.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

// Logins that may be under way at a time: a host turns more away.
constexpr std::size_t mostLogins = 8;

// Asks all hosts, some at a time.
class Search {
  public:
    Search(RunningJob& running, const std::vector<std::string>& rsh, const std::string& path)
        : job(running),
          words(rsh),
          agent(path),
          signals(loop, {SIGCHLD, SIGINT},
                  [this](int number) { number == SIGCHLD ? collect() : giveUp(); }),
          patience(loop) {}
    ~Search() { std::signal(SIGINT, SIG_IGN); }

    void run() {
        sayWhoIsMissing();
        next();
        loop.run();
        if (given) throw std::runtime_error("the search for the tasks was given up");
    }

  private:
    RunningJob& job;
    const std::vector<std::string>& words;
    const std::string& agent;
    EventLoop loop;
    Signals signals;
    Timer patience;     // of the user
    bool given = false; // up
    std::set<std::string> missing;
    std::vector<std::unique_ptr<Launcher>> launchers;
    std::size_t ended = 0;

    // What is said of one may start another.
    void collect() {
        for (std::size_t i = 0; i < launchers.size(); ++i)
            launchers[i]->collect();
    }
    void next() {
        const auto& managers = job.managers();
        while (launchers.size() < managers.size() && launchers.size() < ended + mostLogins) {
            const auto& [host, name] = managers[launchers.size()];
            missing.insert(host);
            std::vector<std::string> argv = words;
            argv.insert(argv.end(),
                        {host, Launcher::quoted(agent), "--tasks-of", Launcher::quoted(name)});
            launchers.push_back(std::make_unique<Launcher>(
                loop, argv, "",
                Launcher::Handler{
                    [this, where = host](const std::string& line) { hear(where, line); },
                    [this, where = host](const std::string& how) { over(where, how); }}));
        }
        if (ended == managers.size()) loop.stop();
    }
    void giveUp() {
        given = true;
        loop.stop();
    }
    void sayWhoIsMissing() {
        patience.after(std::chrono::seconds(10), [this] {
            for (const std::string& host : missing)
                std::fprintf(stderr, "vex: no answer yet from host %s; Ctrl-C gives up\n",
                             host.c_str());
            sayWhoIsMissing();
        });
    }
    void hear(const std::string& host, const std::string& line) {
        std::istringstream text(line);
        std::string word, program;
        int rank = -1;
        pid_t pid = 0;
        if (text >> word >> rank >> pid && word == "task" && pid > 0 &&
            std::getline(text >> std::ws, program))
            job.addRemote({rank, pid, host, program});
        else
            std::fprintf(stderr, "vex: %s: %s\n", host.c_str(), line.c_str());
    }
    void over(const std::string& host, const std::string& how) {
        if (how != "ended with status 0")
            std::fprintf(stderr, "vex: the tasks of host %s are left out: %s %s\n", host.c_str(),
                         words[0].c_str(), how.c_str());
        missing.erase(host);
        ++ended;
        next();
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
    for (const Target& task : job.targets()) {
        out << "task " << task.rank << ' ' << task.pid << ' '
            << Text::baseName(ProcessTree::executableOf(task.pid)) << '\n';
    }
}
