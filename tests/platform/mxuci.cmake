# Tests of the mxuci calls, in a private root: they are about /etc/config.
foreach(test mxuci_calls_test mxuci_crash_test mxuci_neighbours_test)
    korvel_test(${test} SOURCES ${CMAKE_CURRENT_LIST_DIR}/${test}.cpp LIBRARIES korvel_mxuci)
endforeach()

if(KORVEL_HOST_PLATFORM)
    korvel_test(mxuci_attempts_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/mxuci_attempts_test.cpp LIBRARIES korvel_mxuci)
    target_include_directories(mxuci_attempts_test PRIVATE ${CMAKE_CURRENT_LIST_DIR})
    korvel_wrap_file_calls(mxuci_attempts_test)
    target_link_options(mxuci_attempts_test PRIVATE -Wl,--wrap=uci_load)
endif()
