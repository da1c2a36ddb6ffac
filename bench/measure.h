// What the bench measures; each adds its figures.
#pragma once

#include "ground.h"
#include "report.h"

#include <cstdio>

struct effort {
    int rounds;                // of each comparison
    int requests;              // before the memory is looked at for the last time
    std::string smallest = {}; // where the programs of the smallest build are; empty: nowhere
};

using figures = std::vector<figure>;

void measure_changes(ground &gateway, const effort &effort, figures &out);
void measure_queries(ground &gateway, const effort &effort, figures &out);
void measure_latency(ground &gateway, const effort &effort, figures &out);
void measure_start(ground &gateway, const effort &effort, figures &out);
void measure_script(ground &gateway, const effort &effort, figures &out);
void measure_memory(ground &gateway, const effort &effort, figures &out);
void measure_size(ground &gateway, const effort &effort, figures &out);
