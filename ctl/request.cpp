#include "ctl/request.h"

#include "ctl/gateway_state.h"
#include "ctl/secret.h"
#include "ctl/words.h"
#include "wan/wan_names.h"

#include <cstring>

namespace {

enum : int {
    option_routed,
    option_bridged,
    option_dhcp,
    option_static,
    option_pppoe,
    option_password_file,
    option_service_name,
    option_on_demand,
    option_always_on,
    option_ipv4,
    option_ipv6,
    option_dual,
    option_vlan,
    option_prio,
    option_mvlan,
    option_again,
    option_mtu,
    option_service,
    option_ports,
    option_lan_dhcp,
    option_no_lan_dhcp,
    option_nat,
    option_no_nat,
    option_address,
    option_mask,
    option_gateway,
    option_dns,
    option_address6,
    option_gateway6,
    option_prefix6,
    option_dns6,
    option_delegate,
    option_no_delegate,
    option_dslite,
    option_iphost,
    option_in,
    option_dry_run,
    option_secrets,
};

constexpr option_row rows[] = {
    {"routed", "", "the gateway routes (as new WANs do)", option_routed},
    {"bridged", "", "the LAN ports are bridged to the WAN", option_bridged},
    {"dhcp", "", "routed, addresses by DHCP (as new WANs have them)", option_dhcp},
    {"static", "", "routed, addresses as given", option_static},
    {"pppoe", "USER", "routed, dialled as this user", option_pppoe},
    {"password-file", "FILE", "the password is the file's first line; - is standard input",
     option_password_file},
    {"service-name", "NAME", "what a PPPoE peer is asked for; empty: any", option_service_name},
    {"on-demand", "", "dial when there is traffic", option_on_demand},
    {"always-on", "", "dial at once and stay", option_always_on},
    {"ipv4", "", "IPv4 alone", option_ipv4},
    {"ipv6", "", "IPv6 alone", option_ipv6},
    {"dual", "", "IPv4 and IPv6", option_dual},
    {"vlan", "VLAN", "tagged; none: untagged", option_vlan},
    {"prio", "PRIORITY", "802.1p priority of a tagged WAN", option_prio},
    {"mvlan", "VLAN", "multicast VLAN; none", option_mvlan},
    {"again", "", "the VLAN may be another routed WAN's too", option_again},
    {"mtu", "BYTES", "1500, of PPPoE 1492 when not given", option_mtu},
    {"service", "WORDS", "internet, tr069, voip with commas between, or other", option_service},
    {"ports", "PORTS", "bound ports: lan1,lan2,ssid1; all; none", option_ports},
    {"lan-dhcp", "", "DHCP at the bound ports", option_lan_dhcp},
    {"no-lan-dhcp", "", "no DHCP or router advertisements there", option_no_lan_dhcp},
    {"nat", "", "address translation", option_nat},
    {"no-nat", "", "none", option_no_nat},
    {"address", "ADDRESS/LENGTH", "static IPv4 address; without a length --mask tells it", option_address},
    {"mask", "MASK", "its mask", option_mask},
    {"gateway", "ADDRESS", "static IPv4 gateway", option_gateway},
    {"dns", "ADDRESS,ADDRESS", "IPv4 name servers; auto: from the link", option_dns},
    {"address6", "ADDRESS/LENGTH", "static IPv6 address", option_address6},
    {"gateway6", "ADDRESS", "static IPv6 gateway", option_gateway6},
    {"prefix6", "PREFIX/LENGTH", "static IPv6 prefix", option_prefix6},
    {"dns6", "ADDRESS,ADDRESS", "IPv6 name servers; auto: from the link", option_dns6},
    {"delegate", "", "IPv6 prefixes go on to the LAN", option_delegate},
    {"no-delegate", "", "they do not", option_no_delegate},
    {"dslite", "ENDPOINT", "IPv4 through a DS-Lite tunnel; none", option_dslite},
    {"iphost", "NUMBER", "IP-host identifier, 0 is none", option_iphost},
    {"in", "TIME", "make the change later: 30s, 5m, 2h", option_in},
    {"dry-run", "", "print the bus call and what would refuse it, and change nothing", option_dry_run},
    {"secrets", "", "print it with the password", option_secrets},
};

constexpr auto options = pack_options<rows>();

// The options without those of `modify` alone.
bool is_for_modify(int id)
{
    return id == option_in;
}

// What an option that is no more than one or two arguments makes of them.
enum class effect : uint8_t { set, take_text, take_number };
struct option_effect {
    uint8_t option;
    uint8_t row; // of the argument
    effect how;
    uint8_t value; // to set
};
constexpr option_effect effects[] = {
    {option_routed, ARG(wanMode), effect::set, wan_mode_routed},
    {option_bridged, ARG(wanMode), effect::set, wan_mode_bridged},
    {option_dhcp, ARG(wanMode), effect::set, wan_mode_routed},
    {option_dhcp, ARG(ipMode), effect::set, ip_mode_dhcp},
    {option_static, ARG(wanMode), effect::set, wan_mode_routed},
    {option_static, ARG(ipMode), effect::set, ip_mode_static},
    {option_pppoe, ARG(wanMode), effect::set, wan_mode_routed},
    {option_pppoe, ARG(ipMode), effect::set, ip_mode_pppoe},
    {option_pppoe, ARG(pppUser), effect::take_text, 0},
    {option_service_name, ARG(pppServName), effect::take_text, 0},
    {option_on_demand, ARG(pppDialMode), effect::set, 1},
    {option_always_on, ARG(pppDialMode), effect::set, 0},
    {option_ipv4, ARG(ipProtocol), effect::set, ip_protocol_v4},
    {option_ipv6, ARG(ipProtocol), effect::set, ip_protocol_v6},
    {option_dual, ARG(ipProtocol), effect::set, ip_protocol_v4 | ip_protocol_v6},
    {option_prio, ARG(prio), effect::take_number, 0},
    {option_mtu, ARG(mtu), effect::take_number, 0},
    {option_lan_dhcp, ARG(disableLanDhcp), effect::set, 0},
    {option_no_lan_dhcp, ARG(disableLanDhcp), effect::set, 1},
    {option_nat, ARG(napt), effect::set, 1},
    {option_no_nat, ARG(napt), effect::set, 0},
    {option_mask, ARG(mask), effect::take_text, 0},
    {option_gateway, ARG(gateway), effect::take_text, 0},
    {option_address6, ARG(ipv6Addr), effect::take_text, 0},
    {option_gateway6, ARG(ipv6Gateway), effect::take_text, 0},
    {option_prefix6, ARG(ipv6Prefix), effect::take_text, 0},
    {option_delegate, ARG(ipv6PrefixProxy), effect::set, 1},
    {option_no_delegate, ARG(ipv6PrefixProxy), effect::set, 0},
    {option_iphost, ARG(iphostId), effect::take_number, 0},
};

// Notes the arguments that an option gives. The member functions tell what is wrong.
class option_taker {
public:
    explicit option_taker(wan_request *request) : request_(*request) {}

    exit_status take(const option_reader &option, int id);

private:
    exit_status set(size_t row, uint32_t value)
    {
        arg_field(row).set_number(request_.record, value);
        request_.given.add(row);
        return exit_status::done;
    }
    exit_status set_text(size_t row, std::string_view value);
    exit_status set_number(size_t row);
    exit_status set_number_or_none(size_t row);
    exit_status take_service();
    exit_status take_address();
    exit_status take_servers(size_t flag, size_t first, size_t second);
    exit_status take_password();
    exit_status take_ds_lite();
    exit_status take_time();
    exit_status take_other(int id);

    wan_request &request_;
    const char *name_ = nullptr; // the option's
    const char *value_ = nullptr;
};

exit_status option_taker::set_text(size_t row, std::string_view value)
{
    const field_row &field = arg_field(row);
    if (value.size() >= field.size)
        return fail(exit_status::usage, "--%s takes at most %u characters", name_, field.size - 1U);
    field.set_text(request_.record, value);
    request_.given.add(row);
    return exit_status::done;
}

exit_status option_taker::set_number(size_t row)
{
    const arg_row &range = arg_rows[row];
    uint32_t number = 0;
    if (!read_number(value_, range.high, &number) || number < range.low)
        return fail(exit_status::usage, "--%s takes %u to %u, not %s", name_, range.low, range.high, value_);
    return set(row, number);
}

// A VLAN or "none".
exit_status option_taker::set_number_or_none(size_t row)
{
    return strcmp(value_, "none") == 0 ? set(row, 0) : set_number(row);
}

exit_status option_taker::take_service()
{
    uint8_t code = 0;
    if (!read_service(value_, &code))
        return fail(exit_status::usage,
                    "%s is no service; it is internet, tr069 or voip, or these with commas between, or other",
                    value_);
    return set(ARG(service), code);
}

// An address with a length behind it gives the mask too.
exit_status option_taker::take_address()
{
    const size_t length = strcspn(value_, "/");
    const exit_status result = set_text(ARG(ip), {value_, length});
    if (result != exit_status::done || value_[length] == '\0')
        return result;
    uint32_t bits = 0;
    if (!read_number(value_ + length + 1, 32, &bits))
        return fail(exit_status::usage,
                    "--address takes a length of 0 to 32 behind the address, as 192.0.2.9/24");
    const uint32_t mask = bits == 0 ? 0 : ~uint32_t{0} << (32 - bits);
    char text[16];
    (void)text_ref(text).format("%u.%u.%u.%u", mask >> 24, mask >> 16 & 255, mask >> 8 & 255, mask & 255);
    return set_text(ARG(mask), text);
}

exit_status option_taker::take_servers(size_t flag, size_t first, size_t second)
{
    const bool automatic = strcmp(value_, "auto") == 0;
    (void)set(flag, automatic);
    (void)set_text(first, "");
    (void)set_text(second, "");
    if (automatic)
        return exit_status::done;
    exit_status result = exit_status::done;
    size_t count = 0;
    (void)each_word(value_, [&](std::string_view word) {
        if (++count > 2)
            result = fail(exit_status::usage, "--%s takes two name servers, or auto", name_);
        else
            result = set_text(count == 1 ? first : second, word);
        return result == exit_status::done;
    });
    return result;
}

exit_status option_taker::take_password()
{
    const exit_status result = read_password(value_, request_.record.pppPwd);
    if (result == exit_status::done)
        request_.given.add(ARG(pppPwd));
    return result;
}

exit_status option_taker::take_ds_lite()
{
    const bool none = strcmp(value_, "none") == 0;
    (void)set(ARG(ipv6DsLite), !none);
    return set_text(ARG(ipv6AddrDsLite), none ? "" : value_);
}

exit_status option_taker::take_time()
{
    request_.waits = true;
    if (!read_time(value_, &request_.wait) || request_.wait == 0)
        return fail(exit_status::usage, "--in takes a time, as 30s, 5m or 2h, not %s", value_);
    return exit_status::done;
}

exit_status option_taker::take_other(int id)
{
    switch (id) {
    case option_password_file:
        return take_password();
    case option_vlan:
        (void)set(ARG(vlanMode), strcmp(value_, "none") != 0);
        if (!request_.record.vlanMode)
            (void)set(ARG(prio), 0);
        return set_number_or_none(ARG(vid));
    case option_mvlan:
        return set_number_or_none(ARG(mvid));
    case option_again:
        request_.again = true;
        break;
    case option_service:
        return take_service();
    case option_ports:
        request_.ports = value_;
        request_.given.add(ARG(bind));
        break;
    case option_address:
        return take_address();
    case option_dns:
        return take_servers(ARG(autoDns), ARG(priDns), ARG(secDns));
    case option_dns6:
        return take_servers(ARG(autoDnsV6), ARG(priDnsV6), ARG(secDnsV6));
    case option_dslite:
        return take_ds_lite();
    case option_in:
        return take_time();
    case option_dry_run:
        request_.dry_run = true;
        break;
    case option_secrets:
        request_.which = secrets::shown;
        break;
    default: // has its effects
        break;
    }
    return exit_status::done;
}

exit_status option_taker::take(const option_reader &option, int id)
{
    name_ = option.name;
    value_ = option.value;
    exit_status result = take_other(id);
    for (const option_effect &row : effects) {
        if (row.option != id || result != exit_status::done)
            continue;
        result = row.how == effect::set         ? set(row.row, row.value)
                 : row.how == effect::take_text ? set_text(row.row, value_)
                                                : set_number(row.row);
    }
    return result;
}

exit_status read_ports_of(wan_request *request)
{
    char wrong[32] = {};
    if (!request->ports)
        return exit_status::done;
    if (!load_ports())
        return fail(exit_status::refused, "the board does not tell its ports (ubus call boardinfo all)");
    if (read_ports(request->ports, &request->record, wrong))
        return exit_status::done;
    wan_config every = {};
    char none[8];
    (void)read_ports("all", &every, none);
    return fail(exit_status::usage, "this board has no port %s; it has %s", wrong, port_words(every).text);
}

} // namespace

const char *change_options()
{
    return options.text;
}

exit_status read_request(std::span<char *const> words, takes_id id, wan_request *request)
{
    option_reader reader(options.text, words);
    option_taker taker(request);
    for (int what = reader.next(); what != option_reader::end; what = reader.next()) {
        if (what == option_reader::wrong)
            return exit_status::usage;
        exit_status result = exit_status::done;
        if (what != option_reader::word && (id == takes_id::yes || !is_for_modify(what)))
            result = taker.take(reader, what);
        else if (what != option_reader::word)
            result = fail(exit_status::usage, "--in is for `modify`; a new WAN is made at once");
        else if (id == takes_id::yes && request->wan_id == 0)
            result = read_wan_id(reader.value, &request->wan_id);
        else
            result = fail(exit_status::usage, "%s is one word too many; options begin with --", reader.value);
        if (result != exit_status::done)
            return result;
    }
    if (id == takes_id::yes && request->wan_id == 0)
        return fail(exit_status::usage, "which WAN? `korvelctl modify ID --...`; see `status`");
    return read_ports_of(request);
}

void lay_over(const wan_request &request, wan_config *record)
{
    for (size_t row = 0; row < record_arg_count; row++)
        if (request.given.has(row))
            arg_field(row).copy(request.record, *record);
}

wan_config new_wan(const wan_request &request)
{
    constexpr uint16_t ethernet_mtu = 1500, pppoe_mtu = 1492;
    constexpr uint8_t service_internet = 1;
    wan_config record = {};
    record.wanMode = wan_mode_routed;
    record.service = service_internet;
    record.ipProtocol = ip_protocol_v4;
    lay_over(request, &record);
    const bool routed = record.wanMode == wan_mode_routed;
    record.mtu = routed && record.ipMode == ip_mode_pppoe ? pppoe_mtu : ethernet_mtu;
    if (!routed && !request.given.has(ARG(ipProtocol)))
        record.ipProtocol = ip_protocol_v4 | ip_protocol_v6; // a bridge carries both
    record.napt = routed && (record.ipProtocol & ip_protocol_v4) ? 1 : 0;
    record.autoDns = routed && record.ipMode != ip_mode_static ? 1 : 0;
    record.autoDnsV6 = record.autoDns;
    record.ipv6PrefixProxy = routed && (record.ipProtocol & ip_protocol_v6) ? 1 : 0;
    wan_config none = {};
    char wrong[8];
    if (wan_service_of(record.service).binds_ports && load_ports() && read_ports("none", &none, wrong))
        memcpy(record.bind, none.bind, sizeof(record.bind));
    lay_over(request, &record);
    return record;
}

void add_arguments(bus_message &message, const wan_config &record, arg_set which)
{
    blob_buf *const buffer = message.buffer();
    for (size_t row = 0; row < record_arg_count; row++) {
        const field_row &field = arg_field(row);
        if (!which.has(row))
            continue;
        if (field.is_text())
            (void)blobmsg_printf(buffer, field.name, "%.*s", field.size, field.text(record).data());
        else if (field.type == BLOBMSG_TYPE_INT8)
            (void)blobmsg_add_u8(buffer, field.name, field.number(record) != 0);
        else
            (void)blobmsg_add_u32(buffer, field.name, field.number(record));
    }
}

void write_arguments(json_writer &json, const wan_config &record, arg_set which, secrets secret)
{
    for (size_t row = 0; row < record_arg_count; row++) {
        if (!which.has(row))
            continue;
        if (row == ARG(pppPwd) && secret == secrets::hidden && !text_empty(record.pppPwd))
            json.text(arg_field(row).name, "........");
        else
            arg_field(row).write(json, record);
    }
}

bool same_arguments(const wan_config &one, const wan_config &other)
{
    for (const arg_row &row : arg_rows) {
        const field_row &field = field_rows[row.position];
        if (field.is_text() ? field.text(one) != field.text(other) : field.number(one) != field.number(other))
            return false;
    }
    return true;
}
