// Forks: a shell's command, a child that becomes another program, and one that goes on and forks a
// child of its own, each until its `hold` is set to 0. With an argument it waits for that first.

#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

volatile int hold = 1;

namespace {

void rest() {
    while (hold)
        ::usleep(1000);
}

// Gives the exit status of a child that waits, and that forks this many generations more.
int generation(int more) {
    const pid_t child = ::fork();
    if (child == 0) {
        hold = 1;
        rest();
        std::_Exit(more > 0 ? generation(more - 1) + 1 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

} // namespace

int main(int argc, char**) {
    if (argc > 1) rest();
    if (std::system("true") != 0) return 1;
    const pid_t other = ::fork();
    if (other == 0) {
        ::execlp("sleep", "sleep", "1", nullptr);
        std::_Exit(1);
    }
    std::printf("generations: %d\n", generation(1));
    std::fflush(stdout);
    ::waitpid(other, nullptr, 0);
    for (;;)
        ::pause();
}
