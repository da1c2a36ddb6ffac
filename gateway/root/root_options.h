// What a private root is made of.
#pragma once

#include <string>
#include <vector>

// A directory of the machine that is visible inside at its own path.
struct passed_directory {
    std::string path;      // absolute
    bool writable = false; // whether what is written there reaches the machine
};

struct private_root_options {
    std::vector<std::string> rootfs;      // directories whose files lie over the machine's; no file is in two
    std::vector<passed_directory> passed; // bound in this order, so an inner directory follows its outer one
    std::string shell;                    // program behind /bin/sh; empty: the machine's own
    bool network = true;                  // whether to make br-lan, the ports and the uplink; lo is always up
    std::string uplink = "pon";
    std::vector<std::string> ports = {"eth0.1", "eth0.2", "eth0.3", "eth0.4", "ra0", "ra1", "rai0", "rai1"};
};
