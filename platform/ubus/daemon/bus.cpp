// Dispatch by message type, objects, and the relay between callers and owners. The bus keeps no table of
// calls: an answer finds its caller by the client id that the owner sends back.
#include "bus.h"

#include <utility>

#include "message_buffer.h"

namespace ubusd {

namespace {

bool is_bus_object(uint32_t id)
{
    return id >= UBUS_OBJECT_EVENT && id <= UBUS_OBJECT_MONITOR;
}

// Copies the methods of a signature, each padded. Nothing if one of them is no named attribute.
std::optional<std::vector<uint8_t>> read_signature(const blob_attr *field)
{
    std::vector<uint8_t> signature;
    const blob_attr *method = nullptr;
    size_t rest = 0;
    blob_for_each_attr(method, field, rest)
    {
        if (!blobmsg_check_attr_len(method, true, rest))
            return std::nullopt;
        const auto *const bytes = reinterpret_cast<const uint8_t *>(method);
        signature.insert(signature.end(), bytes, bytes + blob_raw_len(method));
        signature.resize((signature.size() + 3) & ~size_t{3});
    }
    return signature;
}

} // namespace

client &bus::connect(unique_fd socket, caller who)
{
    const uint32_t id = unused_id(clients_);
    auto created = std::make_unique<client>(id, std::move(socket), std::move(who));
    client &added = *created;
    clients_.emplace(id, std::move(created));
    added.send({.type = UBUS_MSG_HELLO, .seq = 0, .peer = id}, message_buffer().body());
    return added;
}

void bus::disconnect(client &gone)
{
    while (!gone.objects.empty()) {
        object &object = *gone.objects.front();
        withdraw(object);
        objects_.remove(object);
    }
    clients_.erase(gone.id());
}

bool bus::receive(client &sender, std::span<uint8_t> bytes, unique_fd fd)
{
    while (!bytes.empty()) {
        const bool begins = sender.input.at_boundary();
        frame message;
        const auto outcome = sender.input.next(bytes, message);
        if (outcome == frame_reader::outcome::broken)
            return false;
        if (begins && bytes.empty())
            sender.received_fd = unique_fd(fd.release());
        if (outcome == frame_reader::outcome::complete) {
            handle(sender, message);
            sender.received_fd = unique_fd();
        }
    }
    return true;
}

void bus::flush(client &reader)
{
    reader.flush();
    lookups_.resume(reader);
}

void bus::handle(client &sender, const frame &message)
{
    const request request{sender, message, read_fields(message)};
    const int status = answer(request);
    if (status != no_status)
        sender.send_status(message.header, status);
}

int bus::answer(const request &request)
{
    switch (request.header().type) {
    case UBUS_MSG_STATUS:
    case UBUS_MSG_DATA:
        return relay(request);
    case UBUS_MSG_PING:
        return ping(request);
    case UBUS_MSG_LOOKUP:
        return lookups_.handle(request);
    case UBUS_MSG_INVOKE:
        return invoke(request);
    case UBUS_MSG_ADD_OBJECT:
        return add_object(request);
    case UBUS_MSG_REMOVE_OBJECT:
        return remove_object(request);
    case UBUS_MSG_SUBSCRIBE:
        return subscriptions_.subscribe(request);
    case UBUS_MSG_UNSUBSCRIBE:
        return subscriptions_.unsubscribe(request);
    case UBUS_MSG_NOTIFY:
        return notify(request);
    default:
        return UBUS_STATUS_INVALID_COMMAND;
    }
}

int bus::ping(const request &request)
{
    frame_header echo = request.header();
    echo.type = UBUS_MSG_DATA;
    request.sender.send(echo, request.message.body);
    return UBUS_STATUS_OK;
}

// The type that an ADD_OBJECT asks for; nullptr when it names none, an unknown one or one that is not
// well-formed.
object_type *bus::type_for(const request &request)
{
    if (request.has(UBUS_ATTR_OBJTYPE))
        return objects_.find_type(request.number(UBUS_ATTR_OBJTYPE));
    if (!request.has(UBUS_ATTR_SIGNATURE))
        return nullptr;
    auto signature = read_signature(request.field(UBUS_ATTR_SIGNATURE));
    return signature ? objects_.add_type(std::move(*signature)) : nullptr;
}

int bus::add_object(const request &request)
{
    std::optional<std::string> path;
    if (request.has(UBUS_ATTR_OBJPATH)) {
        path = request.text(UBUS_ATTR_OBJPATH);
        // Deliberate: a path that the client may not publish is refused as if it were no valid one.
        if (objects_.paths().contains(*path) || !access_.may_publish(request.sender.who(), *path))
            return UBUS_STATUS_INVALID_ARGUMENT;
    }
    object_type *const type = type_for(request);
    const object *const added = objects_.add(request.sender, std::move(path), type);
    if (!added) {
        objects_.drop_unused(type);
        return UBUS_STATUS_NO_MEMORY;
    }
    events_.announce("ubus.object.add", *added);

    message_buffer answer;
    answer.number(UBUS_ATTR_OBJID, added->id);
    if (type && request.has(UBUS_ATTR_SIGNATURE))
        answer.number(UBUS_ATTR_OBJTYPE, type->id);
    request.answer(answer.body());
    return UBUS_STATUS_OK;
}

int bus::remove_object(const request &request)
{
    if (!request.has(UBUS_ATTR_OBJID))
        return UBUS_STATUS_INVALID_ARGUMENT;
    const uint32_t id = request.number(UBUS_ATTR_OBJID);
    if (is_bus_object(id))
        return UBUS_STATUS_PERMISSION_DENIED;
    object *const gone = objects_.find(id);
    if (!gone)
        return UBUS_STATUS_NOT_FOUND;
    if (gone->owner != &request.sender)
        return UBUS_STATUS_PERMISSION_DENIED;

    message_buffer answer;
    answer.number(UBUS_ATTR_OBJID, id);
    if (gone->type && gone->type->objects == 1)
        answer.number(UBUS_ATTR_OBJTYPE, gone->type->id);
    request.answer(answer.body());
    withdraw(*gone);
    objects_.remove(*gone);
    return UBUS_STATUS_OK;
}

// Ends everything that others have to do with an object, and tells them.
void bus::withdraw(object &gone)
{
    events_.announce("ubus.object.remove", gone);
    events_.forget(gone);
    subscriptions_.forget(gone);
}

int bus::invoke(const request &request)
{
    if (!request.has(UBUS_ATTR_OBJID) || !request.has(UBUS_ATTR_METHOD))
        return UBUS_STATUS_INVALID_ARGUMENT;
    const uint32_t id = request.number(UBUS_ATTR_OBJID);
    if (id == UBUS_OBJECT_EVENT)
        return events_.handle(request);
    if (id == UBUS_OBJECT_ACL)
        return UBUS_STATUS_INVALID_COMMAND;
    // The monitor object is not offered: it counts as unknown.
    const object *const callee = objects_.find(id);
    if (!callee)
        return UBUS_STATUS_NOT_FOUND;
    const std::string_view path = callee->path ? std::string_view(*callee->path) : "";
    if (!access_.may_call(request.sender.who(), path, request.text(UBUS_ATTR_METHOD)))
        return UBUS_STATUS_PERMISSION_DENIED;
    // Deliberate: a caller's wish for no reply is not passed on; the owner answers such a call like any
    // other.
    forward_call(request, *callee, /*no_reply=*/false);
    return no_status;
}

int bus::notify(const request &request)
{
    if (!request.has(UBUS_ATTR_OBJID) || !request.has(UBUS_ATTR_METHOD))
        return UBUS_STATUS_INVALID_ARGUMENT;
    const object *const subject = objects_.find(request.number(UBUS_ATTR_OBJID));
    if (!subject)
        return UBUS_STATUS_NOT_FOUND;
    if (subject->owner != &request.sender)
        return UBUS_STATUS_PERMISSION_DENIED;

    subscriptions_.report_subscribers(request, *subject);
    for (const object *subscriber : subject->subscribers)
        forward_call(request, *subscriber, request.flag(UBUS_ATTR_NO_REPLY));
    return no_status;
}

// Calls an object in the name of the sender. The owner's answers come back to the sender by its client id.
void bus::forward_call(const request &request, const object &callee, bool no_reply)
{
    const caller &who = request.sender.who();
    message_buffer call;
    if (no_reply)
        call.flag(UBUS_ATTR_NO_REPLY, true);
    call.number(UBUS_ATTR_OBJID, callee.id)
        .text(UBUS_ATTR_METHOD, request.text(UBUS_ATTR_METHOD))
        .text(UBUS_ATTR_USER, who.user.c_str())
        .text(UBUS_ATTR_GROUP, who.group.c_str());
    if (request.has(UBUS_ATTR_DATA))
        call.bytes(UBUS_ATTR_DATA, request.bytes(UBUS_ATTR_DATA));
    const frame_header header{
        .type = UBUS_MSG_INVOKE, .seq = request.header().seq, .peer = request.sender.id()};
    callee.owner->send(header, call.body(), request.sender.received_fd.get());
}

// Passes an owner's answer to the caller, byte for byte. What can't be delivered is dropped without a word.
int bus::relay(const request &request)
{
    const bool is_status = request.header().type == UBUS_MSG_STATUS;
    if (!request.has(UBUS_ATTR_OBJID) || !request.has(is_status ? UBUS_ATTR_STATUS : UBUS_ATTR_DATA))
        return no_status;
    const object *const answering = objects_.find(request.number(UBUS_ATTR_OBJID));
    if (!answering || answering->owner != &request.sender)
        return no_status;
    const auto to = clients_.find(request.header().peer);
    if (to == clients_.end())
        return no_status;

    frame_header header = request.header();
    header.peer = answering->id;
    to->second->send(header, request.message.body, is_status ? request.sender.received_fd.get() : -1);
    return no_status;
}

} // namespace ubusd
