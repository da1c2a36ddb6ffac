// What `get` and `all` report of a WAN: one row a field, which is one row for every field of the record.
#pragma once

#include "base/bus_headers.h"
#include "wan/wan_fields.h"

// Which replies carry a field.
enum reply_use : uint8_t { in_get = 1, in_all = 2, in_both = in_get | in_all };

struct reply_field {
    wan_field field;
    enum blobmsg_type type;
    uint8_t use;
};

#define NUMBER(member, use)                                                                                  \
    {                                                                                                        \
        WAN_FIELD(member), BLOBMSG_TYPE_INT32, use                                                           \
    }
#define FLAG(member)                                                                                         \
    {                                                                                                        \
        WAN_FIELD(member), BLOBMSG_TYPE_INT8, in_both                                                        \
    }
#define TEXT(member)                                                                                         \
    {                                                                                                        \
        WAN_FIELD(member), BLOBMSG_TYPE_STRING, in_both                                                      \
    }

// In the order in which replies carry them. Deliberate: `get` has neither wanId nor iphostId.
inline constexpr reply_field reply_fields[] = {
    NUMBER(wanId, in_all),
    TEXT(wanName),
    FLAG(status),
    FLAG(statusV6),
    NUMBER(uptime, in_both),
    TEXT(device),
    TEXT(mac),
    NUMBER(wanMode, in_both),
    NUMBER(ipProtocol, in_both),
    NUMBER(ipMode, in_both),
    FLAG(napt),
    FLAG(vlanMode),
    NUMBER(vid, in_both),
    NUMBER(mvid, in_both),
    NUMBER(prio, in_both),
    NUMBER(mtu, in_both),
    NUMBER(service, in_both),
    FLAG(disableLanDhcp),
    TEXT(bind),
    FLAG(autoDns),
    TEXT(priDns),
    TEXT(secDns),
    FLAG(autoDnsV6),
    TEXT(priDnsV6),
    TEXT(secDnsV6),
    TEXT(ip),
    TEXT(ipSec),
    TEXT(mask),
    TEXT(gateway),
    FLAG(ipv6PrefixProxy),
    TEXT(ipv6Addr),
    TEXT(ipv6SecAddr),
    TEXT(ipv6Gateway),
    TEXT(ipv6Prefix),
    FLAG(ipv6DsLite),
    TEXT(ipv6AddrDsLite),
    TEXT(pppUser),
    TEXT(pppPwd),
    TEXT(pppServName),
    FLAG(pppDialMode),
    NUMBER(iphostId, in_all),
};

#undef NUMBER
#undef FLAG
#undef TEXT
