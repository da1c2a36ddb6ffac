// The package's own recipe, run in as much of a build tree as it takes.
#pragma once

#include "support/gateway.h"

#include <filesystem>
#include <stdexcept>

inline constexpr char built_image[] = "/tmp/image";     // what the build has installed
inline constexpr char package_files[] = "/tmp/package"; // what goes into a package

// Makes a target of the build tree's stand-in: install-PACKAGE, control-PACKAGE.
inline void make_package(const std::string &target)
{
    std::filesystem::create_directories(package_files);
    const program_result result = run_program(
        {"make", "-s", "-f", KORVEL_SOURCE_DIR "/openwrt/korvel/Makefile",
         "TOPDIR=" KORVEL_SOURCE_DIR "/tests/package/buildroot",
         std::string("PKG_INSTALL_DIR=") + built_image, std::string("DESTINATION=") + package_files, target});
    if (result.status != 0)
        throw std::runtime_error(target + ": " + result.errors);
}

// Runs the package's postinst or prerm.
inline program_result run_control(gateway &router, const std::string &name,
                                  const program_environment &variables = {})
{
    make_package("control-korvel");
    return router.run_script(std::string(package_files) + "/" + name, {}, variables);
}
