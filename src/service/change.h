// A change of the WANs: an operation (base/operation.h) whose works note what they do to which WAN.
//
// When the operation is decided each note becomes an outcome (service/outcomes.h), in the order in which they
// were made; when it is not, one outcome tells why. Works that run again because another program has written
// meanwhile make their notes anew.
#pragma once

#include "base/operation.h"
#include "service/outcomes.h"

// Runs the works as operation_run() does, `maxWanId` being the value that is kept. `wan_id` is the WAN that
// the change is about, 0: several, or one to be made; it is what the outcome speaks of when nothing is
// changed. Same threads and locks as the works.
operation_result change_run(std::span<const operation_work> works, uint8_t wan_id);

// The notes of a work. Where no change runs they do nothing. Names need not be terminated.

// The WAN will be created, changed or deleted. Not complete: a part of it could not be written.
void note_wan(wan_action action, uint8_t wan_id, std::string_view name, std::string_view device,
              bool complete);
// The names of the WAN that the change is about.
void note_subject(std::string_view name, std::string_view device);
// Why the work is going to refuse: refused, failed or lost, and a text that lives for ever. `conflict` and
// `other` as an outcome has them. The last call counts.
void note_refusal(wan_action action, const char *reason, const char *conflict = nullptr, uint8_t other = 0);
