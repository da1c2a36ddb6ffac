// What an operation's works note, and what becomes of the notes.
#include "service/change.h"

#include "base/config.h"
#include "base/os.h"
#include "support/code_test.h"

#include <functional>

#include <cerrno>

// The one rename that the disk refuses.
constinit const char *immovable = nullptr;

extern "C" int __real_rename(const char *from, const char *to);
extern "C" int __wrap_rename(const char *from, const char *to);
extern "C" int __wrap_rename(const char *from, const char *to)
{
    if (!immovable || strcmp(to, immovable) != 0)
        return __real_rename(from, to);
    errno = EIO;
    return -1;
}

namespace {

// What a work does, said in place.
struct scripted_work {
    std::function<bool()> body;
    operation_work row()
    {
        return {[](void *self) { return static_cast<scripted_work *>(self)->body(); }, this};
    }
};

class change_test : public code_test {
protected:
    change_test() { gateway.set_config("t", "\nconfig globals 'g'\n\toption one '1'\n\n"); }
    ~change_test() override { (void)outcomes(); }

    static operation_result run(std::vector<scripted_work> works, uint8_t wan_id = 0)
    {
        std::vector<operation_work> rows;
        for (scripted_work &each : works)
            rows.push_back(each.row());
        return change_run(rows, wan_id);
    }

    // Those that were not taken yet, one line each.
    static text_lines outcomes()
    {
        text_lines lines;
        while (const wan_outcome *const next = outcome_next()) {
            lines.push_back(std::string(wan_action_name(next->action)) + ' ' + std::to_string(next->wanId) +
                            " '" + next->wanName + "' '" + next->device + "' " + next->result +
                            (next->conflict ? std::string(" conflict ") + next->conflict : "") +
                            (next->other ? " with " + std::to_string(next->other) : "") +
                            (next->file[0] ? std::string(" file ") + next->file : ""));
            outcome_taken();
        }
        return lines;
    }

    static bool set(const char *value) { return config_set("t", "g", "one", value) == 0; }
};

TEST_F(change_test, what_was_noted_is_told_in_order_once_it_is_on_disk)
{
    const operation_result result = run({{[] {
        note_wan(wan_action::deleted, 3, "3_A", "pon.3", true);
        note_wan(wan_action::created, 1, "1_B", "pon.1", false);
        EXPECT_EQ(text_lines{}, outcomes());
        return set("2");
    }}});

    EXPECT_EQ(operation_result::done, result);
    EXPECT_EQ("2", gateway.uci_get("t.g.one"));
    EXPECT_EQ(
        (text_lines{"deleted 3 '3_A' 'pon.3' OK", "created 1 '1_B' 'pon.1' a part could not be written"}),
        outcomes());
}

TEST_F(change_test, many_notes_of_one_change_are_all_told)
{
    (void)run({{[] {
        for (int id = 1; id <= 100; id++)
            note_wan(wan_action::deleted, static_cast<uint8_t>(id), "", "", true);
        return set("2");
    }}});

    const text_lines told = outcomes();
    ASSERT_EQ(100U, told.size());
    EXPECT_EQ("deleted 100 '' '' OK", told.back());
}

TEST_F(change_test, names_that_fill_their_fields_are_whole)
{
    (void)run({{[] {
        note_wan(wan_action::changed, 1, std::string(34, 'n'), std::string(12, 'd'), true);
        return set("2");
    }}});

    EXPECT_EQ(text_lines{"changed 1 '" + std::string(34, 'n') + "' '" + std::string(12, 'd') + "' OK"},
              outcomes());
}

TEST_F(change_test, a_refusal_is_told_with_the_wan_it_is_about_and_no_note_is)
{
    const operation_result result = run({{[] {
                                            note_subject("7_X", "pon.7");
                                            note_wan(wan_action::changed, 7, "7_Y", "pon.8", true);
                                            note_refusal(wan_action::refused, "the VLAN is taken", "vlan", 2);
                                            return false;
                                        }}},
                                        7);

    EXPECT_EQ(operation_result::refused, result);
    EXPECT_EQ(text_lines{"refused 7 '7_X' 'pon.7' the VLAN is taken conflict vlan with 2"}, outcomes());
}

TEST_F(change_test, a_failure_is_told_with_file_and_reason)
{
    gateway.set_config("t", "config\n  'broken");

    const operation_result result = run({{[] {
                                            note_subject("7_X", "pon.7");
                                            note_refusal(wan_action::refused, "not this", "vlan", 2);
                                            note_wan(wan_action::changed, 7, "7_X", "pon.7", true);
                                            (void)set("2");
                                            return true;
                                        }}},
                                        7);

    EXPECT_EQ(operation_result::failed, result);
    EXPECT_EQ(text_lines{"failed 7 '7_X' 'pon.7' it cannot be parsed file /etc/config/t"}, outcomes());
}

TEST_F(change_test, works_that_run_again_note_anew)
{
    int runs = 0;
    (void)run({{[&] {
        note_wan(wan_action::created, static_cast<uint8_t>(++runs), "", "", true);
        const bool changed = set("2");
        if (runs == 1) // another program, behind the load
            gateway.set_config("t", "\nconfig globals 'g'\n\toption theirs '1'\n\n");
        return changed;
    }}});

    EXPECT_EQ(2, runs);
    EXPECT_EQ(text_lines{"created 2 '' '' OK"}, outcomes());
}

TEST_F(change_test, works_of_a_later_stage_that_run_again_leave_the_notes_before_them)
{
    int first = 0, second = 0;
    (void)run({{[&] {
                   note_wan(wan_action::deleted, static_cast<uint8_t>(10 + ++first), "", "", true);
                   run_command("uci set t.g.theirs=1; uci commit t"); // when the first stage is in place
                   return set("2");
               }},
               {[&] {
                   note_wan(wan_action::created, static_cast<uint8_t>(20 + ++second), "", "", true);
                   note_wan(wan_action::created, static_cast<uint8_t>(30 + second), "", "", true);
                   return set("3");
               }}});

    EXPECT_EQ(1, first);
    EXPECT_EQ(2, second);
    EXPECT_EQ((text_lines{"deleted 11 '' '' OK", "created 22 '' '' OK", "created 32 '' '' OK"}), outcomes());
    EXPECT_EQ("1", gateway.uci_get("t.g.theirs"));
}

TEST_F(change_test, an_operation_that_changes_nothing_tells_nothing)
{
    EXPECT_EQ(operation_result::done, run({{[] { return true; }}}));

    EXPECT_EQ(text_lines{}, outcomes());
}

TEST_F(change_test, what_is_not_in_place_yet_is_told_as_that)
{
    immovable = "/etc/config/t";

    EXPECT_EQ(operation_result::done, run({{[] {
                  note_wan(wan_action::changed, 1, "1_A", "pon.1", true);
                  return set("2");
              }}}));
    immovable = nullptr;

    EXPECT_EQ(
        text_lines{"changed 1 '1_A' 'pon.1' not all of it is in place yet file /etc/config/.korvel.record"},
        outcomes());
}

TEST_F(change_test, notes_outside_a_change_go_nowhere)
{
    note_wan(wan_action::created, 1, "", "", true);
    note_subject("", "");
    note_refusal(wan_action::refused, "");

    EXPECT_EQ(text_lines{}, outcomes());
}

} // namespace
