# The headers, with the compilers of this machine: the C header as C99 and as C++, the C++ header as C++17 and C++20,
# for programs without run-time type information, in two translation units; and the library loaded from C alone.
#
#   cmake -DINCLUDE=... -DGENERATED=... -DLIBRARY=... -DTOOL=... -DSOURCES=... -DWORK_DIR=... -P check_languages.cmake
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
get_filename_component(LIBRARY_DIR ${LIBRARY} DIRECTORY)

function(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${WORK_DIR} RESULT_VARIABLE result OUTPUT_VARIABLE output
    ERROR_VARIABLE errors)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\n${output}${errors}")
  endif()
endfunction()

set(strict -pedantic -Wall -Wextra -Werror -I${INCLUDE})
set(found 0)
foreach(family gcc clang)
  find_program(${family}_c NAMES ${family})
  string(REPLACE "gcc" "g" cxx_name ${family})
  find_program(${family}_cxx NAMES ${cxx_name}++)
  if(NOT ${family}_c OR NOT ${family}_cxx)
    continue()
  endif()
  math(EXPR found "${found} + 1")
  run(${${family}_c} -std=c99 ${strict} ${SOURCES}/header_alone.c -o ${family}_alone)
  run(${WORK_DIR}/${family}_alone)
  run(${${family}_cxx} -std=c++17 ${strict} -x c++ ${SOURCES}/header_alone.c -o ${family}_alone_cxx)
  foreach(standard 17 20)
    run(${${family}_cxx} -std=c++${standard} ${strict} -Wshadow -Wconversion -Wsign-conversion -fno-rtti
      ${SOURCES}/two_units_one.cpp ${SOURCES}/two_units_two.cpp -o ${family}_${standard}
      -L${LIBRARY_DIR} -lorvacam -Wl,-rpath,${LIBRARY_DIR})
    run(${WORK_DIR}/${family}_${standard} /no/such/file)
  endforeach()
endforeach()
if(found EQUAL 0)
  message(FATAL_ERROR "no compiler was found")
endif()

run(${TOOL} simulate GSENSE400 --mode hdr --width 24 --height 10 --low-gain 1 --high-gain 2 -o frame.raw)
run(${gcc_c} -std=gnu99 -Wall -Wextra -Werror -I${INCLUDE} ${SOURCES}/c_interface_test.c -o c_interface_test -ldl)
run(${WORK_DIR}/c_interface_test ${LIBRARY} frame.raw)
if(EXISTS ${WORK_DIR}/MarloLogs)
  message(FATAL_ERROR "the face left a folder of logs")
endif()
