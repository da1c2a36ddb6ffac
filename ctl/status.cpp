// One call of `all` makes the table, one of korvel.state, where it is there, what stands below it.
#include "ctl/status.h"

#include "ctl/option_reader.h"
#include "ctl/try.h"
#include "ctl/waiting.h"
#include "ctl/wan_list.h"
#include "ctl/words.h"

#include <ctime>

namespace {

constexpr option_row rows[] = {{"watch", "", "print the table again every two seconds", 0}};
constexpr auto options = pack_options<rows>();
constexpr timespec watch_pause = {2, 0};

struct state_of_wans {
    wan_list wans;
    waiting_changes waiting;
    bool tells_waiting = false;
};

bool wants(const wan_config &record, uint8_t protocol)
{
    return record.wanMode == wan_mode_routed && (record.ipProtocol & protocol) != 0;
}

bool is_down(const wan_config &record)
{
    return (wants(record, ip_protocol_v4) && !record.status) ||
           (wants(record, ip_protocol_v6) && !record.statusV6);
}

// The link name without what has columns of its own: the identifier before it, the VLAN behind it.
std::string_view name_in_table(const wan_config &record)
{
    std::string_view name = text_view(record.wanName);
    char id[8];
    (void)text_ref(id).format("%u_", record.wanId);
    if (name.find(id) == 0)
        name.remove_prefix(strlen(id));
    const size_t label = name.find("_VID_");
    if (label != std::string_view::npos)
        name.remove_suffix(name.size() - label);
    return name;
}

void print_row(const wan_config &record)
{
    char id[8], vlan[8] = "-";
    (void)text_ref(id).format("%u", record.wanId);
    if (record.vlanMode)
        (void)text_ref(vlan).format("%u", record.vid);
    const bool v4 = wants(record, ip_protocol_v4), v6 = wants(record, ip_protocol_v6);
    const bool up = (v4 && record.status) || (v6 && record.statusV6);
    {
        const coloured_line line(is_down(record) ? colour::red : colour::plain);
        line.put_cell(id, 3);
        line.put_cell(name_in_table(record), 21);
        line.put_cell(mode_word(record), 6);
        line.put_cell(text_view(record.device), 11);
        line.put_cell(vlan, 4);
        line.put_cell(!v4 ? "-" : record.status ? text_view(record.ip) : "down", 15);
        line.put_cell(!v6 ? "-" : record.statusV6 ? "up" : "down", 4);
        line.put(up ? time_words(record.uptime).text : "-");
    }
    if (v6 && record.statusV6 && !text_empty(record.ipv6Addr))
        say("    %s", c_text(record.ipv6Addr).data);
}

// What is amiss, in one line, as long as it gets.
void print_amiss(const wan_list &wans)
{
    char line[160] = {};
    size_t used = 0;
    for (const wan_config &record : wans) {
        if (!is_down(record))
            continue;
        const text_ref rest(line + used, sizeof(line) - used);
        (void)rest.format("%s %u", used > 0 ? "," : "", record.wanId);
        used += strlen(rest.data);
    }
    if (used > 60)
        (void)text_ref(line + 57, 4).format("...");
    if (used > 0)
        say_in(colour::yellow, "Down: WAN%s", line);
}

void print_waiting(const state_of_wans &state)
{
    state.waiting.each([](blob_attr *entry) {
        say("Waiting: WAN %d changes %s in %s", static_cast<int>(bus_number(entry, "wanId")),
            changed_words(entry).text, time_words(static_cast<uint64_t>(bus_number(entry, "seconds"))).text);
    });
    if (!state.tells_waiting)
        say("(This daemon does not tell what is waiting.)");
}

void print_table(const state_of_wans &state)
{
    if (state.wans.size() == 0)
        say("There are no WANs.");
    else
        say_in(colour::bold, "%s",
               "ID  NAME                  MODE   DEVICE      VLAN IPV4            IPV6 SINCE");
    for (const wan_config &record : state.wans)
        print_row(record);
    print_waiting(state);
    if (try_waits())
        say_in(colour::yellow, "A change is on trial and goes again, unless: korvelctl confirm");
    print_amiss(state.wans);
    (void)fflush(stdout);
}

void print_json(const state_of_wans &state)
{
    json_writer json;
    json.open_answer();
    json.open_array("wans");
    for (const wan_config &record : state.wans) {
        json.open_object();
        write_wan(json, record, secrets::hidden);
        json.close_object();
    }
    json.close_array();
    json.open_array("down");
    for (const wan_config &record : state.wans)
        if (is_down(record))
            json.number(nullptr, record.wanId);
    json.close_array();
    json.flag("onTrial", try_waits());
    if (state.tells_waiting) {
        json.open_array("waiting");
        state.waiting.each([&](blob_attr *entry) { write_waiting(json, entry); });
        json.close_array();
    }
    json.close_answer();
}

exit_status print_status()
{
    bus_connection bus;
    state_of_wans state;
    const exit_status result = state.wans.read(bus);
    if (result != exit_status::done)
        return result;
    state.tells_waiting = state.waiting.ask(bus);
    output_is_json() ? print_json(state) : print_table(state);
    return exit_status::done;
}

// Each round connects anew, so that it outlives the bus daemon.
[[noreturn]] void watch()
{
    for (;;) {
        if (output_is_terminal() && !output_is_json())
            (void)fputs("\033[H\033[J", stdout);
        (void)print_status();
        if (!output_is_json())
            say("%s", "");
        (void)fflush(stdout);
        (void)nanosleep(&watch_pause, nullptr);
    }
}

} // namespace

exit_status run_status(std::span<char *const> words)
{
    bool again = false;
    if (const exit_status result =
            read_short_line(words, "status takes no ", "; `show ID` has one WAN alone", options.text, &again);
        result != exit_status::done)
        return result;
    if (again)
        watch();
    return print_status();
}
