// How often an operation writes to the disk: each file that it changes is replaced once for each of its
// stages, and syncs are few.
#include "faults/trial.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

namespace {

struct effort {
    std::map<std::string, size_t> replacements; // by file
    size_t removals = 0, syncs = 0;
    size_t changes() const
    {
        size_t sum = removals;
        for (const auto &[path, count] : replacements)
            sum += count;
        return sum;
    }
};

effort effort_of(const std::vector<std::string> &calls)
{
    effort sum;
    for (const std::string &call : calls) {
        std::istringstream words(call);
        std::string name, path, other;
        words >> name >> path >> other;
        if (name == "rename")
            sum.replacements[other]++;
        else if (name == "unlink" && path.find("/.korvel.record") == std::string::npos)
            sum.removals++;
        else if (name == "fsync" || name == "fdatasync")
            sum.syncs++;
    }
    return sum;
}

TEST(effort, each_file_is_replaced_once_a_stage_with_two_syncs_and_four_for_all)
{
    trial trials({});
    for (const operation &tried : all_operations()) {
        if (!tried.in_short_form)
            continue;
        SCOPED_TRACE(tried.name);
        trials.prepare(tried);

        const effort sum = effort_of(trials.calls());

        // The reload that follows when a DHCPv6 interface goes needs what was deleted on the disk.
        const size_t stages = std::string(tried.name) == "modify dual DHCP" ? 2 : 1;
        for (const auto &[path, count] : sum.replacements)
            EXPECT_LE(count, stages) << path;
        EXPECT_LE(1U, sum.replacements.count("/etc/config/network"));
        EXPECT_LE(sum.syncs, 2 * sum.changes() + 4);
        EXPECT_LE(sum.changes(), sum.syncs) << "or something is not synced";
    }
}

} // namespace
