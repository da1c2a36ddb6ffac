add_executable(ubus_bench ${CMAKE_CURRENT_LIST_DIR}/ubus_bench.cpp)
target_link_libraries(ubus_bench PRIVATE korvel_ubusd_core korvel_ubus korvel_ubox korvel_flags)
