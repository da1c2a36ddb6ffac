# Tests of the bus daemon and of its command-line tool. Both are started as programs.
add_library(korvel_ubusd_fixture STATIC
    ${CMAKE_CURRENT_LIST_DIR}/private_mounts.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ubus_test_main.cpp
    ${CMAKE_CURRENT_LIST_DIR}/ubusd_fixture.cpp
    ${CMAKE_CURRENT_LIST_DIR}/../support/process.cpp)
target_include_directories(korvel_ubusd_fixture PUBLIC
    ${CMAKE_CURRENT_LIST_DIR} ${CMAKE_CURRENT_LIST_DIR}/..)
target_compile_definitions(korvel_ubusd_fixture PUBLIC UBUSD_PROGRAM="$<TARGET_FILE:ubusd>")
target_link_libraries(korvel_ubusd_fixture PUBLIC GTest::gtest PRIVATE korvel_flags)
add_dependencies(korvel_ubusd_fixture ubusd)

add_executable(ubus_test_service ${CMAKE_CURRENT_LIST_DIR}/ubus_test_service.cpp)
target_link_libraries(ubus_test_service PRIVATE korvel_ubus korvel_ubox korvel_flags)

add_library(korvel_ubus_tool_fixture STATIC ${CMAKE_CURRENT_LIST_DIR}/ubus_tool_fixture.cpp)
target_compile_definitions(korvel_ubus_tool_fixture PUBLIC
    UBUS_PROGRAM="$<TARGET_FILE:ubus>" UBUS_TEST_SERVICE="$<TARGET_FILE:ubus_test_service>")
target_link_libraries(korvel_ubus_tool_fixture PUBLIC korvel_ubusd_fixture PRIVATE korvel_flags)
add_dependencies(korvel_ubus_tool_fixture ubus ubus_test_service)

function(korvel_ubus_test name)
    add_executable(${name} ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${name}.cpp)
    target_precompile_headers(${name} REUSE_FROM korvel_test_headers)
    target_link_libraries(${name} PRIVATE korvel_ubusd_fixture korvel_flags ${ARGN})
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()

korvel_ubus_test(ubusd_wire_test)
korvel_ubus_test(ubusd_object_test)
korvel_ubus_test(ubusd_call_test)
korvel_ubus_test(ubusd_event_test)
korvel_ubus_test(ubusd_access_test)
korvel_ubus_test(ubusd_process_test)
korvel_ubus_test(ubusd_robustness_test)
korvel_ubus_test(ubusd_subscription_test)

korvel_ubus_test(ubus_tool_call_test korvel_ubus_tool_fixture)
korvel_ubus_test(ubus_tool_event_test korvel_ubus_tool_fixture)
korvel_ubus_test(ubus_tool_list_test korvel_ubus_tool_fixture)
