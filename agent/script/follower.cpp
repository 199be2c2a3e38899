#include "agent/script/follower.h"

#include "agent/script/symbols.h"
#include "backend/os/descriptorpassing.h"
#include "backend/os/processtree.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <sched.h>
#include <string_view>
#include <sys/ptrace.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

// What the process that has asked is told: a number each, with a descriptor or without.
struct Message {
    enum Kind : int { DESCRIPTOR, MODEL, ENDED } kind;
    int value;
};

// What is left of a script, the other end of its pipe say, has this long to end.
constexpr auto patience = std::chrono::seconds(2);

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

bool tell(int link, Message::Kind kind, int value, const std::vector<int>& descriptors = {}) {
    const Message message{kind, value};
    std::array<char, sizeof message> bytes;
    std::memcpy(bytes.data(), &message, sizeof message);
    return DescriptorPassing::send(link, {bytes.data(), bytes.size()}, descriptors);
}

// As fork, but a debugger of this process neither hears of the child nor gets it.
pid_t forkUnseen() {
    return static_cast<pid_t>(
        ::syscall(SYS_clone, CLONE_UNTRACED | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
}

} // namespace

Follower::Found Follower::follow(const std::vector<std::string>& script) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == -1) fail("socketpair");
    Descriptor ours(ends[0]), theirs(ends[1]);
    const pid_t self = ::getpid();
    const pid_t between = forkUnseen();
    if (between == -1) fail("cannot start a process");
    if (between == 0) {
        ours.reset();
        // It is no child of the program that takes this process's place.
        if (::fork() == 0) {
            try {
                Follower follower(std::move(theirs), self);
                follower.start(script);
                follower.run();
            } catch (const std::exception& error) {
                std::fprintf(stderr, "vexscript: %s\n", error.what());
                std::_Exit(1); // the connection ends
            }
        }
        std::_Exit(0);
    }
    theirs.reset();
    while (::waitpid(between, nullptr, 0) == -1 && errno == EINTR) {
    }
    Found found;
    for (;;) {
        Message message{};
        std::array<char, sizeof message> bytes;
        auto [got, passed] = DescriptorPassing::receive(ours.get(), bytes.data(), bytes.size());
        if (got == -1 && errno == EINTR) continue;
        if (got != static_cast<ssize_t>(bytes.size())) {
            errno = EPERM;
            fail("cannot follow the script");
        }
        std::memcpy(&message, bytes.data(), bytes.size());
        if (message.kind == Message::DESCRIPTOR && !passed.empty()) {
            found.descriptors.emplace_back(message.value, std::move(passed[0]));
        } else if (message.kind == Message::MODEL) {
            found.model = message.value;
            return found;
        } else if (message.kind == Message::ENDED) {
            found.status = message.value;
            return found;
        }
    }
}

Follower::Follower(Descriptor toAsker, pid_t asking)
    : link(std::move(toAsker)), asker(static_cast<int>(::syscall(SYS_pidfd_open, asking, 0))) {
    if (!asker) fail("pidfd_open");
}

void Follower::start(const std::vector<std::string>& script) {
    int gate[2];
    if (::pipe(gate) == -1) fail("pipe");
    first = ::fork();
    if (first == -1) fail("fork");
    if (first == 0) {
        ::close(gate[1]);
        char byte = 0;
        // Until it is followed.
        while (::read(gate[0], &byte, 1) == -1 && errno == EINTR) {
        }
        ::close(gate[0]);
        std::vector<char*> words;
        for (const std::string& word : script)
            words.push_back(const_cast<char*>(word.c_str()));
        words.push_back(nullptr);
        ::execvp(words[0], words.data());
        ::perror(words[0]);
        std::_Exit(127);
    }
    ::close(gate[0]);
    constexpr unsigned long options = PTRACE_O_EXITKILL | PTRACE_O_TRACEEXEC | PTRACE_O_TRACEFORK |
                                      PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE;
    if (::ptrace(PTRACE_SEIZE, first, nullptr, options) == -1) {
        ::kill(first, SIGKILL);
        fail("ptrace");
    }
    ::close(gate[1]);
}

void Follower::run() {
    sigset_t heard;
    ::sigemptyset(&heard);
    ::sigaddset(&heard, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &heard, nullptr);
    // The keys of the terminal are for the script.
    for (const int number : {SIGINT, SIGQUIT, SIGTSTP, SIGTTOU, SIGHUP, SIGPIPE})
        ::signal(number, SIG_IGN);
    const Descriptor signals(::signalfd(-1, &heard, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals) fail("signalfd");
    while (collect()) {
        pollfd ready[] = {{signals.get(), POLLIN, 0}, {asker.get(), POLLIN, 0}};
        if (::poll(ready, 2, -1) == -1) continue;
        signalfd_siginfo what;
        while (::read(signals.get(), &what, sizeof what) > 0) {
        }
        if (ready[1].revents != 0) return end();
    }
    if (model == -1) tell(link.get(), Message::ENDED, status);
}

// False when nobody is left.
bool Follower::collect() {
    for (int how = 0;;) {
        const pid_t id = ::waitpid(-1, &how, __WALL | WNOHANG);
        if (id == 0) return true;
        if (id == -1) return errno == EINTR;
        if (WIFSTOPPED(how))
            stopped(id, how);
        else if (id == first)
            status = how;
    }
}

void Follower::stopped(pid_t id, int how) {
    const int event = how >> 16, number = WSTOPSIG(how);
    if (event == PTRACE_EVENT_EXEC && model == -1 && canBeDebugged(ProcessTree::executableOf(id)))
        return hand(id);
    const bool groupStop = event == PTRACE_EVENT_STOP && number != SIGTRAP;
    const long signal = event == 0 ? number : 0;
    ::ptrace(groupStop ? PTRACE_LISTEN : PTRACE_CONT, id, nullptr, groupStop ? 0 : signal);
}

// It keeps still from here on.
void Follower::hand(pid_t id) {
    model = id;
    const Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, id, 0)));
    std::error_code fault;
    for (std::filesystem::directory_iterator at("/proc/" + std::to_string(id) + "/fd", fault), last;
         !fault && at != last; at.increment(fault)) {
        const int number = std::atoi(at->path().filename().c_str());
        const Descriptor copy(
            static_cast<int>(::syscall(SYS_pidfd_getfd, process.get(), number, 0)));
        // Containers may forbid it. Without its output a program would write into other files.
        if (!copy) fail("cannot take over the script's open files (pidfd_getfd)");
        tell(link.get(), Message::DESCRIPTOR, number, {copy.get()});
    }
    tell(link.get(), Message::MODEL, id);
    link.reset();
}

void Follower::end() {
    // From the model up to the script; a process that is not followed is a stranger.
    std::vector<pid_t> script;
    const std::string self = std::to_string(::getpid());
    for (pid_t id = model == -1 ? first : model; ProcessTree::statusField(id, "TracerPid") == self;
         id = ProcessTree::parentOf(id))
        script.push_back(id);
    for (auto each = script.rbegin(); each != script.rend(); ++each)
        ::kill(*each, SIGKILL);
    const auto until = std::chrono::steady_clock::now() + patience;
    while (collect() && std::chrono::steady_clock::now() < until)
        ::poll(nullptr, 0, 20);
}
