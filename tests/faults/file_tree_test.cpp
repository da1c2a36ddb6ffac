// The judgement finds every way in which files can differ.
#include "faults/file_tree.h"

#include <gtest/gtest.h>

namespace {

using texts = std::vector<std::string>;

const file_tree usual = {{"/etc/config/network", {0600, "config interface 'wan_1'\n"}},
                         {"/etc/hotplug.d/iface/99-wan_1", {0755, "#!/bin/sh\n"}},
                         {"/tmp/wan_list", {0600, "/tmp/first\n"}}};

TEST(file_tree, what_was_put_is_taken_and_everything_else_is_gone)
{
    put_files({{"/etc/config/.network.uci-AbCdEf", {0600, "left over"}},
               {"/etc/korvel/rule_mvlan.sh", {0755, ""}}});
    put_files(usual);
    EXPECT_EQ(usual, take_files());
}

TEST(file_tree, every_difference_is_named)
{
    file_tree present = usual;
    EXPECT_EQ(texts{}, differences(present, usual));
    present["/etc/config/network"].mode = 0644;
    present["/etc/config/.network.uci-AbCdEf"] = {0600, ""};
    present["/etc/hotplug.d/iface/99-wan_1"].content += "\n";
    present.erase("/tmp/wan_list");
    EXPECT_EQ((texts{"extra /etc/config/.network.uci-AbCdEf", "mode /etc/config/network",
                     "other /etc/hotplug.d/iface/99-wan_1", "no /tmp/wan_list"}),
              differences(present, usual));
}

TEST(file_tree, a_pending_change_file_of_which_nothing_is_left_is_none)
{
    file_tree files = usual;
    files["/tmp/.uci/network"] = {0600, ""};
    put_files(files);
    EXPECT_EQ(usual, take_files());
}

TEST(file_tree, a_secret_that_others_can_read_is_found)
{
    file_tree files = usual;
    files["/etc/config/network"].content += "option password 'hidden'\n";
    EXPECT_EQ(texts{}, readable_with(files, "hidden"));
    files["/etc/config/.network.new"] = {0640, "option password 'hidden'\n"};
    EXPECT_EQ(texts{"/etc/config/.network.new"}, readable_with(files, "hidden"));
}

} // namespace
