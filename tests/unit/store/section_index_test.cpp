// Where the WANs are in a loaded configuration.
#include "store/section_index.h"

#include "store/read_config.h"
#include "support/code_test.h"
#include "wan/wan_names.h"

namespace {

class section_index_test : public code_test {
protected:
    static std::string device(const std::string &link_name, const std::string &name)
    {
        return "config device\n\toption lkname '" + link_name + "'\n\toption name '" + name + "'\n";
    }

    // Each WAN has to be found where a search for it alone finds it.
    void expect_as_searched(const std::string &text)
    {
        SCOPED_TRACE(text);
        gateway.set_config("network", text);
        const uci_loaded network("network");
        const wan_section_index index(network);
        for (uint32_t number = 1; number <= UINT8_MAX; number++) {
            const uint8_t id = static_cast<uint8_t>(number);
            SCOPED_TRACE(number);
            const wan_names names(id);
            EXPECT_EQ(wan_device_section(network, id), index.of(id).device);
            EXPECT_EQ(network.section(names.interface), index.of(id).interface);
            EXPECT_EQ(network.section(names.interface_v6), index.of(id).interface_v6);
            EXPECT_EQ(network.section(names.dslite), index.of(id).dslite);
        }
    }
};

TEST_F(section_index_test, devices_are_found_as_by_a_search_for_each)
{
    std::string all;
    for (unsigned id = 1; id <= UINT8_MAX; id++)
        all += device(std::to_string(id) + "_INTERNET_R_VID_" + std::to_string(id), "pon");
    expect_as_searched(all);
    for (const char *const link_name : {"7_", "7", "07_a", "_7", "77_", "100", "1000_a", "100a", "99a",
                                        "256_a", "300", " 7_a", "-7_a", "7_a", ""})
        expect_as_searched(device("50_a", "pon.1") + device(link_name, "pon.2") + device("7_b", "pon.3") +
                           device("100_b", "pon.4"));
}

TEST_F(section_index_test, what_is_no_device_with_both_names_is_passed_over)
{
    expect_as_searched("config device\n\toption lkname '3_a'\n"
                       "config device\n\tlist lkname '3_a'\n\toption name 'pon'\n"
                       "config interface 'lan'\n\toption lkname '3_a'\n\toption name 'pon'\n" +
                       device("3_a", "pon.3"));
}

TEST_F(section_index_test, interfaces_are_found_by_their_whole_names)
{
    std::string all;
    for (const char *const name :
         {"wan", "wan_", "wan_7", "wan_8_v6", "dslite_9", "wan_10_6", "wan_011", "wan_12_v6x", "xwan_13",
          "wan_256", "wan_1000", "dslite_14_v6", "lan15", "wan_255_v6"})
        all += std::string("config interface '") + name + "'\n";
    expect_as_searched(all + "config device 'wan_16'\n");
}

TEST_F(section_index_test, a_name_tells_whose_interface_it_is)
{
    gateway.set_config("network", "config interface 'wan_7'\n");
    const uci_loaded network("network");
    const wan_section_index index(network);
    uint8_t id = 1;
    uci_section *section = nullptr;

    EXPECT_TRUE(index.find_interface("wan_7", id, section));
    EXPECT_EQ(7, id);
    EXPECT_EQ(network.section("wan_7"), section);
    EXPECT_TRUE(index.find_interface("dslite_255", id, section));
    EXPECT_EQ(255, id);
    EXPECT_EQ(nullptr, section);
    for (const char *const name : {"", "lan", "wan_0", "wan_07", "wan_256", "wan_7_6", "lan7"})
        EXPECT_FALSE(index.find_interface(name, id, section)) << name;
    EXPECT_EQ(255, id);
}

TEST_F(section_index_test, a_configuration_that_cannot_be_loaded_has_no_wans)
{
    gateway.set_config("network", "config device 'x\n");
    const uci_loaded network("network");
    ASSERT_FALSE(network);

    EXPECT_EQ(nullptr, wan_section_index(network).of(1).device);
}

} // namespace
