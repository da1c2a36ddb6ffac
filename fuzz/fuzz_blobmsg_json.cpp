// JSON text to a message and back: what was accepted and printed once prints the same when it is accepted
// again.
#include <libubox/blobmsg_json.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace {

// The message that a text makes, printed; empty if the text is refused.
std::string round_trip(const std::string &text)
{
    blob_buf message = {};
    std::string result;
    if (blob_buf_init(&message, 0) != 0)
        abort();
    if (blobmsg_add_json_from_string(&message, text.c_str())) {
        const std::unique_ptr<char, void (*)(void *)> printed(blobmsg_format_json(message.head, true),
                                                              std::free);
        if (!printed)
            abort();
        result = printed.get();
        free(blobmsg_format_json_indent(message.head, true, 0));
    } else if (blob_len(message.head) != 0) {
        abort();
    }
    blob_buf_free(&message);
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string printed = round_trip(std::string(reinterpret_cast<const char *>(data), size));
    // Members without a name print as bare values, which no parser takes.
    const std::string again = printed.empty() ? "" : round_trip(printed);
    if (!again.empty() && again != printed)
        abort();
    return 0;
}
