# Installs the build, moves what was installed, and starts the program from there.
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/first --config "${CONFIG}"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${WORK_DIR}/first ${WORK_DIR}/moved)

# Nothing that was installed names the folders that it came from.
file(GLOB_RECURSE texts ${WORK_DIR}/moved/*.cmake ${WORK_DIR}/moved/*.pc)
list(LENGTH texts count)
if(count LESS 4)
  message(FATAL_ERROR "the CMake package or the pkg-config file was not installed: ${texts}")
endif()
foreach(text ${texts})
  file(READ ${text} content)
  foreach(folder ${BUILD_DIR} ${WORK_DIR})
    string(FIND "${content}" ${folder} at)
    if(NOT at EQUAL -1)
      message(FATAL_ERROR "${text} names ${folder}")
    endif()
  endforeach()
endforeach()

# The tests of the build may know the library by other ways: the installed program is to find its own.
function(start expected)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${WORK_DIR}/moved/bin/orvacam ${ARGN}
    WORKING_DIRECTORY ${WORK_DIR} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  if(NOT output MATCHES "${expected}")
    message(FATAL_ERROR "orvacam ${ARGN}: ${output}")
  endif()
endfunction()
start("${VERSION}" --version)
start("^$" simulate GSENSE400 --mode hdr --width 128 --height 96 -o frame.raw)
start("merged  mean" stats frame.raw)

execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ldd ${WORK_DIR}/moved/bin/orvacam
  OUTPUT_VARIABLE libraries COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCH "liborvacam[^\n]* => ([^ ]*)" line "${libraries}")
file(REAL_PATH "${CMAKE_MATCH_1}" found)
string(FIND "${found}" ${WORK_DIR}/moved/ at)
if(NOT at EQUAL 0)
  message(FATAL_ERROR "the installed program takes its library from ${found}")
endif()
