// One DATA message per object, in the order of the paths, then the status. An answer can be far longer than a
// client's output queue, so it pauses when the queue begins to fill and goes on when the client has read.
#include "lookup.h"

#include <utility>

#include "message_buffer.h"

namespace ubusd {

namespace {

constexpr int paused = no_status;

} // namespace

int lookups::handle(const request &request)
{
    parked_lookup lookup{.request = request.header(), .pattern = {}, .next = {}};
    if (request.has(UBUS_ATTR_OBJPATH)) {
        lookup.pattern = request.text(UBUS_ATTR_OBJPATH);
        if (lookup.pattern->empty())
            return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const int status = run(request.sender, lookup);
    if (status == paused)
        request.sender.park(std::move(lookup));
    return status;
}

void lookups::resume(client &reader)
{
    while (reader.has_parked() && !reader.backed_up()) {
        parked_lookup lookup = reader.take_parked();
        const int status = run(reader, lookup);
        if (status == paused)
            reader.park_again(std::move(lookup));
        else
            reader.send_status(lookup.request, status);
    }
}

// Sends what the client takes. Returns the lookup's status, or `paused` with the place to go on with in the
// lookup.
int lookups::run(client &reader, parked_lookup &lookup)
{
    std::string_view prefix;
    const bool exact = lookup.pattern && !lookup.pattern->ends_with('*');
    if (lookup.pattern) {
        prefix = *lookup.pattern;
        prefix.remove_suffix(exact ? 0 : 1);
    }

    const auto &paths = objects_.paths();
    const std::string_view first = lookup.next ? std::string_view(*lookup.next) : prefix;
    for (auto place = paths.lower_bound(first); place != paths.end(); ++place) {
        if (exact ? place->first != prefix : !place->first.starts_with(prefix))
            break;
        if (reader.backed_up()) {
            lookup.next = place->first;
            return paused;
        }
        lookup.found = true;
        report(reader, lookup.request, *place->second);
    }
    return lookup.found || !lookup.pattern ? UBUS_STATUS_OK : UBUS_STATUS_NOT_FOUND;
}

void lookups::report(client &reader, const frame_header &request, const object &found) const
{
    if (!found.type)
        return;
    const auto signature = visible_signature(reader, found);
    if (!signature)
        return;
    message_buffer answer;
    answer.text(UBUS_ATTR_OBJPATH, found.path->c_str())
        .number(UBUS_ATTR_OBJID, found.id)
        .number(UBUS_ATTR_OBJTYPE, found.type->id)
        .bytes(UBUS_ATTR_SIGNATURE, *signature);
    reader.send({.type = UBUS_MSG_DATA, .seq = request.seq, .peer = request.peer}, answer.body());
}

// The methods that the client may call; nothing if there are methods but none for this client.
std::optional<std::vector<uint8_t>> lookups::visible_signature(const client &reader,
                                                               const object &found) const
{
    const auto &signature = found.type->signature;
    if (reader.who().trusted || signature.empty())
        return signature;

    std::vector<uint8_t> visible;
    for (size_t place = 0; place < signature.size();) {
        const auto *const method = reinterpret_cast<const blob_attr *>(&signature[place]);
        const auto begin = signature.begin() + static_cast<std::ptrdiff_t>(place);
        const size_t size = blob_pad_len(method);
        if (access_.may_call(reader.who(), *found.path, blobmsg_name(method)))
            visible.insert(visible.end(), begin, begin + static_cast<std::ptrdiff_t>(size));
        place += size;
    }
    if (visible.empty())
        return std::nullopt;
    return visible;
}

} // namespace ubusd
