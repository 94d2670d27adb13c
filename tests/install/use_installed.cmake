# Builds an outside project, with two of the examples, against the folder that was installed and moved.
set(prefix ${INSTALLED_DIR}/moved)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR}/build)

file(GLOB_RECURSE packages ${prefix}/*/orvacam.pc)
list(LENGTH packages count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "expected one orvacam.pc below ${prefix}, found: ${packages}")
endif()
get_filename_component(pkgconfig_dir ${packages} DIRECTORY)
get_filename_component(library_dir ${pkgconfig_dir} DIRECTORY)

if(WAY STREQUAL "cmake")
  execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build -DEXAMPLES_DIR=${EXAMPLES_DIR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DEXPECTED_VERSION=${VERSION}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
else()
  execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pkgconfig_dir} pkg-config --cflags --libs orvacam
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  foreach(source ${CONSUMER_DIR}/consumer.cpp ${EXAMPLES_DIR}/merge_frame.cpp ${EXAMPLES_DIR}/header_json.c)
    get_filename_component(program ${source} NAME_WE)
    set(compiler ${CXX} -std=c++17)
    if(source MATCHES "[.]c$")
      set(compiler ${CC} -std=c99)
    endif()
    execute_process(COMMAND ${compiler} ${source} -o ${WORK_DIR}/build/${program} ${flags} -Wl,-rpath,${library_dir}
      COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
endif()

function(expect program pattern)
  execute_process(COMMAND ${WORK_DIR}/build/${program} ${ARGN} WORKING_DIRECTORY ${WORK_DIR} OUTPUT_VARIABLE output
    COMMAND_ERROR_IS_FATAL ANY)
  if(NOT output MATCHES "${pattern}")
    message(FATAL_ERROR "${program} said: ${output}")
  endif()
endfunction()
expect(consumer "^liborvacam ${VERSION}: means 10 20 65535\n$")
expect(merge_frame "^GSENSE400: 128 x 96 pixels, the first is [0-9]+\n$" ${INSTALLED_DIR}/frame.raw)
expect(header_json "^{\"schema\": \"orvacam.header/1\"" ${INSTALLED_DIR}/frame.raw)
