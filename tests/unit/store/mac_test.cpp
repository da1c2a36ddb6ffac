// MAC addresses: derived from the LAN bridge's, or read from a device.
#include "store/mac.h"

#include "base/text.h"
#include "support/code_test.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/mount.h>

namespace {

void run_ip(const program_arguments &args)
{
    program_arguments command = {"ip"};
    command.insert(command.end(), args.begin(), args.end());
    const program_result result = run_program(command);
    ASSERT_EQ(result.status, 0) << result.errors;
}

// A file in place of the kernel's.
class replaced_file {
public:
    // One that shows this text.
    replaced_file(gateway &router, const std::string &path, const std::string &content) : path_(path)
    {
        router.write_file("/tmp/replacement", content);
        show("/tmp/replacement");
    }
    // One that can be opened, but whose reading fails.
    explicit replaced_file(const std::string &path) : path_(path) { show("/proc/self/mem"); }
    ~replaced_file() { (void)umount2(path_.c_str(), MNT_DETACH); }
    replaced_file(const replaced_file &) = delete;
    replaced_file &operator=(const replaced_file &) = delete;

private:
    void show(const char *other)
    {
        if (mount(other, path_.c_str(), nullptr, MS_BIND, nullptr) != 0)
            throw std::runtime_error("cannot mount over " + path_ + ": " + strerror(errno));
    }

    std::string path_;
};

constexpr char bridge_address[] = "/sys/class/net/br-lan/address";

class mac_test : public code_test {
protected:
    // The derived address; empty when there is none.
    static std::string derived(uint8_t id)
    {
        char mac[18] = {};
        return wan_derive_mac(id, mac) == 0 ? mac : "";
    }

    std::string derived_from(const std::string &bridge, uint8_t id)
    {
        const replaced_file address(gateway, bridge_address, bridge);
        return derived(id);
    }
};

TEST_F(mac_test, the_identifier_is_added_to_the_bridges_address)
{
    EXPECT_EQ(gateway.file(bridge_address), "00:11:22:33:44:55\n");

    EXPECT_EQ(derived(2), "00:11:22:33:44:57");
    EXPECT_EQ(derived(0), "00:11:22:33:44:55");
    EXPECT_EQ(derived(7), "00:11:22:33:44:5c");
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(mac_test, the_carry_goes_up_to_the_fourth_octet)
{
    struct {
        const char *bridge;
        uint8_t id;
        const char *expected;
    } const cases[] = {
        {"00:11:22:33:44:fe\n", 3, "00:11:22:33:45:01"}, {"00:11:22:33:44:f8\n", 7, "00:11:22:33:44:ff"},
        {"00:11:22:33:44:f9\n", 7, "00:11:22:33:45:00"}, {"00:11:22:33:ff:ff\n", 1, "00:11:22:34:00:00"},
        {"00:11:22:ff:ff:ff\n", 1, "00:11:22:00:00:00"}, {"ff:ff:ff:ff:ff:ff\n", 7, "ff:ff:ff:00:00:06"},
        {"AA:BB:CC:DD:EE:F0\n", 1, "aa:bb:cc:dd:ee:f1"}, {"0:1:2:3:4:5", 1, "00:01:02:03:04:06"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.bridge);
        EXPECT_EQ(derived_from(row.bridge, row.id), row.expected);
    }
}

TEST_F(mac_test, from_8_on_the_first_gap_in_the_list_is_added)
{
    set_ids({1, 2, 4, 9});
    EXPECT_EQ(derived(7), "00:11:22:33:44:5c");
    EXPECT_EQ(derived(8), "00:11:22:33:44:58") << "the gap is 3";
    EXPECT_EQ(derived(255), "00:11:22:33:44:58");
    gateway.uci_delete("network.korvel.wanList");
    EXPECT_EQ(derived(8), "00:11:22:33:44:5d") << "without a list it is the identifier";
    EXPECT_EQ(derived(255), "00:11:22:33:45:54");
}

TEST_F(mac_test, an_address_that_cannot_be_parsed_is_logged)
{
    for (const char *text :
         {"", "\n", "00:11:22:33:44\n", "00:11:22:33:44:\n", "00-11-22-33-44-55\n", "br-lan\n"}) {
        SCOPED_TRACE(text);
        gateway.clear_log();
        const replaced_file address(gateway, bridge_address, text);
        char mac[18] = "unchanged";

        EXPECT_EQ(wan_derive_mac(1, mac), -1);

        EXPECT_STREQ(mac, "unchanged");
        EXPECT_EQ(gateway.log_texts(LOG_ERR),
                  text_lines{"Failed to parse file: /sys/class/net/br-lan/address"});
    }
}

TEST_F(mac_test, an_address_that_cannot_be_read_is_one_that_cannot_be_parsed)
{
    const replaced_file address(bridge_address);
    char mac[18] = "unchanged";

    EXPECT_EQ(wan_derive_mac(1, mac), -1);

    EXPECT_STREQ(mac, "unchanged");
    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"Failed to parse file: /sys/class/net/br-lan/address"});
}

TEST_F(mac_test, a_missing_bridge_is_logged)
{
    run_ip({"link", "set", "br-lan", "down"});
    run_ip({"link", "set", "br-lan", "name", "elsewhere"});
    char mac[18] = "unchanged";

    EXPECT_EQ(wan_derive_mac(1, mac), -1);

    EXPECT_STREQ(mac, "unchanged");
    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"Failed to read file: /sys/class/net/br-lan/address"});
    run_ip({"link", "set", "elsewhere", "name", "br-lan"});
    run_ip({"link", "set", "br-lan", "up"});
}

TEST_F(mac_test, only_eight_characters_of_a_devices_address_are_taken)
{
    run_ip({"link", "set", "pon", "address", "02:aa:bb:cc:dd:ee"});
    char mac[18] = {};

    EXPECT_EQ(wan_read_dev_mac("pon", mac), 0);
    EXPECT_STREQ(mac, "02:aa:bb");

    char present[18] = "00:11:22:33:44:55";
    EXPECT_EQ(wan_read_dev_mac("pon", present), 0);
    EXPECT_STREQ(present, "02:aa:bb:33:44:55") << "what is behind them stays";
}

TEST_F(mac_test, a_devices_address_ends_at_its_line)
{
    const replaced_file address(gateway, "/sys/class/net/pon/address", "02:aa\n:bb:cc\n");
    for (const char *const before : {"", "00:11:22:33:44:55"}) {
        SCOPED_TRACE(before);
        char mac[18] = {};
        text_ref(mac).format("%s", before);

        EXPECT_EQ(wan_read_dev_mac("pon", mac), 0);

        EXPECT_STREQ(mac, "02:aa");
    }
}

TEST_F(mac_test, a_devices_address_that_cannot_be_read_is_empty)
{
    const replaced_file address("/sys/class/net/pon/address");
    char mac[18] = {};

    EXPECT_EQ(wan_read_dev_mac("pon", mac), 0);
    EXPECT_STREQ(mac, "");

    char present[18] = "00:11:22:33:44:55";
    EXPECT_EQ(wan_read_dev_mac("pon", present), 0);
    EXPECT_STREQ(present, "00:11:22:33:44:55");
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(mac_test, a_missing_device_is_logged)
{
    char mac[18] = {};

    EXPECT_EQ(wan_read_dev_mac("pon.77", mac), -1);

    EXPECT_STREQ(mac, "");
    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"Failed to read file: /sys/class/net/pon.77/address"});
}

TEST_F(mac_test, a_devices_path_is_built_in_32_bytes)
{
    run_ip({"link", "add", "pon.4094", "type", "veth", "peer", "name", "pon.4094far"});
    char mac[18] = {};

    EXPECT_EQ(wan_read_dev_mac("pon.4094", mac), 0) << "31 characters";
    EXPECT_EQ(strlen(mac), 8U);
    EXPECT_EQ(wan_read_dev_mac("pon.4094f", mac), -1) << "32 characters";
    EXPECT_EQ(wan_read_dev_mac("pon.4094far", mac), -1) << "it exists, but not under the cut path";

    EXPECT_EQ(gateway.log_texts(LOG_ERR),
              (text_lines{"Failed to read file: /sys/class/net/pon.4094f/addres",
                          "Failed to read file: /sys/class/net/pon.4094far/addr"}));
}

} // namespace
