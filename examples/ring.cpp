// A token goes around all tasks of an MPI job, round after round. In one round a task does not pass
// it on: it computes for ever, and all others wait. With --healthy all rounds come to their end,
// with --abort the task ends the job (MPI_Abort) instead.
//
//   mpicxx -g ring.cpp -o ring && mpirun -np 4 ./ring

#include <cstdio>
#include <cstring>
#include <mpi.h>

constexpr int rounds = 40;
constexpr int critical_round = 20;

// Names that a debugger finds from every frame.
int rank = 0;
int ntasks = 1;
int round_no = 0;
bool aborts = false;
volatile bool lost = true;

// Never comes to an end while the token is lost.
static int search(int token) {
    if (aborts) MPI_Abort(MPI_COMM_WORLD, 7);
    while (lost)
        ++token;
    return token;
}

static int receive() {
    int token = 0;
    MPI_Recv(&token, 1, MPI_INT, (rank + ntasks - 1) % ntasks, 0, MPI_COMM_WORLD,
             MPI_STATUS_IGNORE);
    return token;
}

static void pass(int token) {
    MPI_Send(&token, 1, MPI_INT, (rank + 1) % ntasks, 0, MPI_COMM_WORLD);
}

static void go_round(bool healthy) {
    if (rank == 0) pass(round_no);
    int token = receive();
    if (!healthy && round_no == critical_round && rank == ntasks / 2) token = search(token);
    if (rank != 0) pass(token + 1);
}

int main(int argc, char** argv) {
    MPI_Init(&argc, &argv);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &ntasks);
    const bool healthy = argc > 1 && std::strcmp(argv[1], "--healthy") == 0;
    aborts = argc > 1 && std::strcmp(argv[1], "--abort") == 0;
    for (round_no = 0; ntasks > 1 && round_no < rounds; ++round_no)
        go_round(healthy);
    std::printf("rank %d of %d is done\n", rank, ntasks);
    MPI_Finalize();
    return 0;
}
