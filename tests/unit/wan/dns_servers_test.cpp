#include "wan/dns_servers.h"

#include "base/text.h"

#include <gtest/gtest.h>

namespace {

TEST(dns_sorter, two_servers_of_each_family_are_kept_in_order)
{
    wan_config record = {};
    dns_sorter sorter(record);

    for (const char *const server :
         {"192.0.2.1", "2001:db8::1", "none", "::ffff:192.0.2.2", "192.0.2.3", "2001:db8::2", "2001:db8::3"})
        sorter.take(server);

    EXPECT_EQ("192.0.2.1", text_view(record.priDns));
    EXPECT_EQ("::ffff:192.0.2.2", text_view(record.secDns)) << "a point decides, and 16 characters fill it";
    EXPECT_EQ("2001:db8::1", text_view(record.priDnsV6));
    EXPECT_EQ("2001:db8::2", text_view(record.secDnsV6));
}

TEST(dns_sorter, a_place_that_nobody_takes_keeps_what_it_held)
{
    wan_config record = {};
    text_ref(record.priDns).set("192.0.2.1");
    text_ref(record.secDnsV6).set("2001:db8::2");
    dns_sorter sorter(record);

    sorter.take("2001:db8::1");

    EXPECT_EQ("192.0.2.1", text_view(record.priDns));
    EXPECT_EQ("2001:db8::1", text_view(record.priDnsV6));
    EXPECT_EQ("2001:db8::2", text_view(record.secDnsV6));
}

} // namespace
