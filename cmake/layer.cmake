# vex_layer(<name> <what it stands on...>): a static library vex_<name> of this folder's sources but
# main.cpp, so that a call to what is no layer below does not link.
function(vex_layer name)
  file(GLOB sources CONFIGURE_DEPENDS *.cpp)
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  add_library(vex_${name} STATIC ${sources})
  target_link_libraries(vex_${name} PUBLIC vex_flags ${ARGN})
endfunction()
