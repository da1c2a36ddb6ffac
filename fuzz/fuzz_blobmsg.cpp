// Arbitrary bytes as a message: everything that a program does with the message of another must stay inside
// of it.
#include <libubox/blobmsg_json.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

using owned_text = std::unique_ptr<char, void (*)(void *)>;

owned_text printed(char *text)
{
    return {text, std::free};
}

void demand(bool holds)
{
    if (!holds)
        abort();
}

// Reads the value as its type says.
void read_value(blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_STRING:
        demand(strlen(blobmsg_get_string(attr)) < blobmsg_data_len(attr));
        break;
    case BLOBMSG_TYPE_DOUBLE:
        (void)blobmsg_get_double(attr);
        break;
    case BLOBMSG_TYPE_ARRAY:
        demand(blobmsg_check_array(attr, BLOBMSG_TYPE_UNSPEC) >= -1);
        break;
    default:
        (void)blobmsg_cast_s64(attr);
        (void)blobmsg_cast_u64(attr);
    }
}

// A copy prints like its original, whatever stands in the original's padding.
void copy_and_compare(blob_attr *attr)
{
    blob_buf copy = {};
    demand(blob_buf_init(&copy, 0) == 0 && blobmsg_add_blob(&copy, attr) == 0);
    blob_attr *const copied = static_cast<blob_attr *>(blob_data(copy.head));
    const owned_text first = printed(blobmsg_format_json(attr, false));
    const owned_text second = printed(blobmsg_format_json(copied, false));
    demand(first && second && strcmp(first.get(), second.get()) == 0);
    blob_buf_free(&copy);
}

void visit_members(blob_attr *message)
{
    blob_attr *attr;
    size_t rem;
    blobmsg_for_each_attr(attr, message, rem)
    {
        if (!blobmsg_check_attr_len(attr, false, rem))
            continue;
        read_value(attr);
        (void)strlen(blobmsg_name(attr));
        copy_and_compare(attr);
    }
}

void parse(blob_attr *message, size_t size)
{
    constexpr blob_attr_info fields[] = {{},
                                         {.type = BLOB_ATTR_INT32},
                                         {.type = BLOB_ATTR_STRING},
                                         {.type = BLOB_ATTR_NESTED},
                                         {.type = BLOB_ATTR_STRING, .minlen = 6, .maxlen = 12}};
    constexpr blobmsg_policy policy[] = {{"a", BLOBMSG_TYPE_UNSPEC},
                                         {"b", BLOBMSG_TYPE_STRING},
                                         {"id", BLOBMSG_CAST_INT64},
                                         {"t", BLOBMSG_TYPE_TABLE}};
    blob_attr *by_id[ARRAY_SIZE(fields)];
    blob_attr *by_name[ARRAY_SIZE(policy)];
    const unsigned length = static_cast<unsigned>(blob_len(message));

    (void)blob_parse_untrusted(message, size, by_id, fields, ARRAY_SIZE(fields));
    if (by_id[2])
        demand(strlen(blob_get_string(by_id[2])) < blob_len(by_id[2]));
    (void)blobmsg_parse_array(policy, ARRAY_SIZE(policy), by_name, blob_data(message), length);
    (void)blobmsg_parse(policy, ARRAY_SIZE(policy), by_name, blob_data(message), length);
    for (blob_attr *const attr : by_name) {
        if (attr)
            read_value(attr);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // A copy of exactly this size, so that a read behind its end is noticed.
    const std::unique_ptr<char[]> bytes(new char[size]);
    memcpy(bytes.get(), data, size);
    blob_attr *const message = reinterpret_cast<blob_attr *>(bytes.get());
    if (size < sizeof(blob_attr) || blob_raw_len(message) < sizeof(blob_attr) || blob_raw_len(message) > size)
        return 0;
    parse(message, size);
    visit_members(message);
    const owned_text compact = printed(blobmsg_format_json(message, true));
    const owned_text pretty = printed(blobmsg_format_json_indent(message, true, 0));
    demand(compact && pretty && strlen(compact.get()) <= strlen(pretty.get()));
    (void)printed(blobmsg_format_json_value(message));
    return 0;
}
