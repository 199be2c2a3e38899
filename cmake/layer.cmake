# What most sources include of the standard library is read once for all layers; each source includes
# what it uses all the same, so that CMAKE_DISABLE_PRECOMPILE_HEADERS builds it, too.
set(VEX_STANDARD_HEADERS
    <algorithm> <chrono> <functional> <map> <memory> <optional> <set> <string> <string_view> <utility> <vector>)

# vex_layer(<name> <what it stands on...> [EXCEPT <source...>]): a static library vex_<name> of this
# folder's sources but main.cpp, so that a call to what is no layer below does not link.
function(vex_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 layer "" "" "EXCEPT")
  file(GLOB sources CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} *.cpp)
  list(REMOVE_ITEM sources main.cpp ${layer_EXCEPT})
  add_library(vex_${name} STATIC ${sources})
  target_link_libraries(vex_${name} PUBLIC vex_flags ${layer_UNPARSED_ARGUMENTS})
  if(name STREQUAL common)
    target_precompile_headers(vex_common PRIVATE ${VEX_STANDARD_HEADERS})
  else()
    target_precompile_headers(vex_${name} REUSE_FROM vex_common)
  endif()
endfunction()
