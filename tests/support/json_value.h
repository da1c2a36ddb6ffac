// A parsed JSON document as tests want to look at it: members are reached by name, a missing one names itself
// in the failure, and comparisons mind the type, so that 1 is not true.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

struct json_object;

class json_value {
public:
    json_value() = default;
    // Parses the whole text; what is no JSON gives an invalid value. Trailing text counts as no JSON.
    static json_value parse(std::string_view text);

    // Whether there is a document at all (JSON null is none).
    explicit operator bool() const { return object_ != nullptr; }
    bool is_table() const;
    bool is_array() const;

    // The member or entry; throws std::out_of_range with its name and the document when there is none.
    json_value at(const char *key) const;
    template <std::integral number> json_value at(number index) const
    {
        return entry(static_cast<size_t>(index));
    }
    bool has(const char *key) const;
    // Entries of an array or members of a table.
    size_t size() const;
    // The members' names in the order in which they were printed.
    std::vector<std::string> keys() const;

    // The value in that type; throws std::runtime_error when the document holds another type.
    int64_t integer() const;
    bool boolean() const;
    std::string string() const;

    // The document in one line, members in their order.
    std::string text() const;

    friend bool operator==(const json_value &value, bool expected) { return value.holds(expected); }
    template <std::integral number>
    requires(!std::same_as<number, bool>) friend bool operator==(const json_value &value, number expected)
    {
        return value.holds(static_cast<int64_t>(expected));
    }
    friend bool operator==(const json_value &value, std::string_view expected)
    {
        return value.holds(expected);
    }
    friend bool operator==(const json_value &value, const char *expected)
    {
        return value.holds(std::string_view(expected));
    }
    friend bool operator==(const json_value &left, const json_value &right)
    {
        return left.text() == right.text();
    }
    friend void PrintTo(const json_value &value, std::ostream *out) { *out << value.text(); }

private:
    json_value entry(size_t index) const;
    bool holds(bool expected) const;
    bool holds(int64_t expected) const;
    bool holds(std::string_view expected) const;

    std::shared_ptr<json_object> object_;
};
