add_executable(uci_bench ${CMAKE_CURRENT_LIST_DIR}/uci_bench.cpp)
target_link_libraries(uci_bench PRIVATE korvel_uci korvel_flags)
