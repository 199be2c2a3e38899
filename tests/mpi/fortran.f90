! The last task does what the argument names, while the others wait for it at a barrier.
program fortran
  use mpi
  implicit none
  integer :: rank, tasks, error
  character(len=16) :: fault
  integer, pointer :: nowhere

  nullify(nowhere)
  call get_command_argument(1, fault)
  call MPI_Init(error)
  call MPI_Comm_rank(MPI_COMM_WORLD, rank, error)
  call MPI_Comm_size(MPI_COMM_WORLD, tasks, error)
  if (rank == tasks - 1) call advance(fault == 'crashes')
  call MPI_Barrier(MPI_COMM_WORLD, error)
  call MPI_Finalize(error)
contains
  subroutine advance(crashes)
    logical, intent(in) :: crashes
    integer :: i
    i = 0
    if (crashes) nowhere = i
    do while (i >= 0)
      i = mod(i + 1, 100)
    end do
  end subroutine
end program
