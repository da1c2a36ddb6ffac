// The record: its fields, in their order and with the widths that clients see.
#include "wan/wan_config.h"

#include "wan/wan_fields.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr wan_field fields[] = {
    WAN_FIELD(wanId),
    WAN_FIELD(wanName),
    WAN_FIELD(autoDns),
    WAN_FIELD(autoDnsV6),
    WAN_FIELD(pppDialMode),
    WAN_FIELD(disableLanDhcp),
    WAN_FIELD(iphostId),
    WAN_FIELD(ipMode),
    WAN_FIELD(ipProtocol),
    WAN_FIELD(ipv6DsLite),
    WAN_FIELD(ipv6PrefixProxy),
    WAN_FIELD(napt),
    WAN_FIELD(prio),
    WAN_FIELD(service),
    WAN_FIELD(status),
    WAN_FIELD(statusV6),
    WAN_FIELD(vlanMode),
    WAN_FIELD(wanMode),
    WAN_FIELD(mtu),
    WAN_FIELD(mvid),
    WAN_FIELD(vid),
    WAN_FIELD(uptime),
    WAN_FIELD(bind),
    WAN_FIELD(device),
    WAN_FIELD(gateway),
    WAN_FIELD(ip),
    WAN_FIELD(ipSec),
    WAN_FIELD(ipv6Addr),
    WAN_FIELD(ipv6AddrDsLite),
    WAN_FIELD(ipv6Gateway),
    WAN_FIELD(ipv6Prefix),
    WAN_FIELD(ipv6SecAddr),
    WAN_FIELD(mac),
    WAN_FIELD(mask),
    WAN_FIELD(pppPwd),
    WAN_FIELD(pppServName),
    WAN_FIELD(pppUser),
    WAN_FIELD(priDns),
    WAN_FIELD(priDnsV6),
    WAN_FIELD(secDns),
    WAN_FIELD(secDnsV6),
};

TEST(wan_config, fields_have_their_widths)
{
    const std::vector<std::pair<std::string, size_t>> widths = {
        {"wanId", 1},
        {"wanName", 35},
        {"autoDns", 1},
        {"autoDnsV6", 1},
        {"pppDialMode", 1},
        {"disableLanDhcp", 1},
        {"iphostId", 1},
        {"ipMode", 1},
        {"ipProtocol", 1},
        {"ipv6DsLite", 1},
        {"ipv6PrefixProxy", 1},
        {"napt", 1},
        {"prio", 1},
        {"service", 1},
        {"status", 1},
        {"statusV6", 1},
        {"vlanMode", 1},
        {"wanMode", 1},
        {"mtu", 2},
        {"mvid", 2},
        {"vid", 2},
        {"uptime", 4},
        {"bind", 17},
        {"device", 12},
        {"gateway", 16},
        {"ip", 16},
        {"ipSec", 16},
        {"ipv6Addr", 45},
        {"ipv6AddrDsLite", 65},
        {"ipv6Gateway", 40},
        {"ipv6Prefix", 44},
        {"ipv6SecAddr", 45},
        {"mac", 18},
        {"mask", 16},
        {"pppPwd", 65},
        {"pppServName", 65},
        {"pppUser", 65},
        {"priDns", 16},
        {"priDnsV6", 40},
        {"secDns", 16},
        {"secDnsV6", 40},
    };

    std::vector<std::pair<std::string, size_t>> actual;
    for (const wan_field &field : fields)
        actual.emplace_back(field.name, field.size);

    EXPECT_EQ(widths, actual);
}

TEST(wan_config, fields_follow_each_other_in_their_order)
{
    size_t end = 0;
    for (const wan_field &field : fields) {
        SCOPED_TRACE(field.name);
        EXPECT_GE(field.offset, end);
        EXPECT_LT(field.offset - end, alignof(wan_config)); // nothing but padding in between
        end = field.offset + field.size;
    }
    EXPECT_LT(sizeof(wan_config) - end, alignof(wan_config));
}

TEST(wan_config, a_record_is_copied_by_its_bytes)
{
    EXPECT_TRUE(std::is_trivially_copyable_v<wan_config>);
    EXPECT_TRUE(std::is_standard_layout_v<wan_config>);
    EXPECT_TRUE(std::is_trivially_default_constructible_v<wan_config>);
}

TEST(wan_config, numbers_are_unsigned)
{
    wan_config record = {};
    record.mtu = static_cast<uint16_t>(0 - 8);
    record.uptime = UINT32_MAX;
    record.service = 200;

    EXPECT_EQ(65528, record.mtu);
    EXPECT_GT(record.uptime, 0U);
    EXPECT_EQ(200, record.service);
}

} // namespace
