// A simulation: each task exchanges the borders of its slab with its neighbours, advances the slab
// by two threads, and agrees with all tasks on the length of the next step. Task n does what the
// argument n + 1 names: it crashes "early" or "late", which is just before and just after
// MPI_Init, "asserts" there what does not hold, or one "thread" of it searches for ever.

#include <cassert>
#include <cstdlib>
#include <cstring>
#include <mpi.h>

constexpr int cells = 32;

static const char* fault = "";
static int rank = 0, tasks = 1;
static double slab[cells + 2], length = 1;
static volatile bool lost = true;
static double* volatile nowhere = nullptr;

static bool is_to(const char* name) { return std::strcmp(fault, name) == 0; }

static void search() {
    while (lost) {
    }
}

static void write_beyond() { *nowhere = 1; }
static void check(double cell) { assert(cell > 0); }

static void exchange() {
    const int left = (rank + tasks - 1) % tasks, right = (rank + 1) % tasks;
    MPI_Request requests[4];
    MPI_Irecv(&slab[0], 1, MPI_DOUBLE, left, 1, MPI_COMM_WORLD, &requests[0]);
    MPI_Irecv(&slab[cells + 1], 1, MPI_DOUBLE, right, 2, MPI_COMM_WORLD, &requests[1]);
    MPI_Isend(&slab[1], 1, MPI_DOUBLE, left, 2, MPI_COMM_WORLD, &requests[2]);
    MPI_Isend(&slab[cells], 1, MPI_DOUBLE, right, 1, MPI_COMM_WORLD, &requests[3]);
    MPI_Waitall(4, requests, MPI_STATUSES_IGNORE);
}

static void advance(bool searches) {
#pragma omp parallel for num_threads(2)
    for (int i = 1; i <= cells; ++i) {
        slab[i] += length;
        if (searches && i == cells) search();
    }
}

static void agree() {
    double shortest = 0;
    MPI_Allreduce(&length, &shortest, 1, MPI_DOUBLE, MPI_MIN, MPI_COMM_WORLD);
    length = shortest;
}

int main(int argc, char** argv) {
    const char* const task = std::getenv("VEX_TASK");
    if (const int given = task ? std::atoi(task) + 1 : argc; given < argc) fault = argv[given];
    if (is_to("early")) write_beyond();
    MPI_Init(&argc, &argv);
    if (is_to("late")) write_beyond();
    if (is_to("asserts")) check(slab[0]);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &tasks);
    for (int step = 0; step < 10; ++step) {
        exchange();
        advance(step == 3 && is_to("thread"));
        agree();
    }
    MPI_Finalize();
    return 0;
}
