// What libvexmpi.so costs a call: calls of MPI that come back at once, in processes with the
// library and without it by turns. Prints the least of each, in nanoseconds of processor time.
//
//   bench_mpitrace.mpich LIBRARY

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mpi.h>
#include <string>

constexpr int calls = 2000000, runs = 7;

static double now() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

template <class Call>
static double costOf(Call call) {
    for (int i = 0; i < calls / 10; ++i)
        call();
    const double begin = now();
    for (int i = 0; i < calls; ++i)
        call();
    return (now() - begin) / calls;
}

static int measure() {
    MPI_Init(nullptr, nullptr);
    int data = 0;
    const double receive = costOf(
        [&] { MPI_Recv(&data, 1, MPI_INT, MPI_PROC_NULL, 0, MPI_COMM_WORLD, MPI_STATUS_IGNORE); });
    const double request = costOf([&] {
        MPI_Request made = MPI_REQUEST_NULL;
        MPI_Irecv(&data, 1, MPI_INT, MPI_PROC_NULL, 0, MPI_COMM_WORLD, &made);
        MPI_Wait(&made, MPI_STATUS_IGNORE);
    });
    const double barrier = costOf([] { MPI_Barrier(MPI_COMM_SELF); });
    std::printf("%.2f %.2f %.2f\n", receive, request, barrier);
    MPI_Finalize();
    return 0;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s LIBRARY\n", argv[0]);
        return 2;
    }
    if (std::strcmp(argv[1], "measure") == 0) return measure();
    double least[2][3];
    for (int run = 0; run < 2 * runs; ++run) {
        const bool with = run % 2 == 1;
        const std::string command =
            (with ? "LD_PRELOAD=" + std::string(argv[1]) + " " : "") + argv[0] + " measure";
        FILE* const from = ::popen(command.c_str(), "r");
        double cost[3];
        if (!from || std::fscanf(from, "%lf %lf %lf", &cost[0], &cost[1], &cost[2]) != 3) return 1;
        ::pclose(from);
        for (int i = 0; i < 3; ++i) {
            if (run < 2 || cost[i] < least[with][i]) least[with][i] = cost[i];
        }
    }
    const char* const names[] = {"MPI_Recv", "MPI_Irecv, MPI_Wait", "MPI_Barrier"};
    const int counts[] = {1, 2, 1};
    for (int i = 0; i < 3; ++i)
        std::printf("%-21s %6.1f ns, with the library %6.1f ns: %.1f ns a call\n", names[i],
                    least[0][i], least[1][i], (least[1][i] - least[0][i]) / counts[i]);
    return 0;
}
