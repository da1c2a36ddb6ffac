// Reading JSON that may be anything.
#include "base/json_guard.h"

#include <gtest/gtest.h>

namespace {

TEST(json_guard_test, only_text_that_is_json_makes_a_document)
{
    EXPECT_TRUE(json_document(R"({"a":1})"));
    EXPECT_TRUE(json_document("[]"));
    for (const char *const text : {"", "{", "x", "null"})
        EXPECT_FALSE(json_document(text)) << text;
}

TEST(json_guard_test, a_member_is_null_where_there_is_none)
{
    const json_document document(R"({"a":{"b":7},"n":null,"l":[1]})");

    json_object *const a = json_member(document.root(), "a");
    EXPECT_EQ(7, json_object_get_int(json_member(a, "b")));
    EXPECT_EQ(nullptr, json_member(a, "c"));
    EXPECT_EQ(nullptr, json_member(document.root(), "n"));
    EXPECT_EQ(nullptr, json_member(json_member(document.root(), "l"), "a"));
    EXPECT_EQ(nullptr, json_member(nullptr, "a"));
}

TEST(json_guard_test, what_is_no_array_has_no_entries)
{
    const json_document document(R"({"l":[1,2],"e":[],"s":"12"})");

    EXPECT_EQ(2U, json_array_size(json_member(document.root(), "l")));
    EXPECT_EQ(0U, json_array_size(json_member(document.root(), "e")));
    EXPECT_EQ(0U, json_array_size(json_member(document.root(), "s")));
    EXPECT_EQ(0U, json_array_size(nullptr));
}

} // namespace
