# The library is built as one static library per layer. A layer sees the
# headers of the layers it links and no others: each layer's include folder
# holds links to its own sources only, and a layer gets the folders of what
# it links through their usage requirements. So an include that runs up the
# layer order fails to compile, and a call up the order fails to link.

set(ORBELLE_LAYER_INCLUDE ${CMAKE_BINARY_DIR}/layer-include)

# Makes the given paths (folders or single headers, relative to the source
# root, or to BASE when given) visible to target and to everything that links
# it, under those relative names ("data/cdr.h").
function(orbelle_expose target scope)
  cmake_parse_arguments(E "" "BASE" "" ${ARGN})
  if(NOT E_BASE)
    set(E_BASE ${CMAKE_SOURCE_DIR})
  endif()
  set(dir ${ORBELLE_LAYER_INCLUDE}/${target})
  foreach(path ${E_UNPARSED_ARGUMENTS})
    get_filename_component(parent ${dir}/${path} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    file(CREATE_LINK ${E_BASE}/${path} ${dir}/${path} SYMBOLIC)
  endforeach()
  target_include_directories(${target} ${scope} ${dir})
endfunction()

# orbelle_layer(<name> SOURCES <files> USES <targets>) builds orbelle_<name>
# from files of the current folder; USES names every layer, stand-in or
# system library that its sources include or call.
function(orbelle_layer name)
  cmake_parse_arguments(L "" "" "SOURCES;USES" ${ARGN})
  add_library(orbelle_${name} STATIC ${L_SOURCES})
  file(RELATIVE_PATH folder ${CMAKE_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  orbelle_expose(orbelle_${name} PUBLIC ${folder})
  target_link_libraries(orbelle_${name} PUBLIC ${L_USES})
endfunction()

# The limits against hostile input and the TypeCode kinds
# (include/orbelle/limits.h, kinds.h), which every layer may use.
add_library(orbelle_definitions INTERFACE)
orbelle_expose(orbelle_definitions INTERFACE BASE ${CMAKE_SOURCE_DIR}/include
               orbelle/limits.h orbelle/kinds.h)

# The host's records (include/orbelle), which every layer above data may use.
add_library(orbelle_records INTERFACE)
target_include_directories(orbelle_records INTERFACE ${CMAKE_SOURCE_DIR}/include)
