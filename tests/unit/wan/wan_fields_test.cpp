#include "wan/wan_fields.h"

#include "base/text.h"

#include <gtest/gtest.h>

namespace {

TEST(wan_fields, a_number_is_cut_to_its_field_and_read_without_sign)
{
    constexpr struct {
        wan_field field;
        uint32_t stored;
        uint32_t read;
    } cases[] = {
        {WAN_FIELD(service), 0, 0},     {WAN_FIELD(service), 255, 255},
        {WAN_FIELD(service), 256, 0},   {WAN_FIELD(service), 300, 44},
        {WAN_FIELD(mtu), 65535, 65535}, {WAN_FIELD(mtu), 65536, 0},
        {WAN_FIELD(mtu), 66036, 500},   {WAN_FIELD(uptime), UINT32_MAX, UINT32_MAX},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.field.name + std::to_string(row.stored));
        wan_config record = {};

        set_field_number(record, row.field, row.stored);

        EXPECT_EQ(row.read, field_number(record, row.field));
    }
}

TEST(wan_fields, a_number_leaves_its_neighbours_alone)
{
    wan_config expected = {};
    expected.mvid = 0xffff;
    wan_config record = {};

    set_field_number(record, WAN_FIELD(mvid), UINT32_MAX);

    EXPECT_EQ(0, memcmp(&expected, &record, sizeof(record)));
}

TEST(wan_fields, a_text_is_padded_and_cut_at_its_field)
{
    wan_config record;
    memset(&record, 'x', sizeof(record));

    set_field_text(record, WAN_FIELD(ip), "192.0.2.1");
    EXPECT_STREQ("192.0.2.1", field_text(record, WAN_FIELD(ip)));
    for (size_t i = strlen("192.0.2.1"); i < sizeof(record.ip); i++)
        EXPECT_EQ('\0', record.ip[i]) << i;

    set_field_text(record, WAN_FIELD(ip), "0123456789abcdef-");
    EXPECT_EQ("0123456789abcdef", text_view(record.ip));
    EXPECT_EQ('x', record.ipSec[0]);

    const text_ref field = field_ref(record, WAN_FIELD(ip));
    EXPECT_EQ(record.ip, field.data);
    EXPECT_EQ(sizeof(record.ip), field.size);
}

} // namespace
