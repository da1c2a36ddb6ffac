// A client of the bus, as the benchmarks need it.
#pragma once

#include <libubus.h>

#include <functional>
#include <map>
#include <string>

class bus {
public:
    bus(); // waits for the bus daemon; throws std::runtime_error when it does not come
    ~bus();
    bus(const bus &) = delete;
    bus &operator=(const bus &) = delete;

    // Whether an object is there now.
    bool has(const char *object) const;
    // Waits until an object is there, or is not. Throws std::runtime_error when that takes too long.
    void await(const char *object, bool there = true) const;

    // Calls a method and returns the bus status; with failure_out, the reply's "info" when its "status" is
    // below 0. The object's identifier is looked up in the first call only, and again after forget().
    int call(const char *object, const char *method, const std::string &json,
             std::string *failure_out = nullptr);
    // As call; throws std::runtime_error unless both say that it was done.
    void must_call(const char *object, const char *method, const std::string &json = "{}");
    void forget() { known_.clear(); }

private:
    uint32_t lookup(const char *object);

    ubus_context *context_ = nullptr;
    std::map<std::string, uint32_t, std::less<>> known_; // objects and their identifiers
    blob_buf arguments_ = {};
};
