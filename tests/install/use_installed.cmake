# Installs the build into a fresh prefix and uses it from an outside project.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix} --config "${CONFIG}"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)

file(GLOB_RECURSE packages ${prefix}/*/orvacam.pc)
list(LENGTH packages count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "expected one orvacam.pc below ${prefix}, found: ${packages}")
endif()
get_filename_component(pkgconfig_dir ${packages} DIRECTORY)
get_filename_component(library_dir ${pkgconfig_dir} DIRECTORY)

if(WAY STREQUAL "cmake")
  execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DEXPECTED_VERSION=${VERSION}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  set(program ${WORK_DIR}/build/consumer)
else()
  # The prefix is taken from where the file lies, so that a moved installation works too.
  execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pkgconfig_dir}
    pkg-config --define-variable=prefix=${prefix} --cflags --libs orvacam
    OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  file(MAKE_DIRECTORY ${WORK_DIR}/build)
  set(program ${WORK_DIR}/build/consumer)
  execute_process(COMMAND ${CXX} -std=c++17 ${CONSUMER_DIR}/consumer.cpp -o ${program} ${flags}
    -Wl,-rpath,${library_dir} COMMAND_ERROR_IS_FATAL ANY)
endif()

execute_process(COMMAND ${program} WORKING_DIRECTORY ${WORK_DIR} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
if(NOT output STREQUAL "liborvacam ${VERSION}: means 10 20 65535\n")
  message(FATAL_ERROR "the outside program said: ${output}")
endif()
