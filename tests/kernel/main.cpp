// Runs the tests of the virtual machine, whose first process has made the machine a gateway's.
#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
