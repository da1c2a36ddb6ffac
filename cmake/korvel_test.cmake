# korvel_test(NAME SOURCES file... [LIBRARIES target...] [NETWORK] [DAEMON])
#
# A test program of the daemon's code. Every test runs in a private root of its own, with the bus and configuration tools
# at hand; NETWORK adds the router's network devices, DAEMON builds the daemon's program first, for tests that start it.
#
# korvel_test_under_emulation(NAME argument...)
#
# Where the build is for another machine: has a test program run, with these arguments, under an emulator in a bare virtual
# gateway of this machine, whose launcher KORVEL_LAUNCHER names. Only those of KORVEL_EMULATED_TESTS are run; the target
# emulated_tests builds them.
include(GoogleTest)

set(KORVEL_TEST_TIMEOUT 120 CACHE STRING "Seconds that one test may take")
set(KORVEL_LAUNCHER "" CACHE FILEPATH "korvel-gateway of this machine, where the build is for another one")

function(korvel_test_under_emulation name)
    if(NOT name IN_LIST KORVEL_EMULATED_TESTS)
        return()
    endif()
    if(NOT TARGET emulated_tests)
        add_custom_target(emulated_tests)
    endif()
    add_dependencies(emulated_tests ${name})
    set_target_properties(${name} PROPERTIES
        CROSSCOMPILING_EMULATOR "${KORVEL_LAUNCHER};--bare;--;${CMAKE_CROSSCOMPILING_EMULATOR}")
    add_test(NAME ${name} COMMAND ${name} ${ARGN})
    set_tests_properties(${name} PROPERTIES TIMEOUT ${KORVEL_TEST_TIMEOUT})
endfunction()

function(korvel_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "NETWORK;DAEMON" "" "SOURCES;LIBRARIES")
    if(NOT arg_SOURCES OR arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "korvel_test(${name}): expected SOURCES, got ${arg_UNPARSED_ARGUMENTS}")
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_precompile_headers(${name} REUSE_FROM korvel_test_headers)
    if(arg_NETWORK)
        set(main korvel_test_main_network)
    else()
        set(main korvel_test_main)
    endif()
    target_link_libraries(${name} PRIVATE ${main} korvel_test_support ${arg_LIBRARIES} korvel_core korvel_flags)

    if(CMAKE_CROSSCOMPILING)
        korvel_test_under_emulation(${name})
        return()
    endif()
    set(programs ubusd ubus uci gateway-tool gateway-netd)
    if(arg_DAEMON)
        list(APPEND programs korvel)
    endif()
    foreach(program IN LISTS programs)
        if(TARGET ${program})
            add_dependencies(${name} ${program})
        endif()
    endforeach()
    set(properties TIMEOUT ${KORVEL_TEST_TIMEOUT})
    if(KORVEL_SANITIZE MATCHES thread)
        # The daemon logs from its stop-signal handler and ends there: deliberate, and no race.
        list(APPEND properties ENVIRONMENT TSAN_OPTIONS=report_signal_unsafe=0)
    endif()
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES ${properties})
endfunction()
