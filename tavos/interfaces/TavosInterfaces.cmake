# What generate.py makes from introspection files becomes part of TARGET. TARGET links the library tavos or is part of it;
# for tavos_add_clients and tavos_add_operations the contracts are enough.
#   tavos_add_interfaces(TARGET FILE.xml...)             both sides on the bus
#   tavos_add_clients(TARGET HEADER CLASS FILE.xml...)   only the clients, on CLASS instead of the bus
#   tavos_add_operations(TARGET FILE.xml...)             headers: #include "operations/NAME.h"

function(tavos_generate target folder ending more files)
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  set(generator ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/generate.py)
  file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/${folder})
  foreach(xml IN LISTS files)
    get_filename_component(xml ${xml} ABSOLUTE)
    get_filename_component(name ${xml} NAME_WE)
    set(output ${CMAKE_CURRENT_BINARY_DIR}/${folder}/${name}.${ending})
    add_custom_command(
      OUTPUT ${output}
      COMMAND ${Python3_EXECUTABLE} ${generator} ${xml} ${output} ${more}
      DEPENDS ${xml} ${generator}
      VERBATIM)
    target_sources(${target} PRIVATE ${output})
  endforeach()
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_BINARY_DIR})
endfunction()

function(tavos_add_interfaces target)
  tavos_generate(${target} interfaces cpp "" "${ARGN}")
endfunction()

function(tavos_add_clients target header class)
  tavos_generate(${target} clients cpp "${header};${class}" "${ARGN}")
endfunction()

function(tavos_add_operations target)
  tavos_generate(${target} operations h "" "${ARGN}")
endfunction()
