#include "netd/board.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

constexpr char board_path[] = "/gateway/boardinfo.json";

int handle_all(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    std::ifstream in(board_path);
    if (!in)
        return UBUS_STATUS_NOT_FOUND;
    std::ostringstream text;
    text << in.rdbuf();
    blob_buf reply{};
    blob_buf_init(&reply, 0);
    int status = UBUS_STATUS_OK;
    if (blobmsg_add_json_from_string(&reply, text.str().c_str())) {
        ubus_send_reply(bus, request, reply.head);
    } else {
        fprintf(stderr, "gateway-netd: %s is no JSON object\n", board_path);
        status = UBUS_STATUS_UNKNOWN_ERROR;
    }
    blob_buf_free(&reply);
    return status;
}

const ubus_method methods[] = {UBUS_METHOD_NOARG("all", handle_all)};
ubus_object_type type = UBUS_OBJECT_TYPE("boardinfo", methods);

ubus_object object()
{
    ubus_object made{};
    made.name = "boardinfo";
    made.type = &type;
    made.methods = methods;
    made.n_methods = ARRAY_SIZE(methods);
    return made;
}

ubus_object board = object();

} // namespace

void board_object::follow_file()
{
    const bool wanted = std::filesystem::exists(board_path);
    if (wanted == offered_)
        return;
    const int status = wanted ? ubus_add_object(bus_, &board) : ubus_remove_object(bus_, &board);
    if (status)
        fprintf(stderr, "gateway-netd: boardinfo: %s\n", ubus_strerror(status));
    else
        offered_ = wanted;
}
