// The uci tool: reads and changes configurations from the command line and from scripts.
#include <cerrno>
#include <cstring>
#include <vector>

#include <unistd.h>

#include "commands.h"

namespace {

using uci_tool::session;

constexpr char usage_text[] = R"(Usage: %s [OPTIONS] COMMAND [ARGUMENTS]

Commands:
    get         CONFIG.SECTION[.OPTION]
    set         CONFIG.SECTION[.OPTION]=VALUE
    add         CONFIG TYPE
    add_list    CONFIG.SECTION.OPTION=VALUE
    del_list    CONFIG.SECTION.OPTION=VALUE
    delete      CONFIG.SECTION[.OPTION[=INDEX]]
    rename      CONFIG.SECTION[.OPTION]=NAME
    reorder     CONFIG.SECTION=POSITION
    revert      CONFIG[.SECTION[.OPTION]]
    show        [CONFIG[.SECTION[.OPTION]]]
    export      [CONFIG]
    changes     [CONFIG]
    commit      [CONFIG]
    import      [CONFIG]
    batch
    help

Options, before the command:
    -c DIR   directory of the configuration files
    -C DIR   directory of overriding configuration files, '' for none
    -t DIR   directory of the pending changes
    -P DIR   the same, and commit does nothing
    -p DIR   read pending changes from this directory, too
    -f FILE  input of import and batch
    -m       import merges into the pending changes
    -n, -N   export and commit write generated names of sections, or do not
    -X       show prints generated names of sections
    -d TEXT  what is printed between the elements of a list
    -s, -S   stop at the first parse error, or skip what cannot be parsed
    -q       no error messages
)";

enum class option_result { taken, refused, failed };

void set_flag(uci_context *ctx, uci_flags flag, bool on)
{
    ctx->flags = static_cast<uci_flags>(on ? ctx->flags | flag : ctx->flags & ~flag);
}

option_result open_input(session &tool, const char *path)
{
    tool.input_file.reset(fopen(path, "re"));
    if (tool.input_file)
        return option_result::taken;
    if (!tool.quiet)
        fprintf(stderr, "%s: %s: %s\n", tool.program.c_str(), path, strerror(errno));
    return option_result::failed;
}

option_result checked(const session &tool, int code)
{
    if (code == UCI_OK || code == UCI_ERR_DUPLICATE)
        return option_result::taken;
    uci_tool::report(tool);
    return option_result::failed;
}

option_result take_option(session &tool, int letter, const char *argument)
{
    uci_context *const ctx = tool.ctx.get();
    switch (letter) {
    case 'c':
        return checked(tool, uci_set_confdir(ctx, argument));
    case 'C':
        return checked(tool, uci_set_conf2dir(ctx, argument));
    case 'P':
        tool.never_commit = true;
        [[fallthrough]];
    case 't':
        return checked(tool, uci_set_savedir(ctx, argument));
    case 'p':
        return checked(tool, uci_add_delta_path(ctx, argument));
    case 'd':
        tool.delimiter = argument;
        break;
    case 'f':
        return open_input(tool, argument);
    case 'm':
        tool.merge = true;
        break;
    case 'n':
    case 'N':
        set_flag(ctx, UCI_FLAG_EXPORT_NAME, letter == 'n');
        break;
    case 'q':
        tool.quiet = true;
        break;
    case 's':
    case 'S':
        set_flag(ctx, UCI_FLAG_STRICT, letter == 's');
        set_flag(ctx, UCI_FLAG_PERROR, letter == 'S');
        break;
    case 'X':
        tool.generated_names = true;
        break;
    default:
        return option_result::refused;
    }
    return option_result::taken;
}

int print_usage(const char *program, int result)
{
    fprintf(stderr, usage_text, program);
    return result;
}

// What could not be written must not pass for an empty result.
int finish_output(const session &tool, int result)
{
    if (fflush(stdout) == 0 && !ferror(stdout))
        return result;
    return uci_tool::report(tool, UCI_ERR_IO);
}

} // namespace

int main(int argc, char **argv)
{
    session tool;
    tool.program = argc > 0 ? argv[0] : "uci";
    tool.ctx.reset(uci_alloc_context());
    if (!tool.ctx) {
        fprintf(stderr, "%s: Out of memory\n", tool.program.c_str());
        return uci_tool::exit_failed;
    }
    // '+': options end at the command, as they do on a gateway, where getopt does not look behind it.
    for (int letter; (letter = getopt(argc, argv, "+c:C:d:f:mnNp:P:qsSt:X")) != -1;) {
        switch (take_option(tool, letter, optarg)) {
        case option_result::taken:
            break;
        case option_result::refused:
            return print_usage(argv[0], uci_tool::exit_done);
        case option_result::failed:
            return uci_tool::exit_failed;
        }
    }
    const std::span<char *> words(argv + optind, argv + argc);
    if (words.empty() || strcasecmp(words[0], "help") == 0)
        return print_usage(tool.program.c_str(), uci_tool::exit_done);
    const int result = uci_tool::run_command(tool, words);
    if (result == uci_tool::exit_misused)
        return print_usage(tool.program.c_str(), result);
    return finish_output(tool, result);
}
