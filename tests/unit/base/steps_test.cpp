// The form in which steps outlive the process, and the marks by which files are recognised.
#include "base/steps.h"

#include "support/gateway.h"

#include <filesystem>
#include <sys/stat.h>

namespace {

class steps_test : public gateway_test {
protected:
    static step full_step()
    {
        step which = {step_kind::put,
                      3,
                      {content_mark::file, 12, 0xfedcba9876543210},
                      {content_mark::nothing, 0, 0},
                      {},
                      {},
                      {}};
        text_ref(which.path).set("/etc/korvel/a script\twith = everything.sh");
        text_ref(which.temporary).set("/etc/korvel/.a script");
        text_ref(which.note).set("Failed to delete: 100%");
        return which;
    }

    static std::string printed(const step_list &steps)
    {
        size_t size = 0;
        char *const text = print_steps(steps, &size);
        const std::string result(text, size);
        free(text);
        return result;
    }
};

TEST_F(steps_test, steps_come_back_from_their_text_as_they_were)
{
    step_list steps;
    for (const char kind : {'=', '0', '+', '-', 'x', '!'}) {
        step each = full_step();
        each.kind = static_cast<step_kind>(kind);
        each.note[0] = kind == '!' ? '\0' : kind;
        ASSERT_TRUE(steps.add(each));
    }
    step longest = {};
    longest.kind = step_kind::run;
    memset(longest.path, 'p', sizeof(longest.path) - 1);
    memset(longest.temporary, 't', sizeof(longest.temporary) - 1);
    memset(longest.note, 'n', sizeof(longest.note) - 1);
    ASSERT_TRUE(steps.add(longest));
    const std::string text = printed(steps);

    step_list read;
    ASSERT_TRUE(parse_steps(text.data(), text.size(), read)) << text;

    ASSERT_EQ(steps.size(), read.size());
    for (size_t i = 0; i < steps.size(); i++) {
        SCOPED_TRACE(i);
        EXPECT_EQ(steps[i].kind, read[i].kind);
        EXPECT_EQ(steps[i].stage, read[i].stage);
        EXPECT_TRUE(steps[i].before == read[i].before);
        EXPECT_TRUE(steps[i].after == read[i].after);
        EXPECT_STREQ(steps[i].path, read[i].path);
        EXPECT_STREQ(steps[i].temporary, read[i].temporary);
        EXPECT_STREQ(steps[i].note, read[i].note);
    }
}

TEST_F(steps_test, a_text_that_is_not_whole_is_none)
{
    step_list steps;
    ASSERT_TRUE(steps.add(full_step()));
    const std::string text = printed(steps);
    for (size_t size = 0; size < text.size(); size++) {
        step_list read;
        EXPECT_FALSE(parse_steps(text.data(), size, read)) << size;
    }
    for (size_t at = 0; at < text.size(); at++) {
        std::string other = text;
        other[at] = static_cast<char>(other[at] ^ 1);
        step_list read;
        EXPECT_FALSE(parse_steps(other.data(), other.size(), read)) << at;
    }
    const std::string zeros(text.size(), '\0');
    step_list read;
    EXPECT_FALSE(parse_steps(zeros.data(), zeros.size(), read)) << "what a file system may leave";
}

TEST_F(steps_test, steps_are_inserted_and_erased_in_their_places)
{
    step_list steps;
    for (unsigned i = 0; i < 40; i++) {
        step each = full_step();
        each.stage = i;
        ASSERT_TRUE(steps.add(each));
    }
    step inserted = full_step();
    inserted.stage = 100;
    ASSERT_TRUE(steps.insert(1, inserted));
    steps.erase(0);

    ASSERT_EQ(40U, steps.size());
    EXPECT_EQ(100U, steps[0].stage);
    EXPECT_EQ(1U, steps[1].stage);
    EXPECT_EQ(39U, steps[39].stage);
}

TEST_F(steps_test, a_mark_tells_contents_apart)
{
    gateway.write_file("/tmp/one", "text");
    gateway.write_file("/tmp/same", "text");
    gateway.write_file("/tmp/other", "texu");
    gateway.write_file("/tmp/long", std::string(10000, 'x'));
    gateway.write_file("/tmp/longer", std::string(10000, 'x') + "x");
    gateway.write_file("/tmp/empty", "");
    std::filesystem::create_symlink("/tmp/one", "/tmp/link");
    ASSERT_EQ(0, mkfifo("/tmp/pipe", 0600));

    EXPECT_TRUE(mark_of("/tmp/one") == mark_of("/tmp/same"));
    EXPECT_FALSE(mark_of("/tmp/one") == mark_of("/tmp/other"));
    EXPECT_FALSE(mark_of("/tmp/long") == mark_of("/tmp/longer"));
    EXPECT_TRUE(mark_of("/tmp/empty") == mark_of_empty_file());
    EXPECT_EQ(content_mark::nothing, mark_of("/tmp/none").kind);
    for (const char *const path : {"/tmp/link", "/tmp/pipe", "/tmp"})
        EXPECT_EQ(content_mark::other, mark_of(path).kind) << path;
}

} // namespace
