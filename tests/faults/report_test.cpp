// The table counts every try once, and what is told of a try survives its way from a worker.
#include "faults/report.h"

#include <gtest/gtest.h>

namespace {

constexpr char head[] =
    "heading\n\n| operation | fault | tries | before | after | of these by the restart | anything else "
    "|\n|---|---|---|---|---|---|---|\n";

TEST(report, a_try_is_told_in_one_line)
{
    const told_try one = {"add", "killed", "wrong", "try 1, rename a b: is neither", true};
    const std::string line = one.line();
    EXPECT_EQ(line.size() - 1, line.find('\n'));
    const told_try read = told_try::from_line(line.substr(0, line.size() - 1));
    EXPECT_EQ(line, read.line());
    EXPECT_EQ(one.text, read.text);
}

TEST(report, every_outcome_is_counted_in_its_column)
{
    report sum;
    sum.add({"add", "killed", "before", ""});
    sum.add({"add", "killed", "after", "", /*healed=*/true});
    sum.add({"add", "killed", "wrong", "try 3: is neither"});
    sum.add({"del", "killed", "after", ""});
    EXPECT_EQ(std::string(head) +
                  "| add | killed | 3 | 1 | 1 | 1 | 1 |\n| del | killed | 1 | 0 | 1 | 0 | none |\n",
              sum.page("heading\n"));
    EXPECT_EQ(4U, sum.tries());
    EXPECT_EQ(1U, sum.wrong());
    EXPECT_EQ("add; killed: try 3: is neither\n", sum.details(20));
}

TEST(report, an_outcome_that_nobody_knows_is_wrong)
{
    report sum;
    sum.add(told_try::from_line("add\tkilled"));
    EXPECT_EQ(1U, sum.wrong());
}

} // namespace
