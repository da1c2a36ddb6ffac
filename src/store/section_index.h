// Where the WANs are in a loaded configuration, found in one pass: looking for each WAN by itself takes as
// many passes as there are WANs.
#pragma once

#include "base/config.h"

#include <cstdint>

// The sections of one WAN; null: there is none.
struct wan_sections {
    uci_section *device;       // as wan_device_section() finds it
    uci_section *interface;    // wan_<id>
    uci_section *interface_v6; // wan_<id>_v6
    uci_section *dslite;       // dslite_<id>
};

// The sections of all WANs of a `network` configuration, as long as that is neither changed nor let go. None
// where it could not be loaded.
class wan_section_index {
public:
    explicit wan_section_index(const uci_loaded &network);

    const wan_sections &of(uint8_t wan_id) const { return wans_[wan_id]; }

    // Tells whether a name is one that a WAN gives to an interface; if so, whose, and the interface's section
    // or null. Otherwise the outputs are unchanged.
    bool find_interface(const char *name, uint8_t &id_out, uci_section *&section_out) const;

private:
    void take_device(const uci_loaded &network, uci_section *section);

    wan_sections wans_[UINT8_MAX + 1] = {};
};
