// LOOKUP: lists the objects that a client may see.
#pragma once

#include "access.h"
#include "registry.h"
#include "request.h"

namespace ubusd {

class lookups {
public:
    lookups(const registry &objects, const access_rules &access) : objects_(objects), access_(access) {}

    // Answers a LOOKUP, or parks it while the sender has not read what was sent before.
    int handle(const request &request);
    // Goes on with what was parked; call it when the client's queue has become empty.
    void resume(client &reader);

private:
    int run(client &reader, parked_lookup &lookup);
    void report(client &reader, const frame_header &request, const object &found) const;
    std::optional<std::vector<uint8_t>> visible_signature(const client &reader, const object &found) const;

    const registry &objects_;
    const access_rules &access_;
};

} // namespace ubusd
