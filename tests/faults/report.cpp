#include "faults/report.h"

#include <algorithm>
#include <sstream>

namespace {

constexpr size_t longest_text = 3000; // a line is written to a pipe in one piece

} // namespace

std::string told_try::line() const
{
    return operation + '\t' + fault + '\t' + outcome + '\t' + (healed ? 'h' : '-') + '\t' +
           text.substr(0, longest_text) + '\n';
}

told_try told_try::from_line(const std::string &line)
{
    std::istringstream fields(line);
    told_try one;
    std::string marks;
    for (std::string *const field : {&one.operation, &one.fault, &one.outcome, &marks, &one.text})
        std::getline(fields, *field, '\t');
    one.healed = marks.starts_with("h");
    return one;
}

report::sum &report::sum_of(const told_try &one)
{
    const auto found = std::find_if(sums_.begin(), sums_.end(), [&one](const sum &row) {
        return row.operation == one.operation && row.fault == one.fault;
    });
    if (found != sums_.end())
        return *found;
    return sums_.emplace_back(sum{one.operation, one.fault, 0, 0, 0, 0, 0, {}});
}

void report::add(const told_try &one)
{
    sum &row = sum_of(one);
    row.tries++;
    tries_++;
    row.healed += one.healed;
    if (one.outcome == "before") {
        row.before++;
    } else if (one.outcome == "after") {
        row.after++;
    } else {
        row.wrong++;
        wrong_++;
        row.texts.push_back(one.text);
    }
}

std::string report::page(const std::string &heading) const
{
    std::ostringstream page;
    page << heading
         << "\n| operation | fault | tries | before | after | of these by the restart | anything else |\n"
         << "|---|---|---|---|---|---|---|\n";
    for (const sum &row : sums_)
        page << "| " << row.operation << " | " << row.fault << " | " << row.tries << " | " << row.before
             << " | " << row.after << " | " << row.healed << " | "
             << (row.wrong == 0 ? "none" : std::to_string(row.wrong)) << " |\n";
    return page.str();
}

std::string report::details(size_t most) const
{
    std::ostringstream text;
    for (const sum &row : sums_)
        for (size_t i = 0; i < row.texts.size() && i < most; i++)
            text << row.operation << "; " << row.fault << ": " << row.texts[i] << '\n';
    return text.str();
}
