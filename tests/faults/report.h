// What the tries came to, summed up.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

// One try as a worker tells it: fields separated by tabs, so that no text of it may hold one.
struct told_try {
    std::string operation, fault, outcome, text; // outcome: "before", "after" or "wrong"
    bool healed = false;

    std::string line() const;
    static told_try from_line(const std::string &line);
};

class report {
public:
    void add(const told_try &one);

    size_t tries() const { return tries_; }
    size_t wrong() const { return wrong_; }
    // The table of docs/faults.md and the sentences above it.
    std::string page(const std::string &heading) const;
    // Operation, fault and what was found for each try that went wrong, at most so many of each pair.
    std::string details(size_t most) const;

private:
    struct sum {
        std::string operation, fault;
        size_t tries = 0, before = 0, after = 0, wrong = 0, healed = 0;
        std::vector<std::string> texts;
    };
    sum &sum_of(const told_try &one);
    std::vector<sum> sums_;
    size_t tries_ = 0, wrong_ = 0;
};
