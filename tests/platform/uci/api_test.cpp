// The library's functions: results, what they leave in memory, and what they leave in files.
#include "platform/uci/c_caller.h"
#include "platform/uci/fixture.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <map>

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using strings = std::vector<std::string>;

class uci_api_test : public uci_base_test {
protected:
    // A lookup of a tuple, which stays alive until the next one.
    int look_up(uci_ptr *ptr, const char *tuple, bool extended = true)
    {
        tuple_ = tuple;
        return uci_lookup_ptr(ctx, ptr, tuple_.data(), extended);
    }

    uci_section *section(uci_package *p, const char *name) { return uci_lookup_section(ctx, p, name); }

    int set(const char *section_name, const char *option, const char *value)
    {
        uci_ptr ptr = named("n", section_name, option, value);
        return uci_set(ctx, &ptr);
    }

private:
    std::string tuple_;
};

bool is_complete(const uci_ptr &ptr)
{
    return (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0;
}

bool is_all_zero(const uci_ptr &ptr)
{
    return !ptr.package && !ptr.section && !ptr.option && !ptr.value && !ptr.p && !ptr.s && !ptr.o &&
           !ptr.last && ptr.flags == 0 && ptr.target == UCI_TYPE_UNSPEC;
}

void set_extended(uci_ptr *ptr)
{
    ptr->flags = uci_ptr::UCI_LOOKUP_EXTENDED;
}

// ---- contexts ----

TEST_F(uci_api_test, a_new_context_has_the_defaults)
{
    const context_owner fresh(uci_alloc_context());

    EXPECT_STREQ(fresh->confdir, "/etc/config");
    EXPECT_STREQ(fresh->savedir, "/tmp/.uci");
    EXPECT_STREQ(fresh->conf2dir, "/var/run/uci");
    EXPECT_EQ(fresh->flags, UCI_FLAG_STRICT | UCI_FLAG_SAVED_DELTA);
    EXPECT_STREQ(list_to_element(fresh->delta_path.next)->name, "/tmp/.uci");
    EXPECT_TRUE(uci_list_empty(&fresh->root));
}

TEST_F(uci_api_test, the_save_directory_is_the_last_of_the_delta_path)
{
    EXPECT_EQ(uci_add_delta_path(ctx, "/x"), UCI_OK);
    EXPECT_EQ(uci_add_delta_path(ctx, "/x"), UCI_ERR_DUPLICATE);
    EXPECT_EQ(uci_set_savedir(ctx, "/y"), UCI_OK);
    EXPECT_EQ(uci_set_savedir(ctx, "/x"), UCI_OK);

    strings path;
    uci_element *e;
    uci_foreach_element(&ctx->delta_path, e) path.emplace_back(e->name);
    EXPECT_EQ(path, (strings{"/tmp/.uci", save_dir, "/y", "/x"}));
    EXPECT_STREQ(ctx->savedir, "/x");
}

TEST_F(uci_api_test, null_arguments_are_refused)
{
    uci_ptr ptr = {};
    uci_element *e;
    uci_package *none = nullptr;
    char **list;
    EXPECT_EQ(uci_set_confdir(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set_savedir(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set_conf2dir(ctx, nullptr), UCI_OK);
    EXPECT_EQ(uci_add_delta_path(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_list_configs(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_parse_ptr(ctx, nullptr, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_lookup_ptr(ctx, nullptr, nullptr, true), UCI_ERR_INVAL);
    EXPECT_EQ(uci_lookup_next(ctx, nullptr, &ctx->root, "n"), UCI_ERR_INVAL);
    EXPECT_EQ(uci_load(ctx, nullptr, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_unload(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_save(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(ctx, nullptr, false), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(ctx, &none, false), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set(ctx, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_export(ctx, nullptr, nullptr, false), UCI_ERR_INVAL);
    EXPECT_EQ(uci_reorder_section(ctx, nullptr, 0), UCI_ERR_INVAL);
    EXPECT_EQ(uci_add_section(ctx, nullptr, "t", nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_import(ctx, nullptr, "i", &none, true), UCI_ERR_INVAL);

    EXPECT_EQ(uci_load(nullptr, "n", nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_lookup_ptr(nullptr, &ptr, nullptr, true), UCI_ERR_INVAL);
    EXPECT_EQ(uci_parse_ptr(nullptr, &ptr, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_lookup_next(nullptr, &e, nullptr, "n"), UCI_ERR_INVAL);
    EXPECT_EQ(uci_list_configs(nullptr, &list), UCI_ERR_INVAL);
    EXPECT_EQ(uci_set(nullptr, &ptr), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(nullptr, &none, false), UCI_ERR_INVAL);
    EXPECT_EQ(error_text(nullptr), "p: Invalid argument");
    uci_free_context(nullptr);
}

TEST_F(uci_api_test, every_code_has_its_text)
{
    const char *const texts[] = {"Success",   "Out of memory", "Invalid argument", "Entry not found",
                                 "I/O error", "Parse error",   "Duplicate entry",  "Unknown error"};
    for (int code = UCI_OK; code < UCI_ERR_LAST; code++) {
        ctx->err = code;
        EXPECT_EQ(error_text(ctx), std::string("p: ") + texts[code]);
    }
    for (const int code : {-1, UCI_ERR_LAST + 0, 99}) {
        ctx->err = code;
        EXPECT_EQ(error_text(ctx), "p: Unknown error");
    }
    char *message = nullptr;
    uci_get_errorstr(ctx, &message, nullptr);
    EXPECT_STREQ(message, "Unknown error");
    free(message);
}

TEST_F(uci_api_test, the_position_of_a_parse_error_does_not_stay_behind)
{
    write(config_path("bad"), "foo\n");
    EXPECT_EQ(uci_load(ctx, "bad", nullptr), UCI_ERR_PARSE);
    EXPECT_EQ(error_text(ctx), "p: Parse error (invalid command) at line 1, byte 0");

    uci_ptr ptr;
    EXPECT_EQ(look_up(&ptr, "n.a.b.c"), UCI_ERR_PARSE);
    EXPECT_EQ(error_text(ctx), "p: Parse error");
}

TEST_F(uci_api_test, perror_prints_one_line)
{
    ctx->err = UCI_ERR_NOTFOUND;
    testing::internal::CaptureStderr();
    uci_perror(ctx, "x");
    uci_perror(ctx, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "x: Entry not found\nEntry not found\n");
}

TEST_F(uci_api_test, list_configs_names_plain_files_only)
{
    write(config_path("a"), "");
    write(config_path("b.c"), "");
    write(config_path(".h"), "");
    write(config_path("x y"), "");
    fs::create_directory(config_path("dir"));
    fs::create_symlink("a", config_path("link"));
    fs::create_symlink("nowhere", config_path("dangling"));
    char **list = nullptr;

    ASSERT_EQ(uci_list_configs(ctx, &list), UCI_OK);

    strings names;
    for (char **name = list; *name; name++)
        names.emplace_back(*name);
    free(list);
    EXPECT_EQ(names, (strings{"a", "link", "n"}));
    EXPECT_EQ(uci_set_confdir(ctx, (root + "/nope").c_str()), UCI_OK);
    EXPECT_EQ(uci_list_configs(ctx, &list), UCI_ERR_NOTFOUND);
    fs::create_directory(root + "/nope");
    EXPECT_EQ(uci_list_configs(ctx, &list), UCI_ERR_NOTFOUND);
}

TEST_F(uci_api_test, values_may_hold_any_byte_but_control_bytes)
{
    EXPECT_TRUE(uci_validate_text(""));
    EXPECT_TRUE(uci_validate_text("a\t\r\n\x7f\xff"));
    EXPECT_FALSE(uci_validate_text("\x1b"));
    EXPECT_FALSE(uci_validate_text("a\v"));
    EXPECT_FALSE(uci_validate_text(nullptr));
}

// ---- loading ----

TEST_F(uci_api_test, a_package_is_loaded_once)
{
    uci_package *const first = load();
    uci_package marker, *again = &marker;

    EXPECT_EQ(uci_load(ctx, "n", &again), UCI_ERR_DUPLICATE);

    EXPECT_EQ(again, &marker);
    EXPECT_EQ(uci_lookup_package(ctx, "n"), first);
    EXPECT_EQ(uci_unload(ctx, first), UCI_OK);
    EXPECT_EQ(uci_lookup_package(ctx, "n"), nullptr);
    EXPECT_EQ(uci_load(ctx, "n", nullptr), UCI_OK);
}

TEST_F(uci_api_test, a_load_tells_why_it_fails)
{
    fs::create_directory(config_path("dir"));
    fs::create_symlink("n", config_path("link"));
    fs::create_symlink("nowhere", config_path("dangling"));
    fs::create_symlink("loop", config_path("loop"));
    const std::string longer_than_any_file(NAME_MAX + 1, 'n');
    const std::pair<const char *, int> cases[] = {
        {"nope", UCI_ERR_NOTFOUND},
        {"", UCI_ERR_INVAL},
        {"a b", UCI_ERR_INVAL},
        {"../n", UCI_ERR_NOTFOUND},
        {".n", UCI_ERR_NOTFOUND},
        {"dir", UCI_ERR_NOTFOUND},
        {"dangling", UCI_ERR_NOTFOUND},
        {"\x80", UCI_ERR_INVAL},
        {"./nope", UCI_ERR_NOTFOUND},
        {"/", UCI_ERR_INVAL},
        {"n/x", UCI_ERR_NOTFOUND},
        {"link", UCI_OK},
        {"/dev/null", UCI_ERR_NOTFOUND},
        {"loop", UCI_ERR_NOTFOUND},
        {longer_than_any_file.c_str(), UCI_ERR_NOTFOUND},
    };
    for (const auto &[name, code] : cases) {
        SCOPED_TRACE(name);
        uci_package marker, *p = &marker;
        EXPECT_EQ(uci_load(ctx, name, &p), code);
        EXPECT_EQ(ctx->err, code);
        EXPECT_EQ(p == &marker, code != UCI_OK);
    }
}

TEST_F(uci_api_test, a_broken_file_is_not_kept_in_the_context)
{
    write_config("config t n\n\toption a b c\n");

    EXPECT_EQ(uci_load(ctx, "n", nullptr), UCI_ERR_PARSE);

    EXPECT_EQ(uci_lookup_package(ctx, "n"), nullptr);
    EXPECT_EQ(ctx->err, UCI_ERR_NOTFOUND);
    EXPECT_EQ(uci_load(ctx, "n", nullptr), UCI_ERR_PARSE);
    EXPECT_EQ(error_text(ctx), "p: Parse error (too many arguments) at line 2, byte 14");
}

TEST_F(uci_api_test, a_pipe_is_refused_without_waiting)
{
    ASSERT_EQ(mkfifo(config_path("pipe").c_str(), 0600), 0);

    EXPECT_EQ(uci_load(ctx, "pipe", nullptr), UCI_ERR_NOTFOUND);
}

TEST_F(uci_api_test, an_override_file_comes_first)
{
    const std::string overrides = root + "/overrides";
    fs::create_directory(overrides);
    write(overrides + "/n", "config t over\n");
    ASSERT_EQ(uci_set_conf2dir(ctx, overrides.c_str()), UCI_OK);

    uci_package *const p = load();
    EXPECT_NE(section(p, "over"), nullptr);
    EXPECT_EQ(p->path, overrides + "/n");

    uci_unload(ctx, p);
    fs::remove(overrides + "/n");
    fs::create_directory(overrides + "/n");
    EXPECT_EQ(uci_load(ctx, "n", nullptr), UCI_ERR_NOTFOUND);
}

// ---- lookup ----

TEST_F(uci_api_test, elements_are_found_by_exact_name)
{
    uci_package *const p = load();
    uci_element *e = nullptr;

    EXPECT_EQ(uci_lookup_next(ctx, &e, &p->sections, "lan"), UCI_OK);
    EXPECT_EQ(e->type, UCI_TYPE_SECTION);
    EXPECT_EQ(uci_lookup_next(ctx, &e, &p->sections, "zz"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(e, nullptr);
    EXPECT_EQ(uci_lookup_next(ctx, &e, &p->sections, "@device[0]"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(uci_lookup_next(ctx, &e, &p->sections, "cfg020f15"), UCI_OK);
    EXPECT_TRUE(uci_to_section(e)->anonymous);
    EXPECT_STREQ(uci_lookup_option_string(ctx, uci_to_section(e), "name"), "br-lan");
    EXPECT_EQ(uci_lookup_option_string(ctx, uci_to_section(e), "ports"), nullptr);
    EXPECT_EQ(uci_lookup_option_string(ctx, uci_to_section(e), "zz"), nullptr);
    EXPECT_EQ(uci_lookup_next(ctx, &e, &ctx->root, "n"), UCI_OK);
    EXPECT_EQ(uci_to_package(e), p);
}

TEST_F(uci_api_test, a_tuple_is_looked_up_as_far_as_it_goes)
{
    uci_ptr ptr;
    EXPECT_EQ(look_up(&ptr, "n.lan.zz"), UCI_OK);
    EXPECT_FALSE(is_complete(ptr));
    EXPECT_TRUE(ptr.flags & uci_ptr::UCI_LOOKUP_DONE);
    EXPECT_STREQ(ptr.s->e.name, "lan");
    EXPECT_EQ(ptr.o, nullptr);
    EXPECT_EQ(ptr.last, &ptr.s->e);

    EXPECT_EQ(look_up(&ptr, "n.zz.proto"), UCI_OK);
    EXPECT_FALSE(is_complete(ptr));
    EXPECT_EQ(ptr.s, nullptr);
    EXPECT_EQ(ptr.last, &ptr.p->e);

    EXPECT_EQ(look_up(&ptr, "n.lan.proto"), UCI_OK);
    EXPECT_TRUE(is_complete(ptr));
    EXPECT_EQ(ptr.last, &ptr.o->e);
    EXPECT_EQ(ptr.target, UCI_TYPE_OPTION);
    EXPECT_EQ(look_up(&ptr, "n"), UCI_OK);
    EXPECT_TRUE(is_complete(ptr));
    EXPECT_EQ(ptr.target, UCI_TYPE_PACKAGE);
}

TEST_F(uci_api_test, a_reference_becomes_the_name_of_its_section)
{
    uci_ptr ptr;
    EXPECT_EQ(look_up(&ptr, "n.@device[1].name"), UCI_OK);
    EXPECT_TRUE(is_complete(ptr));
    EXPECT_STREQ(ptr.section, "cfg040f15");
    EXPECT_STREQ(ptr.o->v.string, "pon.1");
    EXPECT_EQ(look_up(&ptr, "n.@device[1].name", false), UCI_ERR_INVAL);

    const std::pair<const char *, const char *> references[] = {
        {"n.@device[0]", "cfg020f15"},
        {"n.@device[-1]", "cfg040f15"},
        {"n.@device[-2]", "cfg020f15"},
        {"n.@device[]", "cfg020f15"},
        {"n.@device[01]", "cfg040f15"},
        {"n.@[ +3]", "cfg040f15"},
        {"n.@interface[0]", "lan"},
        {"n.@[0]", "g"},
        {"n.@[-1]", "cfg040f15"},
        {"n.@[2]", "lan"},
        {"n.@device[2]", nullptr},
        {"n.@device[-3]", nullptr},
        {"n.@dev[0]", nullptr},
        {"n.@devices[0]", nullptr},
        {"n.@[99999999999999999999]", nullptr},
        {"n.@[-99999999999999999999]", nullptr},
    };
    for (const auto &[tuple, name] : references) {
        SCOPED_TRACE(tuple);
        EXPECT_EQ(look_up(&ptr, tuple), UCI_OK);
        EXPECT_EQ(is_complete(ptr), name != nullptr);
        EXPECT_STREQ(ptr.s ? ptr.s->e.name : nullptr, name);
    }
}

TEST_F(uci_api_test, a_ptr_looked_up_again_is_complete_only_if_all_is_found_again)
{
    uci_ptr ptr = named("n", "lan", "proto");
    ASSERT_EQ(uci_lookup_ptr(ctx, &ptr, nullptr, false), UCI_OK);
    ASSERT_TRUE(is_complete(ptr));

    ptr.o = nullptr;
    ptr.option = "zz";
    EXPECT_EQ(uci_lookup_ptr(ctx, &ptr, nullptr, false), UCI_OK);

    EXPECT_FALSE(is_complete(ptr));
    EXPECT_EQ(ptr.last, &ptr.s->e);
}

TEST_F(uci_api_test, malformed_tuples_are_refused_and_leave_nothing)
{
    const std::pair<const char *, int> cases[] = {
        {"nope.a", UCI_ERR_NOTFOUND}, {"n.lan.", UCI_ERR_PARSE},
        {"n.lan.a.b", UCI_ERR_PARSE}, {"", UCI_ERR_PARSE},
        {"a b.c", UCI_ERR_PARSE},     {".lan", UCI_ERR_PARSE},
        {"n.lan.a-b", UCI_ERR_PARSE}, {"n.lan.a=\x1b", UCI_ERR_PARSE},
        {"n.@x", UCI_ERR_INVAL},      {"n.@x[a]", UCI_ERR_INVAL},
        {"n.@x[0]y", UCI_ERR_INVAL},  {"n.foo-bar", UCI_ERR_INVAL},
        {"n..a", UCI_ERR_INVAL},      {"n.", UCI_ERR_INVAL},
        {"n.@[", UCI_ERR_INVAL},      {"n.@device[0x1]", UCI_ERR_INVAL},
    };
    for (const auto &[tuple, code] : cases) {
        SCOPED_TRACE(tuple);
        uci_ptr ptr;
        EXPECT_EQ(look_up(&ptr, tuple), code);
        EXPECT_EQ(ptr.flags & uci_ptr::UCI_LOOKUP_DONE, 0);
        EXPECT_TRUE(code == UCI_ERR_NOTFOUND || is_all_zero(ptr));
    }
}

TEST_F(uci_api_test, a_tuple_is_split_at_its_first_equals_sign)
{
    uci_ptr ptr;
    char tuple[] = "n.@t[0].o=a.b=c";
    EXPECT_EQ(uci_parse_ptr(ctx, &ptr, tuple), UCI_OK);
    EXPECT_STREQ(ptr.package, "n");
    EXPECT_STREQ(ptr.section, "@t[0]");
    EXPECT_STREQ(ptr.option, "o");
    EXPECT_STREQ(ptr.value, "a.b=c");
    EXPECT_EQ(ptr.target, UCI_TYPE_OPTION);
    EXPECT_EQ(ptr.flags, uci_ptr::UCI_LOOKUP_EXTENDED);
    EXPECT_EQ(ptr.p, nullptr);
    EXPECT_TRUE(uci_list_empty(&ctx->root));

    char package_only[] = "n=";
    EXPECT_EQ(uci_parse_ptr(ctx, &ptr, package_only), UCI_OK);
    EXPECT_STREQ(ptr.value, "");
    EXPECT_EQ(ptr.section, nullptr);
    EXPECT_EQ(uci_parse_ptr(ctx, &ptr, nullptr), UCI_ERR_INVAL);
}

TEST_F(uci_api_test, an_element_filled_in_stands_for_what_it_is_in)
{
    uci_package *const p = load();
    uci_section *const lan = section(p, "lan");

    uci_ptr ptr = {};
    ptr.s = lan;
    EXPECT_EQ(uci_lookup_ptr(ctx, &ptr, nullptr, false), UCI_OK);
    EXPECT_TRUE(is_complete(ptr));
    EXPECT_EQ(ptr.p, p);
    EXPECT_EQ(ptr.last, &lan->e);

    ptr = {};
    ptr.o = uci_lookup_option(ctx, lan, "proto");
    ptr.value = "dhcp";
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
    EXPECT_EQ(ptr.s, lan);
    EXPECT_STREQ(uci_lookup_option_string(ctx, lan, "proto"), "dhcp");
}

// The names in a ptr may be those of the elements that go away.
TEST_F(uci_api_test, names_borrowed_from_elements_are_not_used_after_their_end)
{
    uci_package *p = load();
    uci_section *lan = section(p, "lan");
    uci_ptr ptr = named(p->e.name, lan->e.name, uci_lookup_option(ctx, lan, "proto")->e.name);
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_OK);
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_ERR_NOTFOUND);

    ptr = named(p->e.name, lan->e.name);
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_OK);
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_ERR_NOTFOUND);
    EXPECT_EQ(uci_save(ctx, p), UCI_OK);
    EXPECT_EQ(delta(), "-n.lan.proto\n-n.lan\n");

    ptr = named(p->e.name, section(p, "g")->e.name);
    EXPECT_EQ(uci_revert(ctx, &ptr), UCI_OK);
    EXPECT_EQ(ptr.package, nullptr);
    EXPECT_EQ(ptr.section, nullptr);
    EXPECT_EQ(ptr.last, &ptr.p->e);
}

TEST_F(uci_api_test, names_filled_in_are_taken_literally_unless_marked_as_references)
{
    uci_ptr ptr = named("n", "@device[0]", "name", "z");
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_ERR_INVAL);

    ptr = named("n", "@device[0]", "name", "z");
    set_extended(&ptr);
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
    EXPECT_STREQ(ptr.section, "cfg020f15");

    ptr = named("n", "foo-bar", "name", "z");
    set_extended(&ptr);
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_ERR_INVAL);
    EXPECT_TRUE(is_all_zero(ptr));
}

// ---- changes ----

TEST_F(uci_api_test, a_change_reaches_the_delta_by_save_and_the_file_by_commit)
{
    uci_ptr ptr = named("n", "lan", "proto", "dhcp");
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
    EXPECT_EQ(config(), base_config);
    EXPECT_EQ(delta(), std::nullopt);

    EXPECT_EQ(uci_save(ctx, ptr.p), UCI_OK);
    EXPECT_EQ(config(), base_config);
    EXPECT_EQ(delta(), "n.lan.proto='dhcp'\n");
    EXPECT_STREQ(ptr.o->v.string, "dhcp"); // saving keeps all elements

    EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_OK);
    EXPECT_EQ(delta(), "");
    EXPECT_NE(config()->find("\toption proto 'dhcp'\n"), std::string::npos);
}

TEST_F(uci_api_test, equal_values_are_appended_in_order)
{
    uci_ptr ptr;
    for (const char *value : {"1", "0", "1"}) {
        ptr = named("n", "cfg040f15", "pb", value);
        EXPECT_EQ(uci_add_list(ctx, &ptr), UCI_OK);
    }
    EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_OK);

    EXPECT_EQ(config(), written_base.substr(0, written_base.size() - 1) +
                            "\tlist pb '1'\n\tlist pb '0'\n\tlist pb '1'\n\n");
}

TEST_F(uci_api_test, a_ptr_looked_up_can_append_several_values)
{
    uci_ptr ptr = named("n", "cfg020f15", "ports", "c");
    for (const char *value : {"c", "d"}) {
        ptr.value = value;
        EXPECT_EQ(uci_add_list(ctx, &ptr), UCI_OK);
    }
    EXPECT_EQ(values_of(ctx, ptr.s, "ports"), (strings{"a", "b", "c", "d"}));
}

TEST_F(uci_api_test, a_ptr_that_made_an_element_does_not_find_it)
{
    uci_ptr ptr = named("n", "lan", "made", "1");
    ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_ERR_NOTFOUND);
    EXPECT_EQ(uci_rename(ctx, &ptr), UCI_ERR_NOTFOUND);
    ptr.value = "";
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
    EXPECT_STREQ(uci_lookup_option_string(ctx, section(ptr.p, "lan"), "made"), "1");

    ptr = named("n", "made", nullptr, "t");
    ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_ERR_NOTFOUND);
    ptr.value = "";
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
    EXPECT_NE(section(ptr.p, "made"), nullptr);

    ptr = named("n", "made");
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_OK) << "a fresh one finds it";
}

TEST_F(uci_api_test, a_commit_needs_a_loaded_package)
{
    uci_ptr ptr = named("n", "lan", "proto", "x");
    EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(ctx, nullptr, false), UCI_ERR_INVAL);

    EXPECT_EQ(config(), base_config);
    EXPECT_EQ(delta(), std::nullopt);
    EXPECT_TRUE(uci_list_empty(&ctx->root));
}

TEST_F(uci_api_test, set_judges_place_and_value)
{
    EXPECT_EQ(set("lan", "proto", nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(set("lan", "zz", ""), UCI_OK);
    EXPECT_EQ(set("zz", "a", "1"), UCI_ERR_INVAL);
    EXPECT_EQ(set("zz", nullptr, "a b"), UCI_ERR_INVAL);
    EXPECT_EQ(set("zz", nullptr, ""), UCI_OK);
    EXPECT_EQ(set(nullptr, nullptr, "x"), UCI_ERR_INVAL);
    EXPECT_EQ(set(nullptr, "o", "x"), UCI_ERR_INVAL);
    EXPECT_EQ(set("lan", "proto", "static"), UCI_OK);
    EXPECT_EQ(set("lan", nullptr, "interface"), UCI_OK);
    uci_ptr missing = named("nope", "lan", "proto", "x");
    EXPECT_EQ(uci_set(ctx, &missing), UCI_ERR_NOTFOUND);
    EXPECT_TRUE(uci_list_empty(&uci_lookup_package(ctx, "n")->delta));

    uci_ptr ptr = named("n", "lan", "proto", "");
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
    EXPECT_EQ(ptr.o, nullptr);
    EXPECT_EQ(uci_lookup_option(ctx, ptr.s, "proto"), nullptr);
}

TEST_F(uci_api_test, set_replaces_in_place_and_appends_what_is_new)
{
    EXPECT_EQ(set("cfg020f15", "name", "longer than before"), UCI_OK);
    EXPECT_EQ(set("cfg020f15", "ports", "one"), UCI_OK);
    EXPECT_EQ(set("cfg020f15", "z", "last"), UCI_OK);
    EXPECT_EQ(set("cfg020f15", nullptr, "bridge"), UCI_OK);
    EXPECT_EQ(set("w", nullptr, "t"), UCI_OK);

    uci_package *const p = uci_lookup_package(ctx, "n");
    EXPECT_EQ(exported(ctx, p),
              "\nconfig globals 'g'\n\toption u '1'\n"
              "\nconfig bridge\n\toption name 'longer than before'\n\toption ports 'one'\n\toption z 'last'\n"
              "\nconfig interface 'lan'\n\toption proto 'static'\n"
              "\nconfig device\n\toption name 'pon.1'\n\nconfig t 'w'\n\n");
    EXPECT_EQ(uci_save(ctx, p), UCI_OK);
    EXPECT_EQ(delta(),
              "n.cfg020f15.name='longer than before'\nn.cfg020f15.ports='one'\nn.cfg020f15.z='last'\n"
              "n.cfg020f15='bridge'\nn.w='t'\n");
}

TEST_F(uci_api_test, an_option_renamed_onto_a_taken_name_leaves_the_first_to_be_found)
{
    EXPECT_EQ(set("g", "last", "2"), UCI_OK);
    uci_ptr ptr = named("n", "g", "last", "u");
    EXPECT_EQ(uci_rename(ctx, &ptr), UCI_OK);

    EXPECT_STREQ(uci_lookup_option_string(ctx, ptr.s, "u"), "1");
    EXPECT_EQ(set("g", "u", "3"), UCI_OK);
    EXPECT_TRUE(exported(ctx, ptr.p).starts_with("\nconfig globals 'g'\n\toption u '3'\n\toption u '2'\n\n"));
}

// Longer than what the library takes from the system at a time.
TEST_F(uci_api_test, texts_of_any_length_are_kept)
{
    std::string expected = "\nconfig globals 'g'\n\toption u '1'\n\nconfig device";
    for (const size_t length : {4000, 4096, 5000, 100000, 3}) {
        const std::string name = "o" + std::to_string(length), value(length, 'v');
        EXPECT_EQ(set("g", name.c_str(), value.c_str()), UCI_OK);
        EXPECT_EQ(set("g", name.c_str(), (value + "2").c_str()), UCI_OK);
        expected.insert(expected.find("\n\nconfig device"), "\n\toption " + name + " '" + value + "2'");
    }
    const std::string section_name(5000, 's');
    EXPECT_EQ(set(section_name.c_str(), nullptr, "t"), UCI_OK);

    uci_package *const p = uci_lookup_package(ctx, "n");
    EXPECT_TRUE(exported(ctx, p).starts_with(expected));
    ASSERT_NE(section(p, section_name.c_str()), nullptr);
    EXPECT_EQ(section(p, section_name.c_str())->e.name, section_name);
}

TEST_F(uci_api_test, an_empty_type_deletes_the_section)
{
    uci_ptr ptr = named("n", "lan", nullptr, "");

    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);

    EXPECT_EQ(ptr.s, nullptr);
    EXPECT_EQ(section(ptr.p, "lan"), nullptr);
    EXPECT_EQ(uci_save(ctx, ptr.p), UCI_OK);
    EXPECT_EQ(delta(), "-n.lan\n");
}

TEST_F(uci_api_test, add_list_judges_its_place)
{
    uci_ptr ptr = named("n", "zz", "l", "1");
    EXPECT_EQ(uci_add_list(ctx, &ptr), UCI_ERR_INVAL);
    ptr = named("n", "lan", "l", nullptr);
    EXPECT_EQ(uci_add_list(ctx, &ptr), UCI_ERR_INVAL);
    ptr = named("n", "lan", nullptr, "1");
    EXPECT_EQ(uci_add_list(ctx, &ptr), UCI_ERR_INVAL);
    ptr = named("n", "lan", "proto", "");
    EXPECT_EQ(uci_add_list(ctx, &ptr), UCI_OK);
    EXPECT_EQ(values_of(ctx, ptr.s, "proto"), (strings{"static", ""}));
}

TEST_F(uci_api_test, del_list_succeeds_when_there_is_nothing_to_remove)
{
    const auto del = [this](const char *section_name, const char *option, const char *value) {
        uci_ptr ptr = named("n", section_name, option, value);
        return uci_del_list(ctx, &ptr);
    };
    EXPECT_EQ(del("cfg020f15", "name", "br-lan"), UCI_OK);
    EXPECT_EQ(del("cfg020f15", "zz", "x"), UCI_OK);
    EXPECT_EQ(del("cfg020f15", nullptr, "x"), UCI_OK);
    EXPECT_EQ(del(nullptr, nullptr, "x"), UCI_ERR_INVAL);
    EXPECT_EQ(del("zz", "ports", "x"), UCI_ERR_INVAL);
    EXPECT_EQ(del("cfg020f15", "ports", nullptr), UCI_ERR_INVAL);
    uci_package *p = uci_lookup_package(ctx, "n");
    EXPECT_TRUE(uci_list_empty(&p->delta));

    EXPECT_EQ(del("cfg020f15", "ports", "absent"), UCI_OK);
    EXPECT_FALSE(uci_list_empty(&p->delta)); // an absent value is recorded: someone may add it meanwhile
    EXPECT_EQ(del("cfg020f15", "ports", "a"), UCI_OK);
    EXPECT_EQ(del("cfg020f15", "ports", "b"), UCI_OK);
    uci_option *const emptied = uci_lookup_option(ctx, section(p, "cfg020f15"), "ports");
    ASSERT_NE(emptied, nullptr);
    EXPECT_EQ(emptied->type, UCI_TYPE_LIST);
    EXPECT_TRUE(uci_list_empty(&emptied->v.list));

    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK);
    EXPECT_NE(uci_lookup_option(ctx, section(p, "cfg020f15"), "ports"), nullptr);
    const context_owner fresh = new_context();
    uci_package *reloaded = nullptr;
    ASSERT_EQ(uci_load(fresh.get(), "n", &reloaded), UCI_OK);
    EXPECT_EQ(uci_lookup_option(fresh.get(), uci_lookup_section(fresh.get(), reloaded, "cfg020f15"), "ports"),
              nullptr);
}

TEST_F(uci_api_test, delete_judges_its_place_and_index)
{
    const auto del = [this](const char *section_name, const char *option, const char *value) {
        uci_ptr ptr = named("n", section_name, option, value);
        return uci_delete(ctx, &ptr);
    };
    EXPECT_EQ(del("lan", "zz", nullptr), UCI_ERR_NOTFOUND);
    EXPECT_EQ(del("zz", nullptr, nullptr), UCI_ERR_NOTFOUND);
    EXPECT_EQ(del(nullptr, nullptr, nullptr), UCI_ERR_INVAL);
    EXPECT_EQ(del("cfg020f15", "ports", "x"), UCI_ERR_MEM);
    EXPECT_EQ(ctx->err, UCI_OK);
    EXPECT_EQ(del("cfg020f15", "ports", "9"), UCI_OK);
    EXPECT_EQ(del("cfg020f15", "ports", "-1"), UCI_OK);
    uci_package *const p = uci_lookup_package(ctx, "n");
    EXPECT_TRUE(uci_list_empty(&p->delta));
    EXPECT_EQ(values_of(ctx, section(p, "cfg020f15"), "ports"), (strings{"a", "b"}));

    EXPECT_EQ(del("cfg020f15", "ports", "1"), UCI_OK);
    EXPECT_EQ(values_of(ctx, section(p, "cfg020f15"), "ports"), (strings{"a"}));
    EXPECT_EQ(del("cfg020f15", "ports", ""), UCI_OK);
    EXPECT_EQ(uci_lookup_option(ctx, section(p, "cfg020f15"), "ports"), nullptr);
    EXPECT_EQ(del("lan", "proto", "whatever"), UCI_OK);
    EXPECT_EQ(uci_lookup_option(ctx, section(p, "lan"), "proto"), nullptr);
}

TEST_F(uci_api_test, a_deleted_element_is_not_deleted_twice)
{
    uci_ptr ptr;
    ASSERT_EQ(look_up(&ptr, "n.@device[0].name"), UCI_OK);
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_OK);
    EXPECT_EQ(ptr.o, nullptr);
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_ERR_NOTFOUND);
    EXPECT_NE(section(ptr.p, "cfg020f15"), nullptr);

    ASSERT_EQ(look_up(&ptr, "n.@device[0]"), UCI_OK);
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_OK);
    EXPECT_EQ(ptr.s, nullptr);
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_ERR_NOTFOUND);
    EXPECT_EQ(section(ptr.p, "cfg020f15"), nullptr);
}

TEST_F(uci_api_test, an_added_section_is_anonymous_and_keeps_its_name_over_the_commit)
{
    uci_package *const p = load();
    uci_section *added = nullptr;
    ASSERT_EQ(uci_add_section(ctx, p, "device", &added), UCI_OK);
    EXPECT_STREQ(added->e.name, "cfg050f15");
    EXPECT_TRUE(added->anonymous);

    uci_ptr ptr = {};
    ptr.p = p;
    ptr.s = added;
    ptr.option = "name";
    ptr.value = "v";
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
    EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_OK);

    EXPECT_NE(section(ptr.p, "cfg050f15"), nullptr);
    EXPECT_EQ(config(), written_base + "config device\n\toption name 'v'\n\n");
}

TEST_F(uci_api_test, a_section_of_an_invalid_type_does_not_survive)
{
    uci_package *p = load();
    uci_section *added = nullptr;
    EXPECT_EQ(uci_add_section(ctx, p, "a b", &added), UCI_OK);
    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK);

    EXPECT_EQ(config(), base_config);
    EXPECT_EQ(delta()->substr(0, 3), "+n.");
}

TEST_F(uci_api_test, sections_are_moved_and_renamed)
{
    uci_package *const p = load();
    EXPECT_EQ(uci_reorder_section(ctx, section(p, "lan"), 1), UCI_OK);
    uci_ptr ptr = named("n", "lan", nullptr, "l2");
    EXPECT_EQ(uci_rename(ctx, &ptr), UCI_OK);
    uci_ptr missing = named("n", "zz", nullptr, "x");
    EXPECT_EQ(uci_rename(ctx, &missing), UCI_ERR_NOTFOUND);
    uci_ptr valueless = named("n", "l2");
    EXPECT_EQ(uci_rename(ctx, &valueless), UCI_ERR_INVAL);
    uci_ptr package_only = named("n", nullptr, nullptr, "x");
    EXPECT_EQ(uci_rename(ctx, &package_only), UCI_ERR_INVAL);
    EXPECT_EQ(uci_save(ctx, p), UCI_OK);
    EXPECT_EQ(delta(), "^n.lan='1'\n@n.lan='l2'\n");

    ptr = named("n", nullptr);
    EXPECT_EQ(uci_revert(ctx, &ptr), UCI_OK);
    EXPECT_EQ(delta(), "");
    EXPECT_NE(section(ptr.p, "lan"), nullptr);
    EXPECT_EQ(ptr.s, nullptr);
}

TEST_F(uci_api_test, a_move_goes_among_the_other_sections)
{
    struct move {
        const char *name;
        int position;
        strings order;
        bool recorded;
    };
    const move cases[] = {
        {"g", 0, {"g", "cfg020f15", "lan", "cfg040f15"}, false},
        {"g", -5, {"g", "cfg020f15", "lan", "cfg040f15"}, false},
        {"g", 1, {"cfg020f15", "g", "lan", "cfg040f15"}, true},
        {"g", 3, {"cfg020f15", "lan", "cfg040f15", "g"}, true},
        {"g", 99, {"cfg020f15", "lan", "cfg040f15", "g"}, true},
        {"lan", 2, {"g", "cfg020f15", "lan", "cfg040f15"}, false},
        {"cfg040f15", 0, {"cfg040f15", "g", "cfg020f15", "lan"}, true},
        {"cfg040f15", 9, {"g", "cfg020f15", "lan", "cfg040f15"}, false},
    };
    for (const move &test : cases) {
        SCOPED_TRACE(std::string(test.name) + " to " + std::to_string(test.position));
        uci_package *const p = load();
        EXPECT_EQ(uci_reorder_section(ctx, section(p, test.name), test.position), UCI_OK);
        strings order;
        uci_element *e;
        uci_foreach_element(&p->sections, e) order.emplace_back(e->name);
        EXPECT_EQ(order, test.order);
        EXPECT_EQ(!uci_list_empty(&p->delta), test.recorded);
        uci_unload(ctx, p);
    }
}

TEST_F(uci_api_test, a_renamed_section_is_named_and_found_by_its_new_name)
{
    uci_ptr ptr;
    ASSERT_EQ(look_up(&ptr, "n.@device[0]=bridge"), UCI_OK);
    EXPECT_EQ(uci_rename(ctx, &ptr), UCI_OK);
    EXPECT_STREQ(ptr.section, "bridge");
    EXPECT_FALSE(ptr.s->anonymous);

    EXPECT_EQ(set("bridge", "name", "x"), UCI_OK);
    EXPECT_EQ(set("cfg020f15", "name", "x"), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_OK);
    EXPECT_NE(config()->find("config device 'bridge'\n\toption name 'x'\n"), std::string::npos);
}

// What an option's name stands for in a section with few options and with many, whatever happened to them.
TEST_F(uci_api_test, options_of_a_long_section_are_found_after_any_changes)
{
    write_config("config t long\n");
    uci_package *const p = load();
    std::vector<std::pair<std::string, std::string>> expected; // name and value
    const auto find = [&](const std::string &name) {
        return std::ranges::find(expected, name, [](const auto &option) { return option.first; });
    };
    uint32_t random = 1;
    const auto any = [&](uint32_t below) { return (random = random * 1664525 + 1013904223) / 65536 % below; };
    for (int i = 0; i < 3000; i++) {
        SCOPED_TRACE(i);
        const std::string name = "o" + std::to_string(any(i < 1000 ? 70 : 40)),
                          value = "v" + std::to_string(i);
        const auto at = find(name);
        const uint32_t what = any(10);
        uci_ptr ptr = named("n", "long", name.c_str(), value.c_str());
        if (at == expected.end() || what < 6) {
            EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
            if (at == expected.end())
                expected.emplace_back(name, value);
            else
                at->second = value;
        } else if (what < 8) {
            ptr.value = nullptr;
            EXPECT_EQ(uci_delete(ctx, &ptr), UCI_OK);
            expected.erase(at);
        } else {
            const std::string other = "o" + std::to_string(any(80));
            if (find(other) != expected.end())
                continue;
            ptr.value = other.c_str();
            EXPECT_EQ(uci_rename(ctx, &ptr), UCI_OK);
            at->first = other;
        }
        for (uint32_t number = 0; number < 80; number++) {
            const std::string sought = "o" + std::to_string(number);
            const auto found = find(sought);
            const char *const text = uci_lookup_option_string(ctx, section(p, "long"), sought.c_str());
            ASSERT_EQ(found == expected.end(), text == nullptr) << sought;
            ASSERT_TRUE(!text || found->second == text) << sought;
        }
    }
}

TEST_F(uci_api_test, a_rename_onto_a_taken_name_leaves_the_first_to_be_found)
{
    uci_ptr ptr = named("n", "g", nullptr, "lan");
    EXPECT_EQ(uci_rename(ctx, &ptr), UCI_OK);
    EXPECT_EQ(set("lan", "where", "first"), UCI_OK);
    EXPECT_STREQ(uci_lookup_option_string(ctx, ptr.s, "where"), "first");

    EXPECT_EQ(uci_reorder_section(ctx, ptr.s, 9), UCI_OK);
    EXPECT_EQ(set("lan", "where", "now first"), UCI_OK);
    EXPECT_STREQ(uci_lookup_option_string(ctx, ptr.s, "where"), "first");
}

// Names hash into one table; whatever was removed or renamed must not hide the others.
TEST_F(uci_api_test, sections_are_found_after_any_sequence_of_changes)
{
    write_config("");
    uci_package *const p = load();
    std::map<std::string, std::string> expected; // name to type
    unsigned random = 1;
    for (int step = 0; step < 20000; step++) {
        random = random * 1103515245 + 12345;
        const std::string name = "s" + std::to_string(random >> 16 & 0xff);
        const std::string other = "s" + std::to_string(random >> 24 & 0xff);
        const bool known = expected.contains(name);
        uci_ptr ptr = named("n", name.c_str());
        if (!known) {
            ptr.value = other.c_str();
            ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);
            expected[name] = other;
        } else if (expected.contains(other)) {
            ASSERT_EQ(uci_delete(ctx, &ptr), UCI_OK);
            expected.erase(name);
        } else {
            ptr.value = other.c_str();
            ASSERT_EQ(uci_rename(ctx, &ptr), UCI_OK);
            expected[other] = expected.extract(name).mapped();
        }
        ptr = named("n", other.c_str());
        ASSERT_EQ(uci_lookup_ptr(ctx, &ptr, nullptr, false), UCI_OK);
        ASSERT_EQ(ptr.s != nullptr, expected.contains(other));
        if (ptr.s) {
            ASSERT_STREQ(ptr.s->type, expected[other].c_str());
        }
    }
    std::map<std::string, std::string> found;
    uci_element *e;
    uci_foreach_element(&p->sections, e) found[e->name] = uci_to_section(e)->type;
    EXPECT_EQ(found, expected);
}

// ---- the header in C ----

TEST_F(uci_api_test, the_header_serves_c_as_well)
{
    uci_package *const p = load();
    EXPECT_EQ(count_values_in_c(ctx, p, "cfg020f15", "ports"), 2U);
    EXPECT_EQ(count_values_in_c(ctx, p, "cfg020f15", "name"), 1U);
    EXPECT_EQ(count_values_in_c(ctx, p, "cfg020f15", "zz"), 0U);
    EXPECT_EQ(count_values_in_c(ctx, p, "zz", "zz"), 0U);

    char reference[] = "@device[1]";
    EXPECT_TRUE(is_found_in_c(ctx, "n", reference));
    EXPECT_EQ(delete_sections_in_c(ctx, uci_lookup_package(ctx, "n"), "device"), 2U);
    EXPECT_EQ(exported(ctx, p), "\nconfig globals 'g'\n\toption u '1'\n"
                                "\nconfig interface 'lan'\n\toption proto 'static'\n\n");
}

// ---- packages without delta ----

class temporary_stream {
public:
    explicit temporary_stream(const std::string &text) : file_(tmpfile())
    {
        fwrite(text.data(), 1, text.size(), file_);
        rewind(file_);
    }
    ~temporary_stream() { fclose(file_); }
    FILE *get() const { return file_; }

private:
    FILE *file_;
};

TEST_F(uci_api_test, an_imported_package_is_written_when_told_to)
{
    const temporary_stream input("config a b\n\toption x 1\n");
    uci_package *p = nullptr;
    ASSERT_EQ(uci_import(ctx, input.get(), "i", &p, true), UCI_OK);
    EXPECT_FALSE(p->has_delta);
    EXPECT_EQ(uci_save(ctx, p), UCI_ERR_INVAL);
    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_ERR_INVAL);
    EXPECT_EQ(read(config_path("i")), std::nullopt);

    EXPECT_EQ(uci_commit(ctx, &p, true), UCI_OK);
    EXPECT_EQ(read(config_path("i")), "\nconfig a 'b'\n\toption x '1'\n\n");
}

TEST_F(uci_api_test, an_import_checks_name_and_target)
{
    const temporary_stream input("config a b\n");
    uci_package *p = nullptr;
    EXPECT_EQ(uci_import(ctx, input.get(), "a b", &p, true), UCI_ERR_INVAL);
    uci_package *loaded = load();
    EXPECT_EQ(uci_import(ctx, input.get(), "n", &loaded, false), UCI_ERR_INVAL);
}

TEST_F(uci_api_test, a_stream_merges_into_a_loaded_package_as_changes)
{
    const temporary_stream input(
        "package ignored\nconfig interface lan\n\toption mtu 9\nconfig device\n\tlist ports z\n");
    uci_package *p = load();
    uci_package *const before = p;

    EXPECT_EQ(uci_import(ctx, input.get(), "n", &p, true), UCI_OK);

    EXPECT_EQ(p, before);
    EXPECT_EQ(uci_save(ctx, p), UCI_OK);
    EXPECT_EQ(delta(), "n.lan.mtu='9'\n+n.cfg050f15='device'\n|n.cfg050f15.ports='z'\n");
}

TEST_F(uci_api_test, a_file_loaded_by_path_is_rewritten_by_save)
{
    uci_package *p = nullptr;
    ASSERT_EQ(uci_load(ctx, config_path().c_str(), &p), UCI_OK);
    EXPECT_FALSE(p->has_delta);
    EXPECT_STREQ(p->e.name, "n");

    EXPECT_EQ(set("lan", "proto", "dhcp"), UCI_OK);
    EXPECT_EQ(uci_save(ctx, p), UCI_OK);

    EXPECT_NE(config()->find("\toption proto 'dhcp'\n"), std::string::npos);
    EXPECT_EQ(delta(), std::nullopt);
    uci_ptr ptr = named("n", nullptr);
    EXPECT_EQ(uci_revert(ctx, &ptr), UCI_ERR_INVAL);
}

TEST_F(uci_api_test, a_path_may_be_relative)
{
    expect_in_child([this] {
        write(root + "/local", "config t x\n");
        fs::current_path(root);
        uci_package *p = nullptr;
        ASSERT_EQ(uci_load(ctx, "./local", &p), UCI_OK);
        EXPECT_STREQ(p->e.name, "local");
        EXPECT_FALSE(p->has_delta);
    });
}

TEST_F(uci_api_test, a_file_loaded_by_path_ignores_its_delta)
{
    write_delta("n.lan.proto='x'\n");
    uci_package *p = nullptr;
    ASSERT_EQ(uci_load(ctx, config_path().c_str(), &p), UCI_OK);
    EXPECT_STREQ(uci_lookup_option_string(ctx, section(p, "lan"), "proto"), "static");
}

} // namespace
