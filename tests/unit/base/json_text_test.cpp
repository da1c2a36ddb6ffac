// JSON texts, whole ones and broken ones, with memory and without.
#include "base/json_text.h"

#include "support/sanitizers.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr bool has_own_memory = !address_sanitizer && !thread_sanitizer;

// Allocations that are still made; none fails when negative.
thread_local int allocations_left = -1;

[[maybe_unused]] bool allocation_fails()
{
    if (allocations_left < 0)
        return false;
    if (allocations_left > 0) {
        allocations_left--;
        return false;
    }
    errno = ENOMEM;
    return true;
}

} // namespace

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// In place of the C library's, for the JSON library too.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);

void *malloc(size_t size)
{
    return allocation_fails() ? nullptr : __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    return allocation_fails() ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *memory, size_t size)
{
    return allocation_fails() ? nullptr : __libc_realloc(memory, size);
}
}
#endif

namespace {

struct put_json {
    void operator()(json_object *object) const { json_object_put(object); }
};
using json_ptr = std::unique_ptr<json_object, put_json>;

json_ptr read(const std::string &text)
{
    return json_ptr(json_read(text.c_str()));
}

// What the library, which has its memory here, makes of the text.
json_ptr read_by_library(const std::string &text)
{
    return json_ptr(json_tokener_parse(text.c_str()));
}

std::string printed(const json_ptr &value)
{
    return value ? json_object_to_json_string_ext(value.get(), JSON_C_TO_STRING_PLAIN) : "none";
}

constexpr char interface_status[] =
    R"({"up":true,"pending":false,"available":true,"autostart":true,"uptime":86400,"l3_device":"pppoe-wan_1",)"
    R"("proto":"pppoe","metric":0,"ipv4-address":[{"address":"203.0.113.7","mask":32,"ptpaddress":"203.0.113.1"}],)"
    R"("ipv6-address":[],"ipv6-prefix":[{"address":"2001:db8::","mask":56,"preferred":1800,"class":"wan_1_6",)"
    R"("assigned":{"lan":{"address":"2001:db8::","mask":60}}}],"route":[{"target":"0.0.0.0","mask":0,)"
    R"("nexthop":"203.0.113.1","source":"0.0.0.0\/0"}],"dns-server":["192.0.2.1","192.0.2.2"],"dns-search":[],)"
    R"("inactive":{"ipv4-address":[],"route":[]},"data":{"name":"caf\u00e9 \"\ud83d\ude00\"\n"}})";

TEST(json_text_test, whole_texts_are_what_the_library_makes_of_them)
{
    for (const char *const text : {interface_status,
                                   "{}",
                                   "[]",
                                   "[[],[{}]]",
                                   " \t\n{ \"a\" : 1 , \"b\" : [ 1 , 2 ] } ",
                                   R"({"a":1,"a":2})",
                                   "true",
                                   "False",
                                   "NULL",
                                   "\"\"",
                                   R"("\u0041\u00e9\u20ac\ud83d\ude00")",
                                   R"("\b\n\r\t\f\"\\\/")",
                                   "0",
                                   "-17",
                                   "2147483648",
                                   "9223372036854775807",
                                   "1.25",
                                   "1e3",
                                   "-1.5E-3",
                                   "'single'",
                                   R"({'a':'b"c'})",
                                   "[1,2,]",
                                   R"({"a":1,})",
                                   "[null,null]",
                                   R"({"a":null})",
                                   "{} and more",
                                   "\"tab\tin it\""}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(printed(read_by_library(text)), printed(read(text)));
        EXPECT_EQ(json_object_get_type(read_by_library(text).get()), json_object_get_type(read(text).get()));
    }
}

TEST(json_text_test, what_is_no_json_is_none)
{
    for (const char *const text :
         {"",        " ",        "{",         "[",         "}",           "x",      "{\"a\"",
          "{\"a\":", "{\"a\":1", "{\"a\" 1}", "{a:1}",     "[1",          "[1 2]",  "\"open",
          "'open",   "\"a'",     R"("\q")",   R"("\u12")", R"("\)",       "tru",    "nul",
          "-",       "+-1",      "1.2.3",     "1e",        "{\"a\":tru}", "[1,,2]", ","}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(nullptr, read(text));
    }
}

TEST(json_text_test, a_text_that_is_cut_anywhere_is_none)
{
    const std::string whole = interface_status;
    for (size_t length = 0; length < whole.size(); length++)
        EXPECT_EQ(nullptr, read(whole.substr(0, length))) << length;
}

// Two characters of a status differ: often the text is JSON still.
TEST(json_text_test, damaged_texts_are_what_the_library_makes_of_them)
{
    std::mt19937 random(11);
    size_t valid = 0;
    for (unsigned i = 0; i < 20000; i++) {
        std::string text = interface_status;
        for (unsigned k = 0; k < 2; k++)
            text[random() % text.size()] = " {}[]\",:0a'\\."[random() % 13];
        const json_ptr expected = read_by_library(text), found = read(text);
        valid += found != nullptr;
        ASSERT_EQ(printed(expected), printed(found)) << text;
    }
    EXPECT_LT(1000U, valid) << "or this compares nothing";
}

TEST(json_text_test, nesting_ends_where_the_librarys_does)
{
    for (const unsigned levels : {31U, 32U, 33U, 100U, 100000U}) {
        SCOPED_TRACE(levels);
        const std::string text = std::string(levels, '[') + std::string(levels, ']');
        EXPECT_EQ(read_by_library(text) != nullptr, read(text) != nullptr);
        EXPECT_EQ(levels <= 32, read(text) != nullptr);
    }
}

TEST(json_text_test, a_number_beyond_all_bounds_is_none)
{
    EXPECT_NE(nullptr, read(std::string(60, '7')));
    EXPECT_EQ(nullptr, read(std::string(200, '7')));
}

TEST(json_text_test, without_memory_it_is_the_whole_or_none)
{
    if (!has_own_memory)
        GTEST_SKIP() << "sanitizers have their own allocations";
    const std::string whole = printed(read(interface_status));
    bool complete = false;
    unsigned failures = 0;
    for (int i = 0; !complete; i++) {
        allocations_left = i;
        const json_ptr found(json_read(interface_status));
        allocations_left = -1;
        complete = found != nullptr;
        failures += !complete;
        EXPECT_EQ(complete ? whole : "none", printed(found));
        ASSERT_LT(i, 1000);
    }
    EXPECT_LT(50U, failures);
}

} // namespace
