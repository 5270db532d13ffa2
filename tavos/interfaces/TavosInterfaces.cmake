# tavos_add_interfaces(TARGET FILE.xml...)
# Compiles the client and the server side of each introspection file into TARGET; see generate.py. TARGET links the
# library tavos, or is part of it.
function(tavos_add_interfaces target)
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  set(generator ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/generate.py)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/interfaces)
  file(MAKE_DIRECTORY ${folder})
  foreach(xml IN LISTS ARGN)
    get_filename_component(xml ${xml} ABSOLUTE)
    get_filename_component(name ${xml} NAME_WE)
    add_custom_command(
      OUTPUT ${folder}/${name}.cpp
      COMMAND ${Python3_EXECUTABLE} ${generator} ${xml} ${folder}/${name}.cpp
      DEPENDS ${xml} ${generator}
      VERBATIM)
    target_sources(${target} PRIVATE ${folder}/${name}.cpp)
  endforeach()
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
endfunction()
