# Compile settings shared by everything that this project builds itself; an embedding project sees none of them.
add_library(orvacam_compile INTERFACE)
target_compile_options(orvacam_compile INTERFACE
  -Wall -Wextra -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2
  $<$<NOT:$<BOOL:$<TARGET_PROPERTY:ORVACAM_TEST_PROGRAM>>>:-Wconversion>
  $<$<NOT:$<BOOL:$<TARGET_PROPERTY:ORVACAM_TEST_PROGRAM>>>:-Wsign-conversion>
  $<$<BOOL:$<TARGET_PROPERTY:ORVACAM_TEST_PROGRAM>>:-Wno-narrowing>
  $<$<BOOL:$<TARGET_PROPERTY:ORVACAM_TEST_PROGRAM>>:-Wno-dangling-else>
  $<$<NOT:$<BOOL:$<TARGET_PROPERTY:ORVACAM_TEST_PROGRAM>>>:-Wshadow>
  -Wcast-align -Wundef
  # Both compilers fuse multiply-add by default; where one fused operation is meant it is written std::fma.
  -ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # The braces of std::array may be left out, which clang 14 does not know.
  target_compile_options(orvacam_compile INTERFACE -Wno-unknown-warning-option
    -Wno-format-nonliteral -Wno-missing-braces)
else()
  target_compile_options(orvacam_compile INTERFACE -Wno-format-nonliteral -Wduplicated-cond -Wlogical-op)
endif()
if(ORVACAM_WERROR)
  target_compile_options(orvacam_compile INTERFACE -Werror)
endif()
if(ORVACAM_SANITIZE)
  # What is undefined is looked for in what is tested: in the tests it takes a third of their compilation. Those that
  # start programs have nothing of them in their own memory.
  target_compile_options(orvacam_compile INTERFACE -fsanitize=${ORVACAM_SANITIZE} -fno-sanitize-recover=all
    $<$<BOOL:$<TARGET_PROPERTY:ORVACAM_TEST_PROGRAM>>:-fno-sanitize=undefined>
    $<$<BOOL:$<TARGET_PROPERTY:ORVACAM_STARTS_PROGRAMS>>:-fno-sanitize=address>
    -fno-omit-frame-pointer)
  target_link_options(orvacam_compile INTERFACE -fsanitize=${ORVACAM_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented standard headers (std::regex) set off false alarms; the other builds keep the warning.
    target_compile_options(orvacam_compile INTERFACE -Wno-maybe-uninitialized)
  endif()
endif()
if(ORVACAM_COVERAGE)
  target_compile_options(orvacam_compile INTERFACE --coverage -O0 -fprofile-update=atomic)
  target_link_options(orvacam_compile INTERFACE --coverage)
endif()
if(ORVACAM_FUZZ)
  target_compile_options(orvacam_compile INTERFACE -fsanitize=fuzzer-no-link)
  target_link_options(orvacam_compile INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Compiling the tests takes several times as long as running them. So they are not optimised, and their debug
# information is what a stack trace needs; the library that they test keeps the flags of its build. Under an emulator
# running them takes longer.
set(ORVACAM_TEST_OPTIONS $<IF:$<BOOL:${CMAKE_CROSSCOMPILING}>,-O1,-O0> $<$<CONFIG:RelWithDebInfo>:-g1>)

# orvacam_in_units(<target>): with ORVACAM_UNITY, sources of the target are compiled eight at a time. What they share,
# standard headers and templates above all, is most of their compilation. Not the library's own sources where somebody
# may use it or measure it: their code is that of every build.
function(orvacam_in_units target)
  if(NOT ORVACAM_UNITY)
    return()
  endif()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # A unit includes its sources, so that their own classes look as if they came from headers. Collecting garbage below
    # half a gigabyte takes a tenth of the time.
    target_compile_options(${target} PRIVATE -Wno-subobject-linkage --param=ggc-min-heapsize=524288)
  endif()
endfunction()
