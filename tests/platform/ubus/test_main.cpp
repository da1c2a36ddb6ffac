// The main of the bus's test programs. The daemon makes a directory below /var/run even when its socket is
// elsewhere, so the tests run with an empty /run of their own.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/mount.h>

#include "platform/support/private_mounts.h"

namespace {

bool enter_private_run()
{
    return enter_private_mounts() && mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") == 0;
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests) && !enter_private_run()) {
        fprintf(stderr, "cannot get a /run of my own: %s\n", strerror(errno));
        return 1;
    }
    return RUN_ALL_TESTS();
}
