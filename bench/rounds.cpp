#include "rounds.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>

namespace {

// The value below which a share of the sorted values lies.
double quantile(const std::vector<double> &sorted, double share)
{
    const double place = share * static_cast<double>(sorted.size() - 1);
    const size_t below = static_cast<size_t>(place);
    const size_t above = std::min(below + 1, sorted.size() - 1);
    return std::lerp(sorted[below], sorted[above], place - static_cast<double>(below));
}

} // namespace

spread spread_of(std::vector<double> values)
{
    if (values.empty())
        throw std::runtime_error("nothing was measured");
    std::ranges::sort(values);
    return {quantile(values, 0.25), quantile(values, 0.5), quantile(values, 0.75)};
}

double time_of(const action &body)
{
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void comparison::measure(const std::function<double()> &subject, const std::function<double()> &bare)
{
    double subject_time = 0, bare_time = 0;
    if (subject_first_)
        subject_time = subject();
    bare_time = bare();
    if (!subject_first_)
        subject_time = subject();
    subject_first_ = !subject_first_;
    subject_.push_back(subject_time);
    ratios_.push_back(subject_time / bare_time);
}
