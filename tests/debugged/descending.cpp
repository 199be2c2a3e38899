// Task 2 is lost in one function, the others call deeper and deeper, so that their stacks are never
// the same for long. With "abort" task 0 ends its job in the first call.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

// In the place of a library's.
extern "C" [[gnu::noinline]] int MPI_Abort(int /*communicator*/, int code) {
    std::printf("the job ends\n");
    std::exit(code);
}

static bool aborts = false;
static volatile long turns = 0;

[[gnu::noinline]] static void search() {
    for (;;)
        turns = turns + 1;
}

[[gnu::noinline]] static int descend(int depth) {
    if (aborts) return MPI_Abort(0, 7);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return depth == 400 ? 0 : 1 + descend(depth + 1);
}

int main(int argc, char** argv) {
    const char* const task = std::getenv("VEX_TASK");
    const int number = task ? std::atoi(task) : 0;
    aborts = argc > 1 && std::strcmp(argv[1], "abort") == 0 && number == 0;
    std::printf("task %d runs\n", number);
    std::fflush(stdout);
    if (number == 2) search();
    for (;;)
        descend(0);
}
