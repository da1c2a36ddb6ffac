// The main of every test program: all its tests run inside a private root, so that they can use the daemon's
// real paths. One that is started in a private root stays there: a program for another machine runs under an
// emulator, which does not know all that making one takes.
#include "root/gateway_root.h"
#include "tools/places.h"

#include <gtest/gtest.h>

#include <filesystem>

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests) || std::filesystem::exists(journal_path))
        return RUN_ALL_TESTS();

    private_root_options options = gateway_root_options();
#ifndef KORVEL_TEST_NETWORK
    options.network = false;
#endif
    return enter_gateway(options, [] { return RUN_ALL_TESTS(); });
}
