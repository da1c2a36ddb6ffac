// Measured ratios: two things done in turn, so that what else the machine does meets both.
#pragma once

#include <functional>
#include <string>
#include <vector>

// Middle value and the quartiles around it.
struct spread {
    double low = 0, median = 0, high = 0;
};
spread spread_of(std::vector<double> values);

using action = std::function<void()>;

// Seconds that an action takes.
double time_of(const action &body);

// One subject and what it is compared with, measured over several rounds.
class comparison {
public:
    // Times both, the one that came second in the round before first.
    void measure(const std::function<double()> &subject, const std::function<double()> &bare);

    spread ratio() const { return spread_of(ratios_); }         // subject to bare, pair by pair
    spread subject_time() const { return spread_of(subject_); } // seconds

private:
    std::vector<double> ratios_, subject_;
    bool subject_first_ = true;
};
