// The work for a file grows with its length, and no faster.
#include "platform/uci/fixture.h"

#include <algorithm>
#include <ctime>
#include <functional>

namespace {

double seconds_used()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// The least of several measurements: whatever else the machine does only adds to them.
double cost_of(const std::function<void()> &work)
{
    double least = 1e9;
    for (int round = 0; round < 5; round++) {
        const double start = seconds_used();
        work();
        least = std::min(least, seconds_used() - start);
    }
    return least;
}

std::string repeated(int lines, const std::function<std::string(int)> &line)
{
    std::string text;
    for (int i = 0; i < lines; i++)
        text += line(i);
    return text;
}

std::string number(int i)
{
    return std::to_string(i);
}

struct shape {
    const char *name;
    std::function<std::string(int lines)> make;
};

// 1,000 and 10,000 lines are a factor of 10 apart; work that grows with the square is a factor of 100.
constexpr double greatest_ratio = 30;

const shape shapes[] = {
    {"one list",
     [](int lines) {
         return "config t n\n" +
                repeated(lines, [](int i) { return "\tlist l 'value " + number(i) + "'\n"; });
     }},
    {"options of one section",
     [](int lines) {
         return "config t n\n" +
                repeated(lines, [](int i) { return "\toption o" + number(i) + " 'value'\n"; });
     }},
    {"named sections",
     [](int lines) { return repeated(lines, [](int i) { return "config t n" + number(i) + "\n"; }); }},
    {"anonymous sections", [](int lines) { return repeated(lines, [](int) { return "config t\n"; }); }},
    {"one value",
     [](int lines) {
         return "config t n\n\toption o '" + repeated(lines, [](int i) { return number(i) + "'\\''\n"; }) +
                "'\n";
     }},
};

class uci_scale_test : public uci_test {};

TEST_F(uci_scale_test, loading_and_exporting_is_linear)
{
    for (const shape &test : shapes) {
        SCOPED_TRACE(test.name);
        const auto cost = [&](int lines) {
            write_config(test.make(lines));
            return cost_of([this] {
                const context_owner owner = new_context();
                uci_package *p = nullptr;
                ASSERT_EQ(uci_load(owner.get(), "n", &p), UCI_OK);
                EXPECT_FALSE(exported(owner.get(), p).empty());
            });
        };
        const double small = cost(1000), large = cost(10000);
        EXPECT_LT(large / small, greatest_ratio) << small << " s and " << large << " s";
    }
}

TEST_F(uci_scale_test, applying_a_delta_is_linear)
{
    const shape deltas[] = {
        {"new sections",
         [](int lines) { return repeated(lines, [](int i) { return "n.s" + number(i) + "='t'\n"; }); }},
        {"new options",
         [](int lines) { return repeated(lines, [](int i) { return "n.n.o" + number(i) + "='v'\n"; }); }},
        {"list values",
         [](int lines) { return repeated(lines, [](int i) { return "|n.n.l='" + number(i) + "'\n"; }); }},
        {"made and deleted",
         [](int lines) {
             return repeated(lines / 2,
                             [](int i) { return "n.s" + number(i) + "='t'\n-n.s" + number(i) + "\n"; });
         }},
    };
    write_config("config t n\n");
    for (const shape &test : deltas) {
        SCOPED_TRACE(test.name);
        const auto cost = [&](int lines) {
            write_delta(test.make(lines));
            return cost_of([this] {
                const context_owner owner = new_context();
                EXPECT_EQ(uci_load(owner.get(), "n", nullptr), UCI_OK);
            });
        };
        const double small = cost(1000), large = cost(10000);
        EXPECT_LT(large / small, greatest_ratio) << small << " s and " << large << " s";
    }
}

TEST_F(uci_scale_test, committing_many_changes_is_linear)
{
    const auto cost = [&](int changes) {
        return cost_of([&, this] {
            write_config("config t n\n");
            const context_owner owner = new_context();
            uci_ptr ptr;
            for (int i = 0; i < changes; i++) {
                const std::string option = "o" + number(i);
                ptr = named("n", "n", option.c_str(), "v");
                ASSERT_EQ(uci_set(owner.get(), &ptr), UCI_OK);
            }
            ASSERT_EQ(uci_commit(owner.get(), &ptr.p, false), UCI_OK);
        });
    };
    const double small = cost(1000), large = cost(10000);
    EXPECT_LT(large / small, greatest_ratio) << small << " s and " << large << " s";
}

TEST_F(uci_scale_test, a_long_file_survives_unchanged)
{
    std::string file = "\nconfig t 'n'\n" + repeated(10000, [](int i) {
                           return "\toption o" + number(i) + " 'v" + number(i) + "'\n";
                       });
    for (int i = 0; i < 10000; i++)
        file += "\nconfig t 's" + number(i) + "'\n\tlist l 'a'\n";
    file += "\n";
    write_config(file);
    const context_owner owner = new_context();
    uci_package *p = nullptr;

    ASSERT_EQ(uci_load(owner.get(), "n", &p), UCI_OK);

    EXPECT_EQ(exported(owner.get(), p), file);
}

} // namespace
