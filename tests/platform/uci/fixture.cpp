#include "platform/uci/fixture.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

const std::string base_config =
    "config globals 'g'\n\toption u '1'\n"
    "\nconfig device\n\toption name 'br-lan'\n\tlist ports 'a'\n\tlist ports 'b'\n"
    "\nconfig interface 'lan'\n\toption proto 'static'\n"
    "\nconfig device\n\toption name 'pon.1'\n";
const std::string written_base = "\n" + base_config + "\n";

uci_ptr named(const char *package, const char *section, const char *option, const char *value)
{
    uci_ptr ptr = {};
    ptr.package = package;
    ptr.section = section;
    ptr.option = option;
    ptr.value = value;
    return ptr;
}

std::string error_text(uci_context *ctx)
{
    char *message = nullptr;
    uci_get_errorstr(ctx, &message, "p");
    const std::string result = message ? message : "(no text)";
    free(message);
    return result;
}

std::string exported(uci_context *ctx, uci_package *p, bool header)
{
    char *data = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&data, &size);
    EXPECT_EQ(uci_export(ctx, stream, p, header), UCI_OK);
    fclose(stream);
    const std::string result(data, size);
    free(data);
    return result;
}

std::vector<std::string> values_of(uci_context *ctx, uci_section *s, const char *option)
{
    uci_option *const o = uci_lookup_option(ctx, s, option);
    if (!o)
        return {};
    if (o->type == UCI_TYPE_STRING)
        return {o->v.string};
    std::vector<std::string> values;
    uci_element *e;
    uci_foreach_element(&o->v.list, e) values.emplace_back(e->name);
    return values;
}

void expect_in_child(const std::function<void()> &body)
{
    fflush(nullptr);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        body();
        fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
}

uci_test::uci_test()
{
    char pattern[] = "/tmp/uci_test.XXXXXX";
    const char *const made = mkdtemp(pattern);
    root = made ? made : "";
    config_dir = root + "/config";
    save_dir = root + "/save";
    fs::create_directory(config_dir);
}

uci_test::~uci_test()
{
    fs::remove_all(root);
    fs::remove_all(UCI_SAVEDIR);
}

void uci_test::write(const std::string &path, const std::string &text)
{
    std::ofstream file(path, std::ios::binary);
    file << text << std::flush;
    ASSERT_TRUE(file.good()) << path;
}

std::optional<std::string> uci_test::read(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void uci_test::write_delta(const std::string &text) const
{
    fs::create_directory(save_dir);
    write(delta_path(), text);
}

context_owner uci_test::new_context() const
{
    context_owner owner(uci_alloc_context());
    EXPECT_EQ(uci_set_confdir(owner.get(), config_dir.c_str()), UCI_OK);
    EXPECT_EQ(uci_set_savedir(owner.get(), save_dir.c_str()), UCI_OK);
    EXPECT_EQ(uci_set_conf2dir(owner.get(), ""), UCI_OK);
    return owner;
}

program_result uci_test::run(const program_arguments &words) const
{
    program_arguments all = {"uci", "-c", config_dir, "-t", save_dir, "-C", ""};
    all.insert(all.end(), words.begin(), words.end());
    return run_program(all);
}

program_result uci_test::uci(const std::string &words) const
{
    std::istringstream stream(words);
    return run({std::istream_iterator<std::string>(stream), {}});
}

std::string uci_test::output_of(const std::string &words) const
{
    const program_result result = uci(words);
    EXPECT_EQ(result.status, 0) << words;
    EXPECT_EQ(result.errors, "") << words;
    return result.output;
}

void uci_test::quietly(const std::vector<std::string> &commands) const
{
    for (const std::string &command : commands)
        EXPECT_EQ(output_of(command), "") << command;
}

uci_package *uci_base_test::load()
{
    uci_package *p = nullptr;
    EXPECT_EQ(uci_load(ctx, "n", &p), UCI_OK);
    return p;
}
