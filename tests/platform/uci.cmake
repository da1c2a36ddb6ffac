# Tests of the configuration library and of its command-line tool.
add_library(korvel_uci_fixture STATIC
    ${CMAKE_CURRENT_LIST_DIR}/private_mounts.cpp
    ${CMAKE_CURRENT_LIST_DIR}/uci_c_caller.c
    ${CMAKE_CURRENT_LIST_DIR}/uci_fixture.cpp
    ${CMAKE_CURRENT_LIST_DIR}/uci_test_main.cpp
    ${CMAKE_CURRENT_LIST_DIR}/../support/process.cpp)
target_include_directories(korvel_uci_fixture PUBLIC
    ${CMAKE_CURRENT_LIST_DIR} ${CMAKE_CURRENT_LIST_DIR}/..)
target_compile_definitions(korvel_uci_fixture PRIVATE UCI_PROGRAM="$<TARGET_FILE:uci>")
target_link_libraries(korvel_uci_fixture PUBLIC korvel_uci GTest::gtest Threads::Threads PRIVATE korvel_flags)
add_dependencies(korvel_uci_fixture uci)

function(korvel_uci_test name)
    add_executable(${name} ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${name}.cpp)
    target_precompile_headers(${name} REUSE_FROM korvel_test_headers)
    target_link_libraries(${name} PRIVATE korvel_uci_fixture korvel_flags)
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()

# Sends a test program's calls on files to file_calls.cpp.
function(korvel_wrap_file_calls name)
    target_sources(${name} PRIVATE ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/file_calls.cpp)
    target_link_options(${name} PRIVATE
        -Wl,--wrap=flock -Wl,--wrap=write -Wl,--wrap=fsync -Wl,--wrap=rename -Wl,--wrap=ftruncate)
endfunction()

korvel_uci_test(uci_format_test)
korvel_uci_test(uci_tool_test)
korvel_uci_test(uci_api_test)
korvel_uci_test(uci_delta_test)
korvel_uci_test(uci_commit_test)
korvel_uci_test(uci_files_test)
korvel_wrap_file_calls(uci_files_test)
korvel_uci_test(uci_scale_test)
korvel_uci_test(uci_memory_test)
target_link_options(uci_memory_test PRIVATE
    -Wl,--wrap=malloc -Wl,--wrap=calloc -Wl,--wrap=realloc -Wl,--wrap=strdup
    -Wl,--wrap=asprintf -Wl,--wrap=open_memstream)
