# orvex_objects(WHAT FILE...): runs objects.py now, and makes CMake configure again when a file that it reads changes.
find_package(Python3 3.11 REQUIRED COMPONENTS Interpreter)
set(ORVEX_OBJECTS ${CMAKE_CURRENT_LIST_DIR}/objects.py)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ORVEX_OBJECTS} ${CMAKE_CURRENT_LIST_DIR}/objects.toml)

function(orvex_objects)
  execute_process(COMMAND ${Python3_EXECUTABLE} ${ORVEX_OBJECTS} ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()
