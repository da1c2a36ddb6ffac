// A change is judged here, asked of the daemon, and told in words. What became of it is looked up where the
// reply does not tell: the identifier of a new WAN, a call whose answer did not come in time, a change that
// the daemon calls OK although it could not make it.
#include "ctl/change.h"

#include "ctl/request.h"
#include "ctl/stored.h"
#include "ctl/verdict.h"
#include "ctl/waiting.h"
#include "ctl/words.h"

namespace {

// The daemon's replies, "status".
enum : int { reply_ok = 0, reply_vlan = -2, reply_port = -3, reply_no_port = -4 };

// A call of the daemon, and what came of it.
struct outcome {
    int bus_status = 0;
    int64_t status = 0; // the reply's
    bus_answer reply;

    bool timed_out() const { return bus_status == UBUS_STATUS_TIMEOUT; }
    const char *lateness() const { return timed_out() ? " (The answer did not come in time.)" : ""; }
    const char *info() const { return bus_text(reply.get(), "info", "no reason given"); }
};

outcome ask(bus_connection &bus, const char *method, blob_attr *message)
{
    outcome result;
    result.bus_status = bus.call("korvel", method, message, result.reply);
    result.status = bus_number(result.reply.get(), "status", result.bus_status == 0 ? 0 : -1);
    return result;
}

// A refusal's reply in words, with the WAN that is in the way.
exit_status fail_refused(bus_connection &bus, const outcome &result, const wan_config &record, uint8_t own_id)
{
    wan_list wans;
    (void)wans.ask(bus);
    const wan_config *holder = nullptr;
    char whose[sizeof(wan_title)] = "another WAN";
    if (result.status == reply_vlan)
        holder = vlan_holder(record, own_id, wans);
    else if (result.status == reply_port)
        holder = port_holder(record, own_id, wans);
    if (holder)
        (void)text_ref(whose).format("%s", wan_title(*holder).text);
    switch (result.status) {
    case reply_vlan:
        return fail(exit_status::vlan_taken, "refused: %s has VLAN %u", whose, record.vid);
    case reply_port:
        return fail(exit_status::port_bound, "refused: %s has one of the ports %s", whose,
                    port_words(record).text);
    case reply_no_port:
        return fail(exit_status::port_required, "refused: a bridged WAN of service other needs a port");
    default:
        return fail(exit_status::refused, "refused: %s", result.info());
    }
}

// Has the daemon tell its WANs as they are now. Where the call's answer did not come this says what became of
// it, as the daemon does one thing at a time; else it only serves to tell more.
exit_status look_up(bus_connection &bus, const outcome &result, wan_list &wans)
{
    if (result.timed_out())
        warn("no answer within %d s; looking what became of it", call_timeout() / 1000);
    if (wans.ask(bus) == UBUS_STATUS_OK || !result.timed_out())
        return exit_status::done;
    return fail(exit_status::no_answer, "no answer came, and the daemon does not answer now; look with "
                                        "`korvelctl status` before you repeat it");
}

// The WAN that is there now, was not before, and is what was asked for.
const wan_config *find_new(const wan_list &before, const wan_list &after, const wan_config &record)
{
    for (const wan_config &other : after)
        if (!before.find(other.wanId) && other.wanMode == record.wanMode &&
            other.vlanMode == record.vlanMode && (!record.vlanMode || other.vid == record.vid) &&
            other.service == record.service)
            return &other;
    return nullptr;
}

exit_status tell_created(bus_connection &bus, const outcome &result, const wan_list &before,
                         const wan_config &record)
{
    wan_list after;
    if (const exit_status looked = look_up(bus, result, after); looked != exit_status::done)
        return looked;
    const wan_config *const made = find_new(before, after, record);
    if (!made && result.timed_out())
        return fail(exit_status::refused,
                    "no answer came in time, and there is no such WAN; it may be asked for again");
    if (!made)
        return tell_result("created", 0, "", "The WAN is created; which identifier it got is not known.");
    return tell_result("created", made->wanId, c_text(made->wanName), "%s is created.%s",
                       wan_title(*made).text, result.lateness());
}

// What is asked of the daemon, in full.
struct call {
    const char *method;
    const wan_request &request;
    const wan_config &record;
    arg_set which;
};

void add_call(bus_message &message, const call &made)
{
    if (made.request.wan_id != 0)
        (void)blobmsg_add_u32(message.buffer(), "wanId", made.request.wan_id);
    add_arguments(message, made.record, made.which);
    if (made.request.waits)
        (void)blobmsg_add_u32(message.buffer(), "wait", made.request.wait);
}

void write_call(json_writer &json, const char *key, const call &made)
{
    json.open_object(key);
    if (made.request.wan_id != 0)
        json.number("wanId", made.request.wan_id);
    write_arguments(json, made.record, made.which, made.request.which);
    if (made.request.waits)
        json.number("wait", made.request.wait);
    json.close_object();
}

// What the daemon itself would say, where its configuration can be read.
void judge_as_daemon(const call &made, verdict &result)
{
    if (result || !load_stored_settings())
        return;
    switch (stored_conflict(made.record, made.request.wan_id)) {
    case reply_vlan:
        return result.refuse(exit_status::vlan_taken, "the daemon would refuse it: the VLAN is taken");
    case reply_port:
        return result.refuse(exit_status::port_bound,
                             "the daemon would refuse it: a port is bound to another WAN");
    case reply_no_port:
        return result.refuse(exit_status::port_required, "the daemon would refuse it: it needs a port");
    default:
        return;
    }
}

exit_status print_dry(const call &made, verdict &result)
{
    judge_as_daemon(made, result);
    json_writer json;
    if (output_is_json()) {
        json.open_object();
        json.flag("ok", !result);
        json.text("method", made.method);
        write_call(json, "arguments", made);
        if (result)
            json.text("refusal", result.text);
        json.number("exit", static_cast<int64_t>(result.status));
        json.close_answer();
        return result.status;
    }
    (void)printf("ubus call korvel %s '", made.method);
    write_call(json, nullptr, made);
    (void)fputs("'\n", stdout);
    if (result)
        return fail(result.status, "%s", result.text);
    say("Nothing is seen that would refuse it. Nothing was sent.");
    return exit_status::done;
}

// What a change of the mode leaves behind is no part of the new one.
void drop_old_mode(const wan_config &before, const wan_request &request, wan_config *record)
{
    if (before.ipMode == record->ipMode && before.wanMode == record->wanMode)
        return;
    constexpr uint8_t rows[] = {ARG(ip),          ARG(mask),       ARG(gateway), ARG(ipv6Addr),
                                ARG(ipv6Gateway), ARG(ipv6Prefix), ARG(pppUser), ARG(pppPwd),
                                ARG(pppServName), ARG(pppDialMode)};
    for (const size_t row : rows)
        if (!request.given.has(row))
            arg_field(row).copy({}, *record);
    if (record->wanMode == wan_mode_routed && record->ipMode == ip_mode_static &&
        !request.given.has(ARG(autoDns)))
        record->autoDns = record->autoDnsV6 = 0; // nobody tells any
}

// A waiting change starts from what was stored when it was asked for, so it takes back what is changed now.
void warn_of_waiting(bus_connection &bus, uint8_t wan_id)
{
    waiting_changes waiting;
    if (!waiting.ask(bus))
        return;
    waiting.each([&](blob_attr *entry) {
        if (bus_number(entry, "wanId") == wan_id)
            warn("a change of WAN %u waits (%s) and will be made over this one in %s, unless: korvelctl "
                 "cancel %u",
                 wan_id, changed_words(entry).text,
                 time_words(static_cast<uint64_t>(bus_number(entry, "seconds"))).text, wan_id);
    });
}

exit_status tell_queued(const outcome &result, const wan_config &record, uint32_t wait)
{
    if (result.timed_out())
        return fail(
            exit_status::no_answer,
            "no answer came; look with `korvelctl status` whether the change waits before you repeat it");
    return tell_result("queued", record.wanId, c_text(record.wanName),
                       "The change of %s waits %s, and some seconds more if others wait.",
                       wan_title(record).text, time_words(wait).text);
}

// Whether the change was made is looked up: the daemon calls it OK too when it could not make it.
exit_status tell_changed(bus_connection &bus, const outcome &result, const wan_config &before,
                         const wan_config &wanted)
{
    wan_list wans;
    if (const exit_status looked = look_up(bus, result, wans); looked != exit_status::done)
        return looked;
    wan_config after = {};
    const bool readable = read_stored(wanted.wanId, &after);
    if (!readable || (same_arguments(before, after) && !same_arguments(before, wanted)))
        return fail(exit_status::refused, "%s, but WAN %u is as it was; the system log tells why",
                    result.timed_out() ? "no answer came in time" : "the daemon said OK", wanted.wanId);
    const wan_config *const now = wans.find(wanted.wanId);
    const wan_config &named = now ? *now : after;
    return tell_result("changed", named.wanId, c_text(named.wanName), "%s is changed.%s",
                       wan_title(named).text, result.lateness());
}

// Judges a call, then sends it, unless it is to be printed only, and tells what came of it. `before` is what
// a modification starts from, null for a new WAN.
exit_status make(bus_connection &bus, const call &made, const wan_list &wans, const wan_config *before)
{
    verdict judged = judge(made.request, made.record, wans);
    if (made.request.dry_run)
        return print_dry(made, judged);
    if (judged)
        return fail(judged.status, "%s", judged.text);
    if (before && !made.request.waits)
        warn_of_waiting(bus, made.request.wan_id);
    bus_message message;
    add_call(message, made);
    const outcome result = ask(bus, made.method, message.head());
    if (!result.timed_out() && !result.reply)
        return fail_call(result.bus_status, "korvel", made.method);
    if (!result.timed_out() && result.status != reply_ok)
        return fail_refused(bus, result, made.record, made.request.wan_id);
    if (!before)
        return tell_created(bus, result, wans, made.record);
    return made.request.waits ? tell_queued(result, made.record, made.request.wait)
                              : tell_changed(bus, result, *before, made.record);
}

// What a modification starts from. The daemon lays a waiting one over what is stored by itself; an immediate
// one has to say all of it.
exit_status read_before(const wan_request &request, const wan_list &wans, wan_config *before)
{
    const wan_config *const reported = wans.find(request.wan_id);
    if (!reported)
        return fail(exit_status::no_such, "there is no WAN %u; see `korvelctl status`", request.wan_id);
    *before = *reported;
    if (read_stored(request.wan_id, before) || request.waits)
        return exit_status::done;
    return fail(
        exit_status::denied,
        "what is stored of WAN %u cannot be read; be root, or let the daemon do it a moment later: --in 1s",
        request.wan_id);
}

exit_status delete_one(bus_connection &bus, const wan_list &wans, uint8_t wan_id)
{
    const wan_config *const before = wans.find(wan_id);
    if (!before)
        return fail(exit_status::no_such, "there is no WAN %u; see `korvelctl status`", wan_id);
    bus_message message;
    (void)blobmsg_add_u32(message.buffer(), "wanId", wan_id);
    const outcome result = ask(bus, "del", message.head());
    wan_list after;
    if (result.timed_out()) {
        const exit_status looked = look_up(bus, result, after);
        if (looked != exit_status::done)
            return looked;
        if (after.find(wan_id))
            return fail(exit_status::refused,
                        "no answer came in time, and WAN %u is there; it may be asked again", wan_id);
    } else if (!result.reply) {
        return fail_call(result.bus_status, "korvel", "del");
    } else if (result.status != reply_ok) {
        return fail(exit_status::refused, "WAN %u could not be deleted as a whole; the system log tells why",
                    wan_id);
    }
    return tell_result("deleted", wan_id, c_text(before->wanName), "%s is deleted.", wan_title(*before).text);
}

exit_status delete_all(bus_connection &bus, const wan_list &wans)
{
    const outcome result = ask(bus, "delAll", nullptr);
    if (!result.timed_out() && result.bus_status != UBUS_STATUS_OK)
        return fail_call(result.bus_status, "korvel", "delAll");
    wan_list after; // the method itself tells nothing
    const exit_status looked = result.timed_out() ? look_up(bus, result, after) : after.read(bus);
    if (looked != exit_status::done)
        return looked;
    if (after.size() > 0)
        return fail(exit_status::refused, "%zu WANs are left; the system log tells why", after.size());
    return tell_result("deleted", 0, "", "All WANs are deleted, %zu of them.", wans.size());
}

constexpr option_row del_rows[] = {{"all", "", "every WAN", 0}};
constexpr auto del_options = pack_options<del_rows>();

} // namespace

exit_status run_add(std::span<char *const> words)
{
    wan_request request;
    if (const exit_status result = read_request(words, takes_id::no, &request); result != exit_status::done)
        return result;
    bus_connection bus;
    wan_list wans;
    if (const exit_status result = wans.read(bus); result != exit_status::done)
        return result;
    const wan_config record = new_wan(request);
    return make(bus, {"add", request, record, arg_set::all()}, wans, nullptr);
}

exit_status run_modify(std::span<char *const> words)
{
    wan_request request;
    if (const exit_status result = read_request(words, takes_id::yes, &request); result != exit_status::done)
        return result;
    if (request.given.empty())
        return fail(exit_status::usage, "what of WAN %u is to change? see `korvelctl modify --help`",
                    request.wan_id);
    bus_connection bus;
    wan_list wans;
    if (const exit_status result = wans.read(bus); result != exit_status::done)
        return result;
    wan_config before = {};
    if (const exit_status result = read_before(request, wans, &before); result != exit_status::done)
        return result;
    wan_config record = before;
    lay_over(request, &record);
    drop_old_mode(before, request, &record);
    return make(bus, {"modify", request, record, request.waits ? request.given : arg_set::all()}, wans,
                &before);
}

exit_status run_del(std::span<char *const> words)
{
    uint8_t id = 0;
    bool all = false;
    if (const exit_status result =
            read_id_line(words, "del takes one identifier; ", &id, del_options.text, &all);
        result != exit_status::done)
        return result;
    if (all == (id != 0))
        return fail(exit_status::usage,
                    "del takes an identifier, or --all for every WAN, not both; see `status`");
    bus_connection bus;
    wan_list wans;
    if (all)
        (void)wans.ask(bus); // where that fails, the sweep is what helps
    else if (const exit_status result = wans.read(bus); result != exit_status::done)
        return result;
    return all ? delete_all(bus, wans) : delete_one(bus, wans, id);
}

exit_status run_cancel(std::span<char *const> words)
{
    uint8_t id = 0;
    if (const exit_status result = read_id_line(words, "cancel takes one identifier; ", &id);
        result != exit_status::done)
        return result;
    if (id == 0)
        return fail(exit_status::usage, "whose change? `korvelctl cancel ID`; see `status`");
    bus_connection bus;
    if (bus.has("korvel") && !bus.has("korvel.state"))
        return fail(exit_status::refused,
                    "this daemon cannot take waiting changes back, or not for this user");
    bus_message message;
    (void)blobmsg_add_u32(message.buffer(), "wanId", id);
    bus_answer answer;
    const int status = bus.call("korvel.state", "cancel", message.head(), answer);
    if (!answer)
        return fail_call(status, "korvel.state", "cancel");
    if (bus_number(answer.get(), "status", -1) != reply_ok)
        return fail(exit_status::no_such, "no change of WAN %u waits", id);
    return tell_result("cancelled", id, "", "The change of WAN %u that waited is taken back.", id);
}
