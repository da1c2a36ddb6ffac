// The operations that are put to the test, each with the gateway it starts from.
#pragma once

#include <span>
#include <vector>

struct bus_request {
    const char *method;
    const char *arguments;
};

// What it means when a request was answered with success.
enum class success {
    means_done,
    hides_failures, // done, unless some call failed
    promises,       // it will be tried
};

struct operation {
    const char *name;
    std::vector<bus_request> made_before; // on a gateway as shipped
    const char *prepared_by;              // shell commands after that, while the daemon is down
    bus_request request;                  // without a method: what the daemon does when it starts
    success meaning;
    bool in_short_form;
};

std::span<const operation> all_operations();

// A word that occurs in secrets only.
inline constexpr char secret_word[] = "hidden-word";
