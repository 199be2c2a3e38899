# vex_mpi_program(<name> <source> [<option of the compiler>...]): <name>.openmpi and <name>.mpich from one
# source, for each MPI that the system has.
function(vex_mpi_program name source)
  foreach(mpi openmpi mpich)
    find_program(MPICXX_${mpi} mpicxx.${mpi})
    mark_as_advanced(MPICXX_${mpi})
    if(MPICXX_${mpi})
      set(program ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${name}.${mpi})
      add_custom_command(
        OUTPUT ${program}
        COMMAND ${MPICXX_${mpi}} ${ARGN} -o ${program} ${CMAKE_CURRENT_SOURCE_DIR}/${source}
        DEPENDS ${source}
        VERBATIM)
      add_custom_target(${name}.${mpi} ALL DEPENDS ${program})
    endif()
  endforeach()
endfunction()
