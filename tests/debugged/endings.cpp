// Task 1 ends as its argument says, the others with status 0: "status" with 3; "usr1" after signals
// that it handles, "storm" after very many of them, "pages" after as many faults in pages that
// their handler opens; "suspended" after those by which a batch system suspends and resumes it; by
// a null pointer whose handler "recovers" from it, "reports" it and ends with 9, or lets it happen
// "again".

#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <sys/mman.h>
#include <unistd.h>

namespace {

sigjmp_buf way_out;
volatile std::sig_atomic_t signals = 0;
int* volatile nothing = nullptr;

void count(int) { signals = signals + 1; }
void recover(int) { siglongjmp(way_out, 1); }
void report(int) { _exit(9); }
void open_page(int, siginfo_t* what, void*) { mprotect(what->si_addr, 1, PROT_READ | PROT_WRITE); }
void again(int number) { std::signal(number, SIG_DFL); }

[[gnu::noinline]] int stumble() { return *nothing; }

} // namespace

int main(int, char** argv) {
    const char* const task = std::getenv("VEX_TASK");
    if (!task || std::strcmp(task, "1") != 0) return 0;
    const char* const way = argv[1];
    if (std::strcmp(way, "status") == 0) return 3;
    if (std::strcmp(way, "suspended") == 0) {
        for (const int number : {SIGTSTP, SIGSTOP, SIGCONT})
            std::raise(number);
        return 0;
    }
    constexpr int many = 3000;
    if (std::strcmp(way, "pages") == 0) {
        const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        char* const pages = static_cast<char*>(
            mmap(nullptr, many * size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        struct sigaction action {};
        action.sa_sigaction = open_page;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGSEGV, &action, nullptr);
        for (int i = 0; i < many; ++i)
            pages[static_cast<std::size_t>(i) * size] = 1;
        return 0;
    }
    std::signal(SIGUSR1, count);
    for (int i = 0; i < many && std::strcmp(way, "storm") == 0; ++i)
        std::raise(SIGUSR1);
    if (std::strcmp(way, "storm") == 0) return signals == many ? 0 : 1;
    if (std::strcmp(way, "usr1") == 0) {
        for (int i = 0; i < 3; ++i)
            std::raise(SIGUSR1);
        std::printf("%d signals\n", static_cast<int>(signals));
        return 0;
    }
    std::signal(SIGSEGV, std::strcmp(way, "recovers") == 0  ? recover
                         : std::strcmp(way, "reports") == 0 ? report
                                                            : again);
    return sigsetjmp(way_out, 1) == 0 ? stumble() : 0;
}
