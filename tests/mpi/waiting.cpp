// An MPI program of three tasks or more that comes to a stand in the way that its argument names.

#include <cstdio>
#include <cstring>
#include <mpi.h>
#include <unistd.h>

static int rank = 0, tasks = 0, data[2];

static void compute() {
    for (;;)
        ::sleep(1);
}

// Each waits for a message of the next one, which sends none.
static void circle() {
    MPI_Recv(data, 1, MPI_INT, (rank + 1) % tasks, 3, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
}

// The last task does not come to the barrier of its half, whose ranks are others than the world's.
static void missing() {
    MPI_Comm half = MPI_COMM_NULL;
    MPI_Comm_split(MPI_COMM_WORLD, rank % 2, rank, &half);
    if (rank == tasks - 1) compute();
    MPI_Barrier(half);
    MPI_Barrier(MPI_COMM_WORLD);
}

// All but the first wait for one of their requests, to the one before in a communicator in which
// the ranks run backwards.
static void requests() {
    MPI_Comm backwards = MPI_COMM_NULL;
    MPI_Comm_split(MPI_COMM_WORLD, 0, -rank, &backwards);
    if (rank == 0) compute();
    MPI_Request request = MPI_REQUEST_NULL;
    MPI_Irecv(data, 1, MPI_INT, tasks - rank, 5, backwards, &request);
    MPI_Wait(&request, MPI_STATUS_IGNORE);
}

static void tell(MPI_Comm* /*communicator*/, int* /*error*/, ...) {
    std::fprintf(stderr, "told\n");
}

// The last task makes an error that it handles itself, and then one that it does not.
static void wrong() {
    if (rank == tasks - 1) {
        MPI_Errhandler handler = MPI_ERRHANDLER_NULL;
        MPI_Comm_create_errhandler(tell, &handler);
        MPI_Comm_set_errhandler(MPI_COMM_WORLD, handler);
        MPI_Send(data, 1, MPI_INT, tasks, 0, MPI_COMM_WORLD);
        MPI_Comm_set_errhandler(MPI_COMM_WORLD, MPI_ERRORS_ARE_FATAL);
        MPI_Send(data, 1, MPI_INT, tasks, 0, MPI_COMM_WORLD);
    }
    MPI_Barrier(MPI_COMM_WORLD);
}

// Messages go around, for ever.
static void healthy() {
    for (;;) {
        MPI_Sendrecv(data, 1, MPI_INT, (rank + 1) % tasks, 1, data + 1, 1, MPI_INT,
                     (rank + tasks - 1) % tasks, 1, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
        ::usleep(1000);
    }
}

int main(int argc, char** argv) {
    MPI_Init(&argc, &argv);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &tasks);
    const char* const how = argc > 1 ? argv[1] : "";
    if (std::strcmp(how, "circle") == 0) circle();
    if (std::strcmp(how, "missing") == 0) missing();
    if (std::strcmp(how, "requests") == 0) requests();
    if (std::strcmp(how, "wrong") == 0) wrong();
    if (std::strcmp(how, "healthy") == 0) healthy();
    MPI_Finalize();
    return 0;
}
