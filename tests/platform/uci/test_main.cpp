// The main of the configuration library's test programs. Every context reads the pending changes in
// /tmp/.uci, so they run with an empty /tmp of their own, and the tool is put where PATH finds it there.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <sys/mount.h>
#include <unistd.h>

#include "platform/support/private_mounts.h"

namespace {

namespace fs = std::filesystem;

// Read beforehand: the build folder itself may be below the /tmp that is about to be covered.
std::string read_tool()
{
    std::ifstream file(UCI_PROGRAM, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool install_tool(const std::string &contents)
{
    fs::create_directory("/tmp/bin");
    std::ofstream file("/tmp/bin/uci", std::ios::binary);
    file << contents;
    file.close();
    fs::permissions("/tmp/bin/uci", fs::perms::owner_all);
    return file.good() && !contents.empty() && setenv("PATH", "/tmp/bin:/usr/bin:/bin", 1) == 0;
}

bool enter_private_tmp()
{
    const std::string tool = read_tool();
    return enter_private_mounts() && chdir("/") == 0 &&
           mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777") == 0 && install_tool(tool);
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests) && !enter_private_tmp()) {
        fprintf(stderr, "cannot get a /tmp of my own: %s\n", strerror(errno));
        return 1;
    }
    return RUN_ALL_TESTS();
}
