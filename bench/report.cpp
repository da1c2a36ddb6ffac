#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <set>
#include <stdexcept>

namespace {

std::string number(double value)
{
    char text[32];
    snprintf(text, sizeof(text), "%.2f", value);
    return text;
}

std::string wans_text(const figure &row)
{
    return row.wans < 0 ? "" : std::to_string(row.wans);
}

std::string verdict(const figure &row)
{
    if (!row.most)
        return "";
    return row.reached() ? "reached" : "NOT REACHED";
}

} // namespace

void print_table(const std::vector<figure> &figures, FILE *out)
{
    fprintf(out, "%-42s %5s  %8s  %-15s %8s  %-11s  %s\n", "figure", "WANs", "median", "half of them",
            "at most", "", "measured against");
    for (const figure &row : figures) {
        const std::string range = number(row.value.low) + " to " + number(row.value.high);
        fprintf(out, "%-42s %5s  %8s  %-15s %8s  %-11s  %s%s%s\n", row.name.c_str(), wans_text(row).c_str(),
                number(row.value.median).c_str(), range.c_str(), row.most ? number(*row.most).c_str() : "",
                verdict(row).c_str(), row.against.c_str(), row.note.empty() ? "" : ": ", row.note.c_str());
    }
}

void write_csv(const std::vector<figure> &figures, const std::string &path)
{
    std::ofstream out(path);
    out << "figure,WANs,median,lower quartile,upper quartile,at most,reached,measured against\n";
    for (const figure &row : figures)
        out << '"' << row.name << "\"," << wans_text(row) << ',' << number(row.value.median) << ','
            << number(row.value.low) << ',' << number(row.value.high) << ','
            << (row.most ? number(*row.most) : "") << ',' << (row.most ? row.reached() ? "yes" : "no" : "")
            << ",\"" << row.against << "\"\n";
    if (!out.flush())
        throw std::runtime_error("cannot write " + path);
}

namespace {

// The plot's places: both axes have a logarithmic scale.
constexpr int width = 900, height = 520, left = 60, right = 330, top = 30, bottom = 50;
constexpr double least_wans = 7, most_wans = 280, least_ratio = 0.25, most_ratio = 4;

double x_of(double wans)
{
    return left + (width - left - right) * std::log(wans / least_wans) / std::log(most_wans / least_wans);
}

double y_of(double ratio)
{
    const double shown = std::clamp(ratio, least_ratio, most_ratio);
    return top + (height - top - bottom) * std::log(most_ratio / shown) / std::log(most_ratio / least_ratio);
}

void draw_text(std::ostream &out, double x, double y, const std::string &text, const char *anchor = "start")
{
    out << "<text x='" << number(x) << "' y='" << number(y) << "' text-anchor='" << anchor << "'>" << text
        << "</text>\n";
}

void draw_axes(std::ostream &out, const std::set<int> &wans)
{
    for (const double ratio : {0.25, 0.5, 1.0, 2.0, 4.0}) {
        out << "<line x1='" << left << "' x2='" << width - right << "' y1='" << number(y_of(ratio))
            << "' y2='" << number(y_of(ratio)) << "' stroke='" << (ratio == 1 ? "#888" : "#ddd") << "'/>\n";
        draw_text(out, left - 6, y_of(ratio) + 4, number(ratio), "end");
    }
    for (const int count : wans)
        draw_text(out, x_of(count), height - bottom + 20, std::to_string(count), "middle");
    draw_text(out, (left + width - right) / 2.0, height - 10, "WANs", "middle");
    draw_text(out, 6, top - 12, "ratio: the daemon to what cannot be avoided");
}

void draw_series(std::ostream &out, const std::vector<figure> &series, int index)
{
    constexpr const char *colours[] = {"#1b6ca8", "#c1440e", "#2e7d32", "#6a1b9a", "#8d6e00", "#00838f"};
    const char *const colour = colours[static_cast<size_t>(index) % std::size(colours)];
    const char *const dashes = static_cast<size_t>(index) < std::size(colours)       ? "none"
                               : static_cast<size_t>(index) < 2 * std::size(colours) ? "6 3"
                                                                                     : "2 3";
    std::string points;
    for (const figure &row : series) {
        const double x = x_of(row.wans);
        points += number(x) + "," + number(y_of(row.value.median)) + " ";
        out << "<line x1='" << number(x) << "' x2='" << number(x) << "' y1='" << number(y_of(row.value.low))
            << "' y2='" << number(y_of(row.value.high)) << "' stroke='" << colour << "' opacity='0.35'/>\n";
    }
    out << "<polyline points='" << points << "' fill='none' stroke='" << colour << "' stroke-width='2' "
        << "stroke-dasharray='" << dashes << "'/>\n";
    const int y = top + 10 + 20 * index;
    out << "<line x1='" << width - right + 15 << "' x2='" << width - right + 45 << "' y1='" << y - 4
        << "' y2='" << y - 4 << "' stroke='" << colour << "' stroke-width='2' stroke-dasharray='" << dashes
        << "'/>\n";
    draw_text(out, width - right + 52, y, series.front().name);
}

} // namespace

void write_plot(const std::vector<figure> &figures, const std::string &path)
{
    std::vector<std::vector<figure>> all;
    std::set<int> wans;
    for (const figure &row : figures) {
        if (row.wans < least_wans)
            continue;
        const auto found =
            std::ranges::find_if(all, [&](const auto &series) { return series[0].name == row.name; });
        (found == all.end() ? all.emplace_back() : *found).push_back(row);
    }
    std::erase_if(all, [](const auto &series) { return series.size() < 2; });
    for (const auto &series : all)
        for (const figure &row : series)
            wans.insert(row.wans);
    std::ofstream out(path);
    out << "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 " << width << ' ' << height
        << "' font-family='sans-serif' font-size='12'>\n<rect width='100%' height='100%' fill='white'/>\n";
    draw_axes(out, wans);
    for (size_t i = 0; i < all.size(); i++)
        draw_series(out, all[i], static_cast<int>(i));
    out << "</svg>\n";
    if (!out.flush())
        throw std::runtime_error("cannot write " + path);
}
