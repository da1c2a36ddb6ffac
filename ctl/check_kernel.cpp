// What `check` sees in the kernel: policy rules, routing tables, bridge and mangle rules, against those that
// the scripts of the WANs install. These make policy rules and tables of IPv4 alone; of IPv6 they make bridge
// rules.
#include "ctl/check.h"

#include "base/heap.h"
#include "base/os.h"
#include "ctl/output.h"
#include "ctl/words.h"
#include "rules/firewall_mark.h"
#include "rules/port_names.h"
#include "rules/route_rule.h"
#include "service/settings.h"
#include "wan/wan_names.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>

namespace {

constexpr size_t listing_size = 512 * 1024;
constexpr char no_advertisements[] =
    "-p IPv6 -o %s --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j DROP";
constexpr char apply_rules[] = "/usr/libexec/korvel/apply-rules";

// What a program lists, in lines without the blanks around them.
class listing {
public:
    // What takes a line's rule away is the command `removal` with the rule behind it.
    explicit listing(const char *command, const char *removal = "")
        : removal_(removal), text_(static_cast<char *>(calloc(1, listing_size)))
    {
        if (!text_ || !read_command(command, text_ref(text_.get(), listing_size)))
            text_.reset();
    }
    // Whether there is anything at all.
    explicit operator bool() const { return text_ && text_.get()[0] != '\0'; }

    // Goes on from one line to the next, from an empty view to the first. False: there are no more.
    bool next(std::string_view &line) const;
    // Whether a line is this text, or begins with it.
    bool has(std::string_view wanted) const;
    bool has_start(std::string_view wanted) const;

    const char *removal() const { return removal_; }

private:
    const char *removal_;
    heap_ptr<char> text_;
};

bool listing::next(std::string_view &line) const
{
    const char *at = line.data() ? line.data() + line.size() : text_ ? text_.get() : "";
    at += strspn(at, " \t\n");
    line = {at, strcspn(at, "\n")};
    while (!line.empty() && line.back() == ' ')
        line.remove_suffix(1);
    return !line.empty();
}

bool listing::has(std::string_view wanted) const
{
    for (std::string_view line; next(line);)
        if (line == wanted)
            return true;
    return false;
}

bool listing::has_start(std::string_view wanted) const
{
    for (std::string_view line; next(line);)
        if (line.find(wanted) == 0)
            return true;
    return false;
}

struct kernel_state {
    listing rules{"ip rule show 2>/dev/null | sed 's/^[0-9]*:[[:space:]]*//'", "ip rule del"};
    listing forward{"ebtables -L FORWARD 2>/dev/null | grep ^-", "ebtables -D FORWARD"};
    listing broute{"ebtables -t broute -L BROUTING 2>/dev/null | grep ^-", "ebtables -t broute -D BROUTING"};
    listing input{"ebtables -L INPUT 2>/dev/null | grep ^-", "ebtables -D INPUT"};
    listing output{"ebtables -L OUTPUT 2>/dev/null | grep ^-", "ebtables -D OUTPUT"};
    listing mangle{"iptables -t mangle -S OUTPUT 2>/dev/null | grep -e '--set-xmark 0x0/'",
                   "iptables -t mangle -D OUTPUT"};
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

// What stands behind a word of a rule, up to the listing's end; null when the word is not there.
const char *behind(std::string_view rule, const char *word)
{
    const size_t at = rule.find(word);
    return at == std::string_view::npos ? nullptr : rule.data() + at + strlen(word);
}

// The number behind a word of a rule; -1 when there is none.
int64_t number_behind(std::string_view rule, const char *word)
{
    const char *const digits = behind(rule, word);
    char *end = nullptr;
    const unsigned long number = digits ? strtoul(digits, &end, 0) : 0;
    return end == digits ? -1 : static_cast<int64_t>(number);
}

bool is_up(const wan_config &record)
{
    return record.wanMode == wan_mode_routed && (record.ipProtocol & ip_protocol_v4) != 0 &&
           record.status != 0;
}

// A WAN on its way through the check.
struct checked_wan {
    const kernel_state &kernel;
    const wan_config &record;
    finding_report &report;
    const wan_title title{record};

    // Reports a rule that is not among these.
    void need(const listing &rules, const char *pattern, ...) const __attribute__((format(printf, 3, 4)));
    void report_missing(const char *rule) const;
    // Has the network daemon's scripts run once more.
    void remedy_by_update() const
    {
        report.remedy("ACTION=ifupdate INTERFACE=%s hotplug-call iface", wan_names(record.wanId).interface);
    }
};

void checked_wan::report_missing(const char *rule) const
{
    report.found(finding::rule_missing, "%s: the rule \"%s\" is not in the kernel", title.text, rule);
    if (record.wanMode == wan_mode_bridged)
        report.remedy("%s", apply_rules);
    else
        remedy_by_update();
}

void checked_wan::need(const listing &rules, const char *pattern, ...) const
{
    va_list arguments;
    va_start(arguments, pattern);
    const formatted_text rule(pattern, arguments);
    va_end(arguments);
    if (!rules.has(rule.text()))
        report_missing(rule.text());
}

// The mark is shown as it was given, or in hexadecimal.
void need_mark(const checked_wan &wan, const char *port, uint32_t mark)
{
    const line start("-i %s -j mark --mark-or ", port);
    for (std::string_view rule; wan.kernel.broute.next(rule);)
        if (rule.find(start.text) == 0 && number_behind(rule, " --mark-or ") == mark)
            return;
    wan.report_missing(line("%s0x%x --mark-target CONTINUE", start.text, mark).text);
}

// Neither DHCP nor router advertisements at a port.
void need_silence(const checked_wan &wan, const char *port)
{
    wan.need(wan.kernel.input, "-p IPv4 -i %s --ip-proto udp --ip-dport 67:68 -j DROP", port);
    wan.need(wan.kernel.input, "-p IPv6 -i %s --ip6-proto udp --ip6-dport 547 -j DROP", port);
    wan.need(wan.kernel.output, no_advertisements, port);
}

// Nor out of a bridged WAN's device.
void need_silent_device(const checked_wan &wan, const char *device)
{
    wan.need(wan.kernel.output, "-p IPv4 -o %s --ip-proto udp --ip-dport 67:68 -j DROP", device);
    wan.need(wan.kernel.output, no_advertisements, device);
    wan.need(wan.kernel.output, "-p IPv6 -o %s --ip6-proto udp --ip6-dport 546 -j DROP", device);
}

void check_ports(const checked_wan &wan)
{
    char bound[port_list_size] = {}, unbound[port_list_size] = {};
    const uint32_t mark = wan_firewall_mark(wan.record.wanId);
    wan_build_port_lists(&wan.record, bound, unbound);
    for (char *port, *rest = bound; (port = strtok_r(rest, " ", &rest)) != nullptr;) {
        need_mark(wan, port, mark);
        if (wan.record.disableLanDhcp)
            need_silence(wan, port);
    }
    if (wan.record.wanMode != wan_mode_bridged)
        return;
    const c_text device(wan.record.device);
    if (wan.record.disableLanDhcp)
        need_silent_device(wan, device);
    for (char *port, *rest = unbound; (port = strtok_r(rest, " ", &rest)) != nullptr;) {
        wan.need(wan.kernel.forward, "-i %s -o %s -j DROP", device.data, port);
        wan.need(wan.kernel.forward, "-i %s -o %s -j DROP", port, device.data);
    }
}

void check_table(const checked_wan &wan)
{
    const uint32_t table = wan.record.wanId + first_wan_table;
    const c_text gateway(wan.record.gateway);
    const listing routes(line("ip route show table %u 2>/dev/null", table).text);
    const line wanted("default via %s ", gateway.data);
    if (text_empty(wan.record.gateway) || routes.has_start(wanted.text))
        return;
    wan.report.found(finding::wrong_gateway,
                     "The routing table %u of %s has no default route by its gateway %s", table,
                     wan.title.text, gateway.data);
    wan.remedy_by_update();
}

void check_wan(const checked_wan &wan)
{
    const wan_config &record = wan.record;
    const uint32_t mark = wan_firewall_mark(record.wanId), table = record.wanId + first_wan_table;
    const bool bound = has_bound_ports(record), up = is_up(record);
    const bool scripted = bound || (record.wanMode == wan_mode_routed && record.service != service_other);
    const line prohibit("from all fwmark 0x%x/0x%x prohibit", mark, mark);
    if (bound && (record.wanMode == wan_mode_bridged || up)) {
        wan.need(wan.kernel.rules, "%s", prohibit.text);
        check_ports(wan);
    } else if (bound && !wan.kernel.rules.has(prohibit.text)) {
        wan.report
            .found(finding::down_without_prohibit,
                   "%s is down, and nothing keeps its ports' traffic from other WANs (\"%s\")",
                   wan.title.text, prohibit.text)
            .remedy("bring it up, or: ip rule add %s", prohibit.text);
    }
    if (!up || !scripted)
        return;
    if (bound)
        wan.need(wan.kernel.rules, "from all fwmark 0x%x/0x%x lookup %u", mark, mark, table);
    wan.need(wan.kernel.rules, "from %s lookup %u", c_text(record.ip).data, table);
    check_table(wan);
}

// Each line that stands there again, once.
void check_doubled(const listing &rules, finding_report &report)
{
    for (std::string_view rule; rules.next(rule);) {
        size_t before = 0, all = 0;
        for (std::string_view other; rules.next(other);) {
            all += other == rule;
            before += other == rule && other.data() < rule.data();
        }
        if (all > 1 && before == 0)
            report
                .found(finding::rule_doubled, "The rule \"%.*s\" is there %zu times",
                       static_cast<int>(rule.size()), rule.data(), all)
                .remedy("%s and the rule takes one of them away", rules.removal());
    }
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
    const int64_t mark = std::max(number_behind(rule, " fwmark "), number_behind(rule, " --mark-or "));
    if (mark >= 0)
        return is_wan_mark(mark) && !has_mark(wans, mark);
    return table > first_wan_table && table <= first_wan_table + UINT8_MAX &&
           !wans.find(static_cast<uint8_t>(table - first_wan_table));
}

// A rule of the bridge for a device of the uplink that no WAN has.
bool is_gone_device(std::string_view rule, const wan_list &wans)
{
    if (rule.find("-j DROP") == std::string_view::npos)
        return false;
    for (const char *const word : {"-i ", "-o "}) {
        const char *const device = behind(rule, word);
        if (!device)
            continue;
        const std::string_view name(device, strcspn(device, " \n"));
        bool known = name.find(vlan_prefix) != 0;
        for (const wan_config &record : wans)
            known = known || name == text_view(record.device);
        if (!known)
            return true;
    }
    return false;
}

using is_gone_function = bool (*)(std::string_view rule, const wan_list &wans);

void check_leftovers(const listing &rules, is_gone_function is_gone, const wan_list &wans,
                     finding_report &report)
{
    for (std::string_view rule; rules.next(rule);) {
        const int length = static_cast<int>(rule.size());
        if (is_gone(rule, wans))
            report
                .found(finding::rule_without_wan, "The rule \"%.*s\" belongs to no WAN that is there", length,
                       rule.data())
                .remedy("%s %.*s", rules.removal(), length, rule.data());
    }
}

} // namespace

void check_kernel(const wan_list &wans, finding_report &report)
{
    const kernel_state kernel;
    if (!kernel.rules)
        return report.cannot_tell("The kernel's policy rules could not be listed (ip rule show).");
    constexpr struct {
        const char *table;
        unsigned preference;
    } own[] = {{"main", 32766}, {"default", 32767}};
    for (const auto &[table, preference] : own) {
        const line rule("from all lookup %s", table);
        if (!kernel.rules.has(rule.text))
            report
                .found(finding::no_main_rule,
                       "The kernel's own rule \"%s\" is not there; whatever no other rule sends has no way",
                       rule.text)
                .remedy("ip rule add pref %u lookup %s", preference, table);
    }
    for (const wan_config &record : wans)
        check_wan({kernel, record, report});
    check_leftovers(kernel.rules, is_gone_wans, wans, report);
    check_leftovers(kernel.broute, is_gone_wans, wans, report);
    check_leftovers(kernel.forward, is_gone_device, wans, report);
    check_leftovers(kernel.output, is_gone_device, wans, report);
    for (const listing *const rules :
         {&kernel.rules, &kernel.broute, &kernel.forward, &kernel.input, &kernel.output, &kernel.mangle})
        check_doubled(*rules, report);
}
