# Tests of the message library, its JSON companion, the event loop and the bus client library.
add_executable(ubox_test ubox_blob_test.cpp ubox_blobmsg_json_test.cpp ubox_blobmsg_test.cpp ubox_uloop_test.cpp)
target_precompile_headers(ubox_test REUSE_FROM korvel_test_headers)
target_link_libraries(ubox_test PRIVATE korvel_blobmsg_json korvel_ubox korvel_flags GTest::gtest_main
    Threads::Threads)
gtest_discover_tests(ubox_test)

add_executable(libubus_test libubus_client_test.cpp libubus_loss_test.cpp libubus_service_test.cpp libubus_wire_test.cpp
    libubus_support.cpp)
target_precompile_headers(libubus_test REUSE_FROM korvel_test_headers)
target_link_libraries(libubus_test PRIVATE korvel_ubusd_fixture korvel_ubus korvel_blobmsg_json korvel_flags
    Threads::Threads)
gtest_discover_tests(libubus_test DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
