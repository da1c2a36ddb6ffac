// Where one of the daemon's calls is missing, the tries show it; where none is, they pass.
#include "faults/trial.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

const operation &operation_named(const std::string &name)
{
    return *std::find_if(all_operations().begin(), all_operations().end(),
                         [&name](const operation &row) { return name == row.name; });
}

const fault &fault_of(fault::what happens)
{
    return *std::find_if(all_faults().begin(), all_faults().end(),
                         [happens](const fault &row) { return row.happens == happens; });
}

// What the first try that goes wrong says; nothing when none does.
std::string first_wrong(const char *operation_name, fault::what happens, const left_out_call &left_out = {})
{
    trial trials(left_out);
    trials.prepare(operation_named(operation_name));
    const fault &wrong = fault_of(happens);
    for (size_t i = 0, count = trials.tries(wrong); i < count; i++)
        if (const verdict given = trials.attempt(wrong, i); !given.wrong.empty())
            return given.struck + ": " + given.wrong;
    return {};
}

TEST(planted_fault, without_one_every_kill_and_every_power_cut_is_survived)
{
    EXPECT_EQ("", first_wrong("add PPPoE", fault::killed));
    EXPECT_EQ("", first_wrong("add PPPoE", fault::power_cut));
}

TEST(planted_fault, a_rename_that_is_missing_shows_in_a_kill)
{
    for (const size_t number : {1U, 2U, 4U}) {
        SCOPED_TRACE(number);
        EXPECT_NE("", first_wrong("add PPPoE", fault::killed, {call_kind::rename, number}));
    }
}

TEST(planted_fault, a_sync_that_is_missing_shows_in_a_power_cut)
{
    EXPECT_NE("", first_wrong("add PPPoE", fault::power_cut, {call_kind::sync, 1}));
}

TEST(planted_fault, a_removal_that_is_missing_shows_in_a_kill)
{
    EXPECT_NE("", first_wrong("del PPPoE", fault::killed, {call_kind::unlink, 1}));
}

} // namespace
