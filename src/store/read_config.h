// Reads one WAN from the configuration and the network daemon into its record.
#pragma once

#include "base/config.h"
#include "wan/stored_options.h"
#include "wan/wan_reading.h"

class ifstatus_reader;
struct wan_sections;

// Section names are copied whole up to this size; the library makes them of 9 or 10 characters, people of any
// length.
inline constexpr size_t section_name_size = 64;

// Reads an option of a section (which may be null) into its field of the record. Returns 0, or the failure
// with the field unchanged.
int wan_read_option(const uci_loaded &network, uci_section *section, const stored_option &option,
                    wan_config *record);

// The device section of a WAN: the first section of type `device` with plain options `lkname` and `name`
// whose `lkname` begins with the identifier's low 8 bits and an underscore (see wan_names::device_prefix).
// Null when there is none.
uci_section *wan_device_section(const uci_loaded &network, uint32_t wan_id);

// The same as names: the section's, and its option `name` (12 bytes, copied as strncpy does). Returns 0, or
// -1 with the outputs unchanged when there is none or `network` cannot be loaded.
int wan_find_device(uint32_t wan_id, char (&section_out)[section_name_size], char (&device_out)[12]);

// Writes one character per entry of the section's `port_binding` list, '1' bound, '0' not, at most 17 and no
// terminator. Returns how many of them are '1'; 0, with bind_out unchanged, when there is no such list.
unsigned wan_read_port_binding(const uci_loaded &network, uci_section *section, char (&bind_out)[17]);

// Fills the record's DNS servers from the list `dns` of an interface section: the first two entries with a
// point as IPv4 servers, the first two others with a colon as IPv6 servers. Without such a list nothing
// changes.
void wan_read_dns(const uci_loaded &network, uci_section *interface, wan_config *record);

// First half: fills the record from the configuration, and the rest of the reading; logs no failure. The
// reading has failed when the identifier is 0 or above maxWanId or the WAN has no device section. Takes no
// lock. Who reads many WANs passes their sections from an index (store/section_index.h).
void wan_read_configured(const uci_loaded &network, wan_reading *reading);
void wan_read_configured(const uci_loaded &network, const wan_sections &sections, wan_reading *reading);

// Second half, for each reading in the order in which `states` has them: fills in what the network daemon
// says, and waits for that. Returns 0, also when single options could not be read (that is logged), or -1
// when the reading has failed (logged as well).
int wan_finish_reading(ifstatus_reader &states, const wan_reading &reading);

// Both halves for one WAN, whose record is zero but for `wanId`, from a `network` configuration of its own.
// `asked`: steady_milliseconds() when the request for it came in. Returns the second one's result.
int wan_read_config(wan_config *record, uint64_t asked);

// Reads what is configured of a WAN, without its state, such that writing the record again changes nothing:
// dialling on demand as 1, and with what queries hide or leave out for the WAN's protocols. Returns
// configuration_unreadable, which is logged with the reason, when that says nothing about the WAN.
inline constexpr int configuration_unreadable = -2;
int wan_read_stored(const uci_loaded &network, wan_config *record);
