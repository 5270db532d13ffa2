# tavos_add_interfaces(TARGET FILE.xml...)
# Compiles the client and the server side of each introspection file into TARGET; see generate.py. TARGET links the
# library tavos, or is part of it.
set(TAVOS_INTERFACE_GENERATOR ${CMAKE_CURRENT_LIST_DIR}/generate.py)
set(TAVOS_INTERNAL_INCLUDES ${PROJECT_SOURCE_DIR})
find_package(Python3 REQUIRED COMPONENTS Interpreter)

function(tavos_add_interfaces target)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/interfaces)
  file(MAKE_DIRECTORY ${folder})
  foreach(xml IN LISTS ARGN)
    get_filename_component(xml ${xml} ABSOLUTE)
    get_filename_component(name ${xml} NAME_WE)
    add_custom_command(
      OUTPUT ${folder}/${name}.cpp
      COMMAND Python3::Interpreter ${TAVOS_INTERFACE_GENERATOR} ${xml} ${folder}/${name}.cpp
      DEPENDS ${xml} ${TAVOS_INTERFACE_GENERATOR}
      VERBATIM)
    target_sources(${target} PRIVATE ${folder}/${name}.cpp)
  endforeach()
  target_include_directories(${target} PRIVATE ${TAVOS_INTERNAL_INCLUDES})
endfunction()
