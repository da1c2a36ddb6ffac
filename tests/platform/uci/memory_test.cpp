// The library on a gateway that runs short of memory: whichever allocation fails, a call reports it, nothing
// is lost on disk, and nothing leaks or crashes.
#include "platform/uci/fixture.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

// The linker sends the library's allocations here (--wrap).
extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
char *__real_strdup(const char *text);
void *__wrap_malloc(size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_realloc(void *block, size_t size);
char *__wrap_strdup(const char *text);
FILE *__real_open_memstream(char **data, size_t *size);
FILE *__wrap_open_memstream(char **data, size_t *size);
int __wrap_asprintf(char **text, const char *pattern, ...) __attribute__((format(printf, 2, 3)));
}

namespace {

long allocations_left = -1; // before the one that fails; negative: none fails

bool fails()
{
    return allocations_left >= 0 && allocations_left-- == 0;
}

} // namespace

void *__wrap_malloc(size_t size)
{
    return fails() ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(size_t count, size_t size)
{
    return fails() ? nullptr : __real_calloc(count, size);
}

void *__wrap_realloc(void *block, size_t size)
{
    return fails() ? nullptr : __real_realloc(block, size);
}

char *__wrap_strdup(const char *text)
{
    return fails() ? nullptr : __real_strdup(text);
}

FILE *__wrap_open_memstream(char **data, size_t *size)
{
    return fails() ? nullptr : __real_open_memstream(data, size);
}

int __wrap_asprintf(char **text, const char *pattern, ...)
{
    if (fails())
        return -1;
    va_list arguments;
    va_start(arguments, pattern);
    const int length = vasprintf(text, pattern, arguments);
    va_end(arguments);
    return length;
}

namespace {

class uci_memory_test : public uci_base_test {
protected:
    // Repeats the work on fresh files, failing the first allocation, then the second and so on, until none
    // fails. The work returns a code that must be UCI_OK or UCI_ERR_MEM.
    template <typename Work> void fail_each_allocation(Work work)
    {
        bool failed = true;
        for (long n = 0; failed; n++) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            write_config(base_config);
            write_delta("n.lan.pending='1'\n");
            allocations_left = n;
            const int code = work();
            failed = allocations_left < 0;
            allocations_left = -1;
            EXPECT_TRUE(code == UCI_OK || code == UCI_ERR_MEM) << code;
            EXPECT_TRUE(failed || code == UCI_OK);
            check_files();
        }
    }

private:
    // The pending change is in one of the files, and both can be read.
    void check_files()
    {
        const context_owner own = new_context();
        uci_package *p = nullptr;
        ASSERT_EQ(uci_load(own.get(), "n", &p), UCI_OK);
        uci_section *const lan = uci_lookup_section(own.get(), p, "lan");
        EXPECT_STREQ(uci_lookup_option_string(own.get(), lan, "pending"), "1");
        std::error_code none;
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(config_dir, none), {}), 1);
    }
};

// As new_context, but without expectations, for these allocate.
context_owner make_context(const std::string &config_dir, const std::string &save_dir)
{
    context_owner owner(uci_alloc_context());
    if (owner && (uci_set_confdir(owner.get(), config_dir.c_str()) != UCI_OK ||
                  uci_set_savedir(owner.get(), save_dir.c_str()) != UCI_OK))
        owner.reset();
    if (owner)
        uci_set_conf2dir(owner.get(), "");
    return owner;
}

TEST_F(uci_memory_test, loading_and_listing)
{
    fail_each_allocation([this]() -> int {
        const context_owner own = make_context(config_dir, save_dir);
        if (!own)
            return UCI_ERR_MEM;
        char **names;
        int code = uci_list_configs(own.get(), &names);
        if (code != UCI_OK)
            return code;
        free(names);
        code = uci_load(own.get(), "n", nullptr);
        EXPECT_EQ(code == UCI_OK, !uci_list_empty(&own->root));
        return code;
    });
}

int change_all(uci_context *ctx, uci_package **p)
{
    uci_ptr ptr = named("n", "lan", "a", "1");
    int code = uci_set(ctx, &ptr);
    *p = ptr.p;
    const auto run = [&](int (*change)(uci_context *, uci_ptr *), const uci_ptr &what) {
        uci_ptr place = what;
        if (code == UCI_OK)
            code = change(ctx, &place);
    };
    run(uci_set, named("n", "lan", "proto", "dhcp"));
    run(uci_set, named("n", "w", nullptr, "t"));
    run(uci_set, named("n", "w", nullptr, "u"));
    run(uci_add_list, named("n", "w", "l", "1"));
    run(uci_add_list, named("n", "lan", "proto", "2"));
    run(uci_del_list, named("n", "lan", "proto", "2"));
    run(uci_delete, named("n", "cfg020f15", "ports", "0"));
    run(uci_delete, named("n", "cfg020f15", "name"));
    run(uci_rename, named("n", "w", nullptr, "v"));
    run(uci_rename, named("n", "lan", "a", "b"));
    run(uci_delete, named("n", "g"));
    uci_section *added;
    if (code == UCI_OK)
        code = uci_add_section(ctx, *p, "device", &added);
    return code == UCI_OK ? uci_reorder_section(ctx, added, 0) : code;
}

TEST_F(uci_memory_test, changing_and_committing)
{
    fail_each_allocation([this]() -> int {
        const context_owner own = make_context(config_dir, save_dir);
        if (!own)
            return UCI_ERR_MEM;
        uci_package *p = nullptr;
        const int code = change_all(own.get(), &p);
        return code == UCI_OK ? uci_commit(own.get(), &p, false) : code;
    });
}

TEST_F(uci_memory_test, reverting)
{
    fail_each_allocation([this]() -> int {
        const context_owner own = make_context(config_dir, save_dir);
        if (!own)
            return UCI_ERR_MEM;
        uci_ptr ptr = named("n", "lan", "a", "1");
        const int code = uci_set(own.get(), &ptr);
        ptr = named("n", "lan", "a");
        return code == UCI_OK ? uci_revert(own.get(), &ptr) : code;
    });
}

TEST_F(uci_memory_test, an_override_is_not_passed_over)
{
    const std::string overrides = root + "/overrides";
    std::filesystem::create_directory(overrides);
    write(overrides + "/n", "config t over\n");
    fail_each_allocation([&, this]() -> int {
        const context_owner own = make_context(config_dir, save_dir);
        if (!own || uci_set_conf2dir(own.get(), overrides.c_str()) != UCI_OK)
            return UCI_ERR_MEM;
        uci_package *p = nullptr;
        const int code = uci_load(own.get(), "n", &p);
        EXPECT_TRUE(!p || uci_lookup_section(own.get(), p, "over"));
        return code;
    });
}

TEST_F(uci_memory_test, writing_packages_without_delta)
{
    const std::string other = root + "/other", text = "config t n\n\toption o 1\n";
    fail_each_allocation([&, this]() -> int {
        const context_owner own = make_context(config_dir, save_dir);
        if (!own)
            return UCI_ERR_MEM;
        write(other, text);
        uci_ptr ptr = named("other", "n", "o", "2");
        int code = uci_load(own.get(), other.c_str(), &ptr.p);
        if (code == UCI_OK)
            code = uci_set(own.get(), &ptr);
        if (code == UCI_OK)
            code = uci_save(own.get(), ptr.p);
        EXPECT_EQ(read(other), code == UCI_OK ? "\nconfig t 'n'\n\toption o '2'\n\n" : text);
        return code;
    });
}

TEST_F(uci_memory_test, importing_and_exporting)
{
    const std::string text = "package a\nconfig t n\n\toption o 1\n\tlist l 2\npackage b\nconfig t\n";
    fail_each_allocation([&, this]() -> int {
        const context_owner own = make_context(config_dir, save_dir);
        if (!own)
            return UCI_ERR_MEM;
        FILE *const input = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
        uci_package *p = nullptr;
        const int code = uci_import(own.get(), input, nullptr, &p, false);
        fclose(input);
        EXPECT_EQ(code == UCI_OK, !uci_list_empty(&own->root));
        return code;
    });
}

} // namespace
