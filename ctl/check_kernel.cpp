// What `check` sees in the kernel: policy rules, routing tables, bridge and mangle rules, against those that
// the scripts of the WANs install.
#include "ctl/check.h"

#include "base/heap.h"
#include "base/os.h"
#include "rules/firewall_mark.h"
#include "rules/port_names.h"
#include "rules/route_rule.h"
#include "service/settings.h"
#include "wan/wan_names.h"

#include <cstdarg>
#include <cstdlib>

namespace {

constexpr size_t listing_size = 512 * 1024;
constexpr char apply_rules[] = "/usr/libexec/korvel/apply-rules";

// What a program lists, in lines without the blanks around them.
class listing {
public:
    explicit listing(const char *command) : text_(static_cast<char *>(calloc(1, listing_size)))
    {
        if (!text_ || !read_command(command, text_ref(text_.get(), listing_size)))
            text_.reset();
    }
    // Whether there is anything at all.
    explicit operator bool() const { return text_ && text_.get()[0] != '\0'; }

    // Calls body(line) with each line; stops when it returns true, and returns that.
    template <typename callable> bool any(callable body) const
    {
        for (const char *at = text_ ? text_.get() : ""; *at != '\0';) {
            const size_t length = strcspn(at, "\n");
            std::string_view line(at, length);
            while (!line.empty() && (line.front() == ' ' || line.front() == '\t'))
                line.remove_prefix(1);
            while (!line.empty() && line.back() == ' ')
                line.remove_suffix(1);
            if (!line.empty() && body(line))
                return true;
            at += length + (at[length] == '\n' ? 1 : 0);
        }
        return false;
    }
    bool has(const char *line) const
    {
        return any([&](std::string_view other) { return other == line; });
    }

private:
    heap_ptr<char> text_;
};

struct kernel_state {
    listing rules{"ip rule show 2>/dev/null | sed 's/^[0-9]*:[[:space:]]*//'"};
    listing forward{"ebtables -L FORWARD 2>/dev/null | grep ^-"};
    listing broute{"ebtables -t broute -L BROUTING 2>/dev/null | grep ^-"};
    listing mangle{"iptables -t mangle -S OUTPUT 2>/dev/null | grep -e '--set-xmark 0x0/'"};
};

struct line {
    char text[192];
    explicit line(const char *pattern, ...) __attribute__((format(printf, 2, 3)))
    {
        va_list arguments;
        va_start(arguments, pattern);
        (void)vsnprintf(text, sizeof(text), pattern, arguments);
        va_end(arguments);
    }
};

// The number behind a word of a rule; -1 when there is none.
int64_t number_behind(std::string_view rule, const char *word)
{
    const size_t at = rule.find(word);
    char digits[16] = {};
    if (at == std::string_view::npos)
        return -1;
    rule.remove_prefix(at + strlen(word));
    (void)text_ref(digits).format("%.*s", static_cast<int>(rule.size() < 15 ? rule.size() : 15), rule.data());
    char *end = nullptr;
    const long long number = strtoll(digits, &end, 0);
    return end == digits ? -1 : number;
}

bool is_up(const wan_config &record)
{
    return record.wanMode == wan_mode_routed && (record.ipProtocol & ip_protocol_v4) != 0 &&
           record.status != 0;
}

const char *remedy_of(const wan_config &record, finding_text &buffer)
{
    if (record.wanMode == wan_mode_bridged)
        return apply_rules;
    buffer =
        finding_text("ACTION=ifupdate INTERFACE=%s hotplug-call iface", wan_names(record.wanId).interface);
    return buffer;
}

void report_missing(const char *rule, const wan_config &record, finding_report &report)
{
    finding_text remedy("%s", "");
    report.add(finding::rule_missing,
               finding_text("WAN %u (%s): the rule \"%s\" is not in the kernel", record.wanId,
                            c_text(record.wanName).data, rule),
               remedy_of(record, remedy));
}

void need(const listing &rules, const char *rule, const wan_config &record, finding_report &report)
{
    if (!rules.has(rule))
        report_missing(rule, record, report);
}

// The mark is shown as it was given, or in hexadecimal.
void need_mark(const listing &broute, const char *port, uint32_t mark, const wan_config &record,
               finding_report &report)
{
    const line start("-i %s -j mark --mark-or ", port);
    if (!broute.any([&](std::string_view rule) {
            return rule.find(start.text) == 0 && number_behind(rule, " --mark-or ") == mark;
        }))
        report_missing(line("%s0x%x --mark-target CONTINUE", start.text, mark).text, record, report);
}

// Calls body(port) with each name of a list with blanks.
template <typename callable> void each_port(char *list, callable body)
{
    char *rest = nullptr;
    for (const char *port = strtok_r(list, " ", &rest); port; port = strtok_r(nullptr, " ", &rest))
        body(port);
}

void check_ports(const kernel_state &kernel, const wan_config &record, finding_report &report)
{
    char bound[port_list_size] = {}, unbound[port_list_size] = {};
    const uint32_t mark = wan_firewall_mark(record.wanId);
    wan_build_port_lists(&record, bound, unbound);
    each_port(bound, [&](const char *port) { need_mark(kernel.broute, port, mark, record, report); });
    if (record.wanMode != wan_mode_bridged)
        return;
    const c_text device(record.device);
    each_port(unbound, [&](const char *port) {
        need(kernel.forward, line("-i %s -o %s -j DROP", device.data, port).text, record, report);
        need(kernel.forward, line("-i %s -o %s -j DROP", port, device.data).text, record, report);
    });
}

void check_table(const wan_config &record, finding_report &report)
{
    const uint32_t table = record.wanId + first_wan_table;
    const c_text gateway(record.gateway);
    const listing routes(line("ip route show table %u 2>/dev/null", table).text);
    const line wanted("default via %s ", gateway.data);
    if (text_empty(record.gateway))
        return;
    if (routes.any([&](std::string_view route) { return route.find(wanted.text) == 0; }))
        return;
    report.add(
        finding::wrong_gateway,
        finding_text("The routing table %u of WAN %u (%s) has no default route by its gateway %s", table,
                     record.wanId, c_text(record.wanName).data, gateway.data),
        finding_text("ACTION=ifupdate INTERFACE=%s hotplug-call iface", wan_names(record.wanId).interface));
}

void check_wan(const kernel_state &kernel, const wan_config &record, finding_report &report)
{
    const uint32_t mark = wan_firewall_mark(record.wanId), table = record.wanId + first_wan_table;
    const bool bound = has_bound_ports(record), up = is_up(record);
    const bool scripted = bound || (record.wanMode == wan_mode_routed && record.service != service_other);
    const line prohibit("from all fwmark 0x%x/0x%x prohibit", mark, mark);
    if (record.wanMode == wan_mode_bridged || up) {
        if (bound) {
            need(kernel.rules, prohibit.text, record, report);
            check_ports(kernel, record, report);
        }
    } else if (bound && !kernel.rules.has(prohibit.text)) {
        report.add(
            finding::down_without_prohibit,
            finding_text("WAN %u (%s) is down, and nothing keeps its ports' traffic from other WANs (\"%s\")",
                         record.wanId, c_text(record.wanName).data, prohibit.text),
            finding_text("bring it up, or: ip rule add from all fwmark 0x%x/0x%x prohibit", mark, mark));
    }
    if (!up || !scripted)
        return;
    if (bound)
        need(kernel.rules, line("from all fwmark 0x%x/0x%x lookup %u", mark, mark, table).text, record,
             report);
    need(kernel.rules, line("from %s lookup %u", c_text(record.ip).data, table).text, record, report);
    check_table(record, report);
}

// Each line that stands there again, once.
void check_doubled(const listing &rules, const char *remedy, finding_report &report)
{
    (void)rules.any([&](std::string_view rule) {
        size_t before = 0, all = 0;
        (void)rules.any([&](std::string_view other) {
            all += other == rule;
            before += other == rule && other.data() < rule.data();
            return false;
        });
        if (all > 1 && before == 0)
            report.add(finding::rule_doubled,
                       finding_text("The rule \"%.*s\" is there %zu times", static_cast<int>(rule.size()),
                                    rule.data(), all),
                       remedy);
        return false;
    });
}

bool has_mark(const wan_list &wans, int64_t mark)
{
    for (const wan_config &record : wans)
        if (has_bound_ports(record) && wan_firewall_mark(record.wanId) == mark)
            return true;
    return false;
}

// Whether a number is one of the bits that WANs have.
bool is_wan_mark(int64_t mark)
{
    constexpr int64_t lowest = 1 << 12, highest = int64_t{1} << 31;
    return mark >= lowest && mark <= highest && (mark & (mark - 1)) == 0;
}

bool is_gone_wans(std::string_view rule, const wan_list &wans)
{
    const int64_t table = number_behind(rule, " lookup ");
    const int64_t mark = number_behind(rule, " fwmark ");
    const int64_t set = number_behind(rule, " --mark-or ");
    if (mark >= 0 || set >= 0)
        return is_wan_mark(mark >= 0 ? mark : set) && !has_mark(wans, mark >= 0 ? mark : set);
    return table > first_wan_table && table <= first_wan_table + UINT8_MAX &&
           !wans.find(static_cast<uint8_t>(table - first_wan_table));
}

// A rule between the bridge's ports for a device of the uplink that no WAN has.
bool is_gone_device(std::string_view rule, const wan_list &wans)
{
    for (const char *const word : {"-i ", "-o "}) {
        const size_t at = rule.find(word);
        if (at == std::string_view::npos)
            continue;
        std::string_view device = rule;
        device.remove_prefix(at + strlen(word));
        const size_t end = device.find(' ');
        if (end != std::string_view::npos)
            device.remove_suffix(device.size() - end);
        bool known = device.find(vlan_prefix) != 0;
        for (const wan_config &record : wans)
            known = known || device == text_view(record.device);
        if (!known)
            return true;
    }
    return false;
}

void check_leftovers(const kernel_state &kernel, const wan_list &wans, finding_report &report)
{
    const auto tell = [&](std::string_view rule, const char *command) {
        const int length = static_cast<int>(rule.size());
        report.add(finding::rule_without_wan,
                   finding_text("The rule \"%.*s\" belongs to no WAN that is there", length, rule.data()),
                   finding_text("%s %.*s", command, length, rule.data()));
        return false;
    };
    (void)kernel.rules.any(
        [&](std::string_view rule) { return is_gone_wans(rule, wans) && tell(rule, "ip rule del"); });
    (void)kernel.broute.any([&](std::string_view rule) {
        return is_gone_wans(rule, wans) && tell(rule, "ebtables -t broute -D BROUTING");
    });
    (void)kernel.forward.any([&](std::string_view rule) {
        return rule.find("-j DROP") != std::string_view::npos && is_gone_device(rule, wans) &&
               tell(rule, "ebtables -D FORWARD");
    });
}

} // namespace

void check_kernel(const wan_list &wans, finding_report &report)
{
    const kernel_state kernel;
    if (!kernel.rules)
        return report.cannot_tell("The kernel's policy rules could not be listed (ip rule show).");
    constexpr const char *own[][2] = {{"from all lookup main", "ip rule add pref 32766 lookup main"},
                                      {"from all lookup default", "ip rule add pref 32767 lookup default"}};
    for (const auto &[rule, remedy] : own)
        if (!kernel.rules.has(rule))
            report.add(
                finding::no_main_rule,
                finding_text(
                    "The kernel's own rule \"%s\" is not there; whatever no other rule sends has no way",
                    rule),
                remedy);
    for (const wan_config &record : wans)
        check_wan(kernel, record, report);
    check_leftovers(kernel, wans, report);
    check_doubled(kernel.rules, "ip rule del and the rule takes one of them away", report);
    check_doubled(kernel.broute, "ebtables -t broute -D BROUTING and the rule takes one of them away",
                  report);
    check_doubled(kernel.forward, "ebtables -D FORWARD and the rule takes one of them away", report);
    check_doubled(kernel.mangle, "iptables -t mangle -D OUTPUT and the rule takes one of them away", report);
}
