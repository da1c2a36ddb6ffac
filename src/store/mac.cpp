#include "store/mac.h"

#include "base/log.h"
#include "base/os.h"
#include "store/id_list.h"

#include <cstdio>

namespace {

constexpr char bridge_address_path[] = "/sys/class/net/br-lan/address";
constexpr uint8_t highest_own_offset = 7;

// Deliberate: the carry stops at the fourth octet, the first three name the vendor.
void add_offset(uint32_t (&octets)[6], uint32_t offset)
{
    uint32_t carry = offset;
    for (int i = 5; i >= 3; i--) {
        octets[i] += carry;
        carry = octets[i] > 0xff ? 1 : 0;
        if (carry != 0)
            octets[i] -= 0x100;
    }
}

} // namespace

int wan_derive_mac(uint8_t wan_id, char (&mac_out)[18])
{
    char text[64];
    if (read_file(bridge_address_path, text) < 0) {
        log_error("Failed to read file: %s", bridge_address_path);
        return -1;
    }
    uint32_t octets[6];
    if (sscanf(text, "%02x:%02x:%02x:%02x:%02x:%02x", &octets[0], &octets[1], &octets[2], &octets[3],
               &octets[4], &octets[5]) != 6) {
        log_error("Failed to parse file: %s", bridge_address_path);
        return -1;
    }
    add_offset(octets, wan_own_or_free_id(wan_id, highest_own_offset));
    text_ref(mac_out).format("%02x:%02x:%02x:%02x:%02x:%02x", octets[0], octets[1], octets[2], octets[3],
                             octets[4], octets[5]);
    return 0;
}

int wan_read_dev_mac(const char *device, char (&mac_out)[18])
{
    char path[32];
    text_ref(path).format("/sys/class/net/%s/address", device);
    char text[8 + 1];
    const long length = read_file(path, text);
    if (length < 0) {
        log_error("Failed to read file: %s", path);
        return -1;
    }
    memcpy(mac_out, text, static_cast<size_t>(length));
    if (char *const line_end = strchr(text, '\n'))
        mac_out[line_end - text] = '\0';
    return 0;
}
