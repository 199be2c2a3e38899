# vex_layer(<name> <what it stands on...> [EXCEPT <source...>]): a static library vex_<name> of this
# folder's sources but main.cpp, so that a call to what is no layer below does not link.
function(vex_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 layer "" "" "EXCEPT")
  file(GLOB sources CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} *.cpp)
  list(REMOVE_ITEM sources main.cpp ${layer_EXCEPT})
  add_library(vex_${name} STATIC ${sources})
  target_link_libraries(vex_${name} PUBLIC vex_flags ${layer_UNPARSED_ARGUMENTS})
endfunction()
