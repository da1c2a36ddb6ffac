// The target's owner learns when the first subscriber comes and the last one leaves; a subscriber learns when
// its target vanishes.
#include "subscriptions.h"

#include <algorithm>

#include "message_buffer.h"

namespace ubusd {

namespace {

// What a subscription is charged: an entry in two lists.
constexpr size_t subscription_footprint = 64;

void tell_owner(const object &target, bool active)
{
    message_buffer news;
    news.number(UBUS_ATTR_OBJID, target.id).flag(UBUS_ATTR_ACTIVE, active);
    target.owner->send({.type = UBUS_MSG_NOTIFY}, news.body());
}

} // namespace

// Fails with the status for the sender; edge_out is valid on UBUS_STATUS_OK only.
int subscriptions::find_edge(const request &request, edge &edge_out) const
{
    if (!request.has(UBUS_ATTR_OBJID) || !request.has(UBUS_ATTR_TARGET))
        return UBUS_STATUS_INVALID_ARGUMENT;
    edge_out.subscriber = objects_.find(request.number(UBUS_ATTR_OBJID));
    if (!edge_out.subscriber)
        return UBUS_STATUS_NOT_FOUND;
    if (edge_out.subscriber->owner != &request.sender)
        return UBUS_STATUS_INVALID_ARGUMENT;
    edge_out.target = objects_.find(request.number(UBUS_ATTR_TARGET));
    if (!edge_out.target)
        return UBUS_STATUS_NOT_FOUND;
    return edge_out.target->owner == &request.sender ? UBUS_STATUS_INVALID_ARGUMENT : UBUS_STATUS_OK;
}

int subscriptions::subscribe(const request &request)
{
    edge found;
    if (const int status = find_edge(request, found); status != UBUS_STATUS_OK)
        return status;
    const std::string_view path = found.target->path ? std::string_view(*found.target->path) : "";
    if (!access_.may_subscribe(request.sender.who(), path))
        return UBUS_STATUS_PERMISSION_DENIED;
    if (std::ranges::find(found.subscriber->targets, found.target) != found.subscriber->targets.end())
        return UBUS_STATUS_OK;
    if (!request.sender.reserve(subscription_footprint))
        return UBUS_STATUS_NO_MEMORY;

    found.subscriber->targets.push_back(found.target);
    found.target->subscribers.push_back(found.subscriber);
    if (found.target->subscribers.size() == 1)
        tell_owner(*found.target, true);
    return UBUS_STATUS_OK;
}

int subscriptions::unsubscribe(const request &request)
{
    edge found;
    if (const int status = find_edge(request, found); status != UBUS_STATUS_OK)
        return status;
    if (std::ranges::find(found.subscriber->targets, found.target) == found.subscriber->targets.end())
        return UBUS_STATUS_NOT_FOUND;
    end(*found.subscriber, *found.target);
    return UBUS_STATUS_OK;
}

void subscriptions::end(object &subscriber, object &target)
{
    std::erase(subscriber.targets, &target);
    std::erase(target.subscribers, &subscriber);
    subscriber.owner->release(subscription_footprint);
    if (target.subscribers.empty())
        tell_owner(target, false);
}

void subscriptions::report_subscribers(const request &request, const object &subject) const
{
    if (request.flag(UBUS_ATTR_NO_REPLY))
        return;
    message_buffer list;
    for (const object *subscriber : subject.subscribers)
        list.number(0, subscriber->id);
    message_buffer answer;
    answer.number(UBUS_ATTR_OBJID, subject.id)
        .bytes(UBUS_ATTR_SUBSCRIBERS, list.body().subspan(sizeof(blob_attr)))
        .number(UBUS_ATTR_STATUS, UBUS_STATUS_OK);
    request.sender.send({.type = UBUS_MSG_STATUS, .seq = request.header().seq, .peer = request.header().peer},
                        answer.body());
}

void subscriptions::forget(object &gone)
{
    while (!gone.targets.empty())
        end(gone, *gone.targets.back());
    for (object *subscriber : gone.subscribers) {
        message_buffer news;
        news.number(UBUS_ATTR_OBJID, subscriber->id).number(UBUS_ATTR_TARGET, gone.id);
        subscriber->owner->send({.type = UBUS_MSG_UNSUBSCRIBE}, news.body());
        std::erase(subscriber->targets, &gone);
        subscriber->owner->release(subscription_footprint);
    }
    gone.subscribers.clear();
}

} // namespace ubusd
