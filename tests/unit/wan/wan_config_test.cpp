// The record: its fields, with the widths that clients see.
#include "wan/wan_config.h"

#include "store/reply_fields.h"
#include "support/golden_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

// The record's fields, in its order. Every one of them is reported.
std::vector<wan_field> fields()
{
    std::vector<wan_field> fields;
    for (const reply_field &row : reply_fields)
        fields.push_back(row.field);
    std::ranges::sort(fields, {}, &wan_field::offset);
    return fields;
}

TEST(wan_config, fields_have_their_widths)
{
    for (const golden_field &expected : golden_fields()) {
        SCOPED_TRACE(expected.name);
        const auto row = std::ranges::find_if(
            reply_fields, [&](const reply_field &field) { return expected.name == field.field.name; });
        ASSERT_NE(std::end(reply_fields), row);
        EXPECT_EQ(expected.bytes, row->field.size);
    }
    EXPECT_EQ(golden_fields().size(), std::size(reply_fields));
}

TEST(wan_config, every_byte_belongs_to_a_field)
{
    size_t end = 0;
    for (const wan_field &field : fields()) {
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
