! Task 2 does what the argument names, while the others come to a barrier.
program faulty
  use mpi
  implicit none
  integer :: rank, error
  character(len=16) :: fault
  real, pointer :: nowhere(:)

  nullify(nowhere)
  call get_command_argument(1, fault)
  call MPI_Init(error)
  call MPI_Comm_rank(MPI_COMM_WORLD, rank, error)
  if (rank == 2) call advance()
  call MPI_Barrier(MPI_COMM_WORLD, error)
  call MPI_Finalize(error)
contains
  subroutine advance()
    integer :: i
    i = 0
    do while (i >= 0 .and. fault == 'spins')
      i = mod(i + 1, 100)
    end do
    if (fault == 'crashes') nowhere(rank) = 1.0
    if (fault == 'aborts') call MPI_Abort(MPI_COMM_WORLD, 7, error)
  end subroutine
end program
