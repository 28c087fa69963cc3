# Agent side library stand-ins, loaded by the library at run time from
# $ZANTH_HOME/shlib/iiop/. A test sets ZANTH_HOME to <build>/zanth; the tree
# <build>/zanth-broken holds libraries of the same names that lack the lookup
# function.
set(_agent_dir ${CMAKE_CURRENT_LIST_DIR})

function(orbelle_agent_library target source name root)
  add_library(${target} MODULE ${_agent_dir}/${source})
  target_compile_definitions(${target} PRIVATE AGENT_NAME="${name}")
  set_target_properties(${target} PROPERTIES
    PREFIX "" OUTPUT_NAME ${name} SUFFIX ".dll"
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${root}/shlib/iiop)
endfunction()

orbelle_agent_library(agent_brokvane vbagent.cpp brokvane zanth)
orbelle_agent_library(agent_oldvane vbagent.cpp oldvane zanth)
orbelle_agent_library(agent_broken_brokvane noagent.cpp brokvane zanth-broken)
orbelle_agent_library(agent_broken_oldvane noagent.cpp oldvane zanth-broken)
