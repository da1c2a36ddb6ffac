// The method `addDev` where single configuration calls fail, which no disk does: it leaves nothing.
#include "modify/management_device.h"

#include "support/code_test.h"
#include "support/handler_call.h"

#include <cstring>
#include <sys/mount.h>

namespace {

text_lines calls;    // what was added or set for the device, in order: the section's type, then options
std::string failing; // the one of them that fails, without being done; empty: none

// Whether the call fails. Those that take the identifier are left alone.
bool note_call(const char *what)
{
    if (strcmp(what, "wanList") == 0 || strcmp(what, "maxWanId") == 0)
        return false;
    calls.push_back(what);
    return failing == what;
}

} // namespace

extern "C" {

int __real_mxuci_add_section(const char *config, const char *type, char *name_buffer);
int __wrap_mxuci_add_section(const char *config, const char *type, char *name_buffer)
{
    return note_call(type) ? 1 : __real_mxuci_add_section(config, type, name_buffer);
}

int __real_mxuci_add_list(const char *config, const char *section, const char *option, const char *value);
int __wrap_mxuci_add_list(const char *config, const char *section, const char *option, const char *value)
{
    return note_call(option) ? 1 : __real_mxuci_add_list(config, section, option, value);
}

int __real_mxuci_set(const char *config, const char *section, const char *option, const char *value);
int __wrap_mxuci_set(const char *config, const char *section, const char *option, const char *value)
{
    return note_call(option) ? 1 : __real_mxuci_set(config, section, option, value);
}
}

namespace {

const text_lines until_identifier = {"device",         "ports", "mtu",  "IpProtocolType", "service_mode",
                                     "disableLanDhcp", "vid",   "type", "ifname",         "name"};
const text_lines all_calls = [] {
    text_lines all = until_identifier;
    all.insert(all.end(), {"lkname", "macaddr"});
    return all;
}();

class management_device_test : public code_test {
protected:
    ~management_device_test() override { failing.clear(); }

    handled add_device()
    {
        calls.clear();
        return call_handler(wan_handle_add_dev);
    }
};

TEST_F(management_device_test, the_device_is_written_in_a_fixed_order)
{
    const handled outcome = add_device();

    EXPECT_EQ(UBUS_STATUS_OK, outcome.status);
    EXPECT_EQ(0, outcome.result());
    EXPECT_EQ("korvel add WAN device OK.", outcome.info());
    EXPECT_EQ(all_calls, calls);
}

TEST_F(management_device_test, each_write_that_fails_is_reported_and_those_of_its_step_are_still_made)
{
    for (const std::string &name : all_calls) {
        SCOPED_TRACE(name);
        start_over();
        failing = name;
        const std::string before = gateway.config("network");

        const handled outcome = add_device();

        EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, outcome.status);
        EXPECT_EQ(1U, outcome.replies);
        EXPECT_EQ(-1, outcome.result());
        EXPECT_EQ("korvel add WAN device ERR!", outcome.info());
        const bool of_identity = name == "lkname" || name == "macaddr";
        EXPECT_EQ(name == "device" ? text_lines{"device"}
                  : of_identity    ? all_calls
                                   : until_identifier,
                  calls);
        EXPECT_EQ(before, gateway.config("network")) << "and nothing is left of the others";
    }
}

TEST_F(management_device_test, without_an_address_none_is_written)
{
    constexpr char bridge_address[] = "/sys/class/net/br-lan/address";
    ASSERT_EQ(0, mount("/dev/null", bridge_address, nullptr, MS_BIND, nullptr));

    const handled outcome = add_device();

    EXPECT_EQ(0, umount2(bridge_address, MNT_DETACH));
    EXPECT_EQ(0, outcome.result());
    text_lines expected = all_calls;
    expected.pop_back();
    EXPECT_EQ(expected, calls);
}

} // namespace
