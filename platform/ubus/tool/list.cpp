// ubus list: the objects on the bus, and their methods.
#include "command.h"

#include <cstdio>
#include <cstdlib>

#include <libubox/blobmsg_json.h>

namespace {

// Shows an argument's type in place of the number that stands for it.
const char *type_name(void *, blob_attr *attr)
{
    if (blobmsg_type(attr) != BLOBMSG_TYPE_INT32)
        return nullptr;
    switch (blobmsg_get_u32(attr)) {
    case BLOBMSG_TYPE_BOOL:
        return "\"Boolean\"";
    case BLOBMSG_TYPE_INT32:
        return "\"Integer\"";
    case BLOBMSG_TYPE_STRING:
        return "\"String\"";
    case BLOBMSG_TYPE_ARRAY:
        return "\"Array\"";
    case BLOBMSG_TYPE_TABLE:
        return "\"Table\"";
    default:
        return "\"(unknown)\"";
    }
}

void print_object(ubus_context *, ubus_object_data *object, void *verbose)
{
    if (!verbose) {
        printf("%s\n", object->path);
        return;
    }
    printf("'%s' @%08x\n", object->path, object->id);
    blob_attr *method;
    size_t rest;
    blob_for_each_attr(method, object->signature, rest)
    {
        char *const text = blobmsg_format_json_with_cb(method, false, type_name, nullptr, -1);
        if (!text)
            continue;
        printf("\t%s\n", text);
        free(text);
    }
}

} // namespace

int list_objects(ubus_context *bus, const tool_options &options, arguments args)
{
    if (args.size() > 1)
        return wrong_usage;
    bool verbose = options.verbose && !options.simple;
    return ubus_lookup(bus, args.empty() ? nullptr : args[0], print_object, verbose ? &verbose : nullptr);
}
