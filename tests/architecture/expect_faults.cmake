# cmake -DCHECK=<python;script> -DTREE=<tree> -DFAULTS=<line;...> -P expect_faults.cmake
# The check fails on the tree and prints each of these lines, and no other fault.
execute_process(COMMAND ${CHECK} ${TREE} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE status)
if(NOT status EQUAL 1)
  message(FATAL_ERROR "the check ended with ${status}, not with 1:\n${output}")
endif()
list(LENGTH FAULTS count)
foreach(fault IN LISTS FAULTS ITEMS ", ${count} faults")
  string(FIND "${output}" "${fault}\n" place)
  if(place EQUAL -1)
    message(FATAL_ERROR "'${fault}' is missing in:\n${output}")
  endif()
endforeach()
