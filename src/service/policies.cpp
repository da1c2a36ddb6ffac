#include "service/policies.h"

#include <algorithm>

#include "base/log.h"

namespace {

template <size_t count> consteval bus_policy<count> make_policy(const char *first)
{
    bus_policy<count> policy = {};
    policy.rows[0] = {first, BLOBMSG_TYPE_INT32};
    for (size_t i = 0; i < record_arg_count; i++)
        policy.rows[first_record_arg + i] = {arg_rules[i].field.name, arg_rules[i].type};
    if constexpr (count > arg_wait)
        policy.rows[arg_wait] = {"wait", BLOBMSG_TYPE_INT32};
    return policy;
}

} // namespace

constexpr bus_policy<add_arg_count> add_policy = make_policy<add_arg_count>("notUsed");
constexpr bus_policy<modify_arg_count> modify_policy = make_policy<modify_arg_count>("wanId");
constexpr bus_policy<1> wan_id_policy = {{{"wanId", BLOBMSG_TYPE_INT32}}};

void parse_request(std::span<const blobmsg_policy> policy, blob_attr *message,
                   std::span<blob_attr *> attributes_out)
{
    const size_t length = blob_len(message);
    if (length == 0) { // the library calls that an error, but every method may be called without arguments
        std::fill(attributes_out.begin(), attributes_out.end(), nullptr);
        return;
    }
    const int result = blobmsg_parse(policy.data(), static_cast<int>(policy.size()), attributes_out.data(),
                                     blob_data(message), static_cast<unsigned>(length));
    if (result == 0)
        return;
    log_error("Malformed request, its arguments are ignored");
    std::fill(attributes_out.begin(), attributes_out.end(), nullptr);
}
