# vex_mpi_program(<name> <source> [<option of the compiler>...]): <name>.openmpi and <name>.mpich from one
# source in C++ or Fortran, for each MPI that the system has.
function(vex_mpi_program name source)
  find_program(VEX_FORTRAN gfortran) # the wrappers are there without it
  mark_as_advanced(VEX_FORTRAN)
  foreach(mpi openmpi mpich)
    set(wrapper mpicxx)
    if(source MATCHES "\\.f90$")
      set(wrapper mpif90)
    endif()
    find_program(VEX_${wrapper}_${mpi} ${wrapper}.${mpi})
    mark_as_advanced(VEX_${wrapper}_${mpi})
    if(VEX_${wrapper}_${mpi} AND (VEX_FORTRAN OR wrapper STREQUAL "mpicxx"))
      set(program ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name}.${mpi})
      add_custom_command(
        OUTPUT ${program}
        COMMAND ${VEX_${wrapper}_${mpi}} ${ARGN} -o ${program} ${CMAKE_CURRENT_SOURCE_DIR}/${source}
        DEPENDS ${source}
        VERBATIM)
      add_custom_target(${name}.${mpi} ALL DEPENDS ${program})
    endif()
  endforeach()
endfunction()
