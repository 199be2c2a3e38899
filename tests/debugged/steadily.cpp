// Counts steadily until it is ended: something to attach to. Each line of its output is a count.
// Arguments: "threads" lets a second thread count, too; "deaf" blocks SIGINT.

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <thread>

namespace {

std::atomic<long> steps = 0;

[[gnu::noinline]] void step() {
    ++steps;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
}

[[noreturn]] void walk() {
    for (;;)
        step();
}

} // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "deaf") == 0) {
            sigset_t mask;
            sigemptyset(&mask);
            sigaddset(&mask, SIGINT);
            pthread_sigmask(SIG_BLOCK, &mask, nullptr);
        } else if (std::strcmp(argv[i], "threads") == 0) {
            std::thread(walk).detach();
        }
    }
    for (;;) {
        step();
        std::printf("%ld\n", steps.load());
        std::fflush(stdout);
    }
}
