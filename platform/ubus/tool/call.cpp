// ubus call: calls a method and prints what it replies.
#include "command.h"

#include <cstdio>

#include <unistd.h>

namespace {

void print_reply(ubus_request *request, int, blob_attr *content)
{
    const auto *const options = static_cast<const tool_options *>(request->priv);
    print_message(content, options->simple);
    putchar('\n');
}

// Reports a failed call. A log or a file gets the whole command line, and then the exit code is the status
// negated.
int report_failure(const tool_options &options, arguments args, int status)
{
    if (status == UBUS_STATUS_OK || options.simple || isatty(STDERR_FILENO))
        return status;
    fputs("Command failed: ubus call", stderr);
    for (const char *arg : args)
        fprintf(stderr, " %s", arg);
    fprintf(stderr, " (%s)\n", ubus_strerror(status));
    return -status;
}

} // namespace

int call_method(ubus_context *bus, const tool_options &options, arguments args)
{
    if (args.size() != 2 && args.size() != 3)
        return wrong_usage;
    message content;
    if (args.size() == 3) {
        if (const int status = content.add_json(args[2]); status != UBUS_STATUS_OK)
            return report_failure(options, args, status);
    }
    // The bus answers the lookup of a hidden object with success and nothing else; id 0 belongs to nobody.
    uint32_t id = 0;
    if (const int status = ubus_lookup_id(bus, args[0], &id); status != UBUS_STATUS_OK)
        return status;
    tool_options shown = options;
    const int status =
        ubus_invoke(bus, id, args[1], content.head(), print_reply, &shown, options.timeout * 1000);
    return report_failure(options, args, status);
}
