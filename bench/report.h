// The bench's result: a table to read, the same as CSV, and a plot.
#pragma once

#include "rounds.h"

#include <optional>
#include <string>
#include <vector>

struct figure {
    std::string name;    // what was measured
    int wans = -1;       // with how many WANs; -1: with whatever
    std::string against; // what it is compared with; for a figure that is no ratio, its unit
    spread value;
    std::optional<double> most; // the greatest value to reach
    std::string note = {};

    bool reached() const { return !most || value.median <= *most; }
};

void print_table(const std::vector<figure> &figures, FILE *out);
void write_csv(const std::vector<figure> &figures, const std::string &path);
// Draws the ratios that were measured with several numbers of WANs, over those.
void write_plot(const std::vector<figure> &figures, const std::string &path);
