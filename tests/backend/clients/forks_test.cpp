#include "backend/clients/forks.h"
#include "backend/os/tracing.h"
#include "tests/support/testing.h"

#include <csignal>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

// A process, and the child that it has forked, both held by this one in the place of a debugger.
struct Family {
    pid_t parent, child = 0;

    // The child becomes another program, or waits.
    explicit Family(bool executes) : parent(::fork()) {
        if (parent == 0) {
            ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
            ::raise(SIGSTOP);
            if (::fork() == 0 && executes) ::execlp("sleep", "sleep", "60", nullptr);
            for (;;)
                ::pause();
        }
        ::waitpid(parent, nullptr, 0);
        ::ptrace(PTRACE_SETOPTIONS, parent, nullptr, PTRACE_O_TRACEFORK | PTRACE_O_EXITKILL);
        ::ptrace(PTRACE_CONT, parent, nullptr, nullptr);
        ::waitpid(parent, nullptr, 0);
        unsigned long forked = 0;
        ::ptrace(PTRACE_GETEVENTMSG, parent, nullptr, &forked);
        child = static_cast<pid_t>(forked);
        ::waitpid(child, nullptr, __WALL);
        ::ptrace(PTRACE_CONT, parent, nullptr, nullptr);
    }
    ~Family() {
        for (const pid_t each : {child, parent})
            ::kill(each, SIGKILL);
        ::waitpid(parent, nullptr, 0);
    }
    void letGo() const { ::ptrace(PTRACE_DETACH, child, nullptr, nullptr); }
};

struct Owner : Forks::Owner {
    pid_t adopted = 0;
    std::string told;

    int adopt(const Forks::Child& child) override {
        adopted = child.pid;
        return 7;
    }
    void tellOfForks(int, const std::string& text) override { told = text; }
};

TEST(Forks, AChildThatIsHeldForLongIsLookedAtAgain) {
    if (!Tracing::works()) GTEST_SKIP() << "no process may be traced here";
    const struct {
        Clock::duration held;
        bool executes, adopted;
    } cases[] = {{0ms, false, true}, {400ms, false, true}, {400ms, true, false}};
    for (const auto& [held, executes, adopted] : cases) {
        const Family family(executes);
        EventLoop loop;
        Owner owner;
        Forks forks(loop, owner, "child ", 5, ::getpid());
        Timer hold(loop);
        hold.after(held, [&family] { family.letGo(); });
        forks.heard(3, ::getpid(), "child " + std::to_string(family.child) + "]\n");
        // Until there is no further look.
        loop.run();
        EXPECT_EQ(owner.adopted, adopted ? family.child : 0) << executes << owner.told;
    }
}

} // namespace
