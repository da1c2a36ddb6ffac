# Tests of the mxuci calls, in a private root: they are about /etc/config.
foreach(test mxuci_calls_test mxuci_crash_test mxuci_neighbours_test)
    korvel_test(${test} SOURCES ${CMAKE_CURRENT_LIST_DIR}/${test}.cpp LIBRARIES korvel_mxuci)
endforeach()
