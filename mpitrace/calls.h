#pragma once

/// The calls of MPI that are recorded, as a table for the preprocessor: one line a call, with its
/// name, the same in small letters, how many arguments it has in C, and where among them, counted
/// from 0, stands what tells for whom it waits.
///
/// Each of these is expanded once for each line:
///   INIT(Name, name, count)                                the start of MPI
///   SEND(Name, name, count, peer, tag, comm)               blocks until a message is taken
///   RECV(Name, name, count, peer, tag, comm)               blocks until a message has come
///   BOTH(Name, name, count, to, tag, from, tag, comm)      the two at once
///   ISEND, IRECV(Name, name, count, peer, tag, comm, request)   what a request is for
///   WAIT(Name, name, count, number, requests)              for all; number -1: for one request
///   WAITANY(Name, name, count, number, requests)           for any
///   COLL(Name, name, count, comm)                          all members of the communicator call it
///   ICOLL(Name, name, count, comm, request)                the same with a request
///   NEWCOMM(Name, name, count, comm, result)               the same, and makes a communicator
///   FREECOMM(Name, name, count, comm)                      the same, and ends it
///   WORLD(Name, name, count)                               all tasks call it
///   OTHER(Name, name, count)                               for whom it waits is not known
/// MPI_File_open has an argument more: in Fortran, the length of the file's name.
#define VEX_MPI_CALLS(INIT, SEND, RECV, BOTH, ISEND, IRECV, WAIT, WAITANY, COLL, ICOLL, NEWCOMM,   \
                      FREECOMM, WORLD, OTHER)                                                      \
    INIT(Init, init, 2)                                                                            \
    INIT(Init_thread, init_thread, 4)                                                              \
    WORLD(Finalize, finalize, 0)                                                                   \
    SEND(Send, send, 6, 3, 4, 5)                                                                   \
    SEND(Ssend, ssend, 6, 3, 4, 5)                                                                 \
    SEND(Rsend, rsend, 6, 3, 4, 5)                                                                 \
    SEND(Bsend, bsend, 6, 3, 4, 5)                                                                 \
    RECV(Recv, recv, 7, 3, 4, 5)                                                                   \
    RECV(Probe, probe, 4, 0, 1, 2)                                                                 \
    RECV(Mprobe, mprobe, 5, 0, 1, 2)                                                               \
    BOTH(Sendrecv, sendrecv, 12, 3, 4, 8, 9, 10)                                                   \
    BOTH(Sendrecv_replace, sendrecv_replace, 9, 3, 4, 5, 6, 7)                                     \
    ISEND(Isend, isend, 7, 3, 4, 5, 6)                                                             \
    ISEND(Issend, issend, 7, 3, 4, 5, 6)                                                           \
    ISEND(Irsend, irsend, 7, 3, 4, 5, 6)                                                           \
    ISEND(Ibsend, ibsend, 7, 3, 4, 5, 6)                                                           \
    ISEND(Send_init, send_init, 7, 3, 4, 5, 6)                                                     \
    ISEND(Ssend_init, ssend_init, 7, 3, 4, 5, 6)                                                   \
    ISEND(Rsend_init, rsend_init, 7, 3, 4, 5, 6)                                                   \
    IRECV(Irecv, irecv, 7, 3, 4, 5, 6)                                                             \
    IRECV(Recv_init, recv_init, 7, 3, 4, 5, 6)                                                     \
    WAIT(Wait, wait, 2, -1, 0)                                                                     \
    WAIT(Waitall, waitall, 3, 0, 1)                                                                \
    WAITANY(Waitany, waitany, 4, 0, 1)                                                             \
    WAITANY(Waitsome, waitsome, 5, 0, 1)                                                           \
    COLL(Barrier, barrier, 1, 0)                                                                   \
    COLL(Bcast, bcast, 5, 4)                                                                       \
    COLL(Reduce, reduce, 7, 6)                                                                     \
    COLL(Allreduce, allreduce, 6, 5)                                                               \
    COLL(Gather, gather, 8, 7)                                                                     \
    COLL(Gatherv, gatherv, 9, 8)                                                                   \
    COLL(Scatter, scatter, 8, 7)                                                                   \
    COLL(Scatterv, scatterv, 9, 8)                                                                 \
    COLL(Allgather, allgather, 7, 6)                                                               \
    COLL(Allgatherv, allgatherv, 8, 7)                                                             \
    COLL(Alltoall, alltoall, 7, 6)                                                                 \
    COLL(Alltoallv, alltoallv, 9, 8)                                                               \
    COLL(Alltoallw, alltoallw, 9, 8)                                                               \
    COLL(Reduce_scatter, reduce_scatter, 6, 5)                                                     \
    COLL(Reduce_scatter_block, reduce_scatter_block, 6, 5)                                         \
    COLL(Scan, scan, 6, 5)                                                                         \
    COLL(Exscan, exscan, 6, 5)                                                                     \
    ICOLL(Ibarrier, ibarrier, 2, 0, 1)                                                             \
    ICOLL(Ibcast, ibcast, 6, 4, 5)                                                                 \
    ICOLL(Ireduce, ireduce, 8, 6, 7)                                                               \
    ICOLL(Iallreduce, iallreduce, 7, 5, 6)                                                         \
    ICOLL(Igather, igather, 9, 7, 8)                                                               \
    ICOLL(Igatherv, igatherv, 10, 8, 9)                                                            \
    ICOLL(Iscatter, iscatter, 9, 7, 8)                                                             \
    ICOLL(Iscatterv, iscatterv, 10, 8, 9)                                                          \
    ICOLL(Iallgather, iallgather, 8, 6, 7)                                                         \
    ICOLL(Iallgatherv, iallgatherv, 9, 7, 8)                                                       \
    ICOLL(Ialltoall, ialltoall, 8, 6, 7)                                                           \
    ICOLL(Ialltoallv, ialltoallv, 10, 8, 9)                                                        \
    ICOLL(Iscan, iscan, 7, 5, 6)                                                                   \
    NEWCOMM(Comm_dup, comm_dup, 2, 0, 1)                                                           \
    NEWCOMM(Comm_dup_with_info, comm_dup_with_info, 3, 0, 2)                                       \
    NEWCOMM(Comm_split, comm_split, 4, 0, 3)                                                       \
    NEWCOMM(Comm_split_type, comm_split_type, 5, 0, 4)                                             \
    NEWCOMM(Comm_create, comm_create, 3, 0, 2)                                                     \
    NEWCOMM(Cart_create, cart_create, 6, 0, 5)                                                     \
    NEWCOMM(Cart_sub, cart_sub, 3, 0, 2)                                                           \
    FREECOMM(Comm_free, comm_free, 1, 0)                                                           \
    FREECOMM(Comm_disconnect, comm_disconnect, 1, 0)                                               \
    OTHER(Comm_create_group, comm_create_group, 5)                                                 \
    OTHER(Intercomm_create, intercomm_create, 6)                                                   \
    OTHER(Win_create, win_create, 6)                                                               \
    OTHER(Win_fence, win_fence, 2)                                                                 \
    OTHER(Win_start, win_start, 3)                                                                 \
    OTHER(Win_complete, win_complete, 1)                                                           \
    OTHER(Win_wait, win_wait, 1)                                                                   \
    OTHER(Win_lock, win_lock, 4)                                                                   \
    OTHER(Win_unlock, win_unlock, 2)                                                               \
    OTHER(Win_free, win_free, 1)                                                                   \
    OTHER(File_open, file_open, 6)                                                                 \
    OTHER(File_close, file_close, 1)                                                               \
    OTHER(File_read_all, file_read_all, 5)                                                         \
    OTHER(File_write_all, file_write_all, 5)                                                       \
    OTHER(File_read_at_all, file_read_at_all, 6)                                                   \
    OTHER(File_write_at_all, file_write_at_all, 6)
