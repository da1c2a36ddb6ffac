// The objects on the bus: who owns them, their paths and types.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "client.h"

namespace ubusd {

// The methods that objects share. Lives as long as one of its objects.
struct object_type {
    uint32_t id = 0;
    std::vector<uint8_t> signature; // one blobmsg table per method, as it is sent
    size_t objects = 0;
};

struct object {
    uint32_t id = 0;
    client *owner = nullptr;
    object_type *type = nullptr;     // none: never found by a lookup
    std::optional<std::string> path; // none: anonymous
    size_t footprint = 0;            // bytes of the owner's storage that the object itself takes

    std::vector<std::string> patterns; // of events it gets
    std::vector<object *> subscribers; // objects that watch this one
    std::vector<object *> targets;     // objects that this one watches
};

// An id that is not in use: random, so that a restarted daemon does not hand out those of before.
uint32_t random_id();
template <class Map> uint32_t unused_id(const Map &taken)
{
    for (;;) {
        const uint32_t id = random_id();
        if (id >= UBUS_FIRST_CLIENT_ID && !taken.contains(id))
            return id;
    }
}

class registry {
public:
    // By path, in the order of strcmp.
    using path_index = std::map<std::string, object *, std::less<>>;

    const path_index &paths() const { return paths_; }
    object *find(uint32_t id) const;

    object_type *find_type(uint32_t id) const;
    // A type without objects; it is kept from the first add_object() on and must be given to one at once.
    object_type *add_type(std::vector<uint8_t> signature);
    // Takes back a type that no object came to use.
    void drop_unused(object_type *type);

    // nullptr if the owner's storage does not suffice. The path must be free.
    object *add(client &owner, std::optional<std::string> path, object_type *type);
    // Removes an object that no list of another object names any more, and its type with the type's last
    // object.
    void remove(object &gone);

private:
    std::unordered_map<uint32_t, std::unique_ptr<object>> objects_;
    std::unordered_map<uint32_t, std::unique_ptr<object_type>> types_;
    path_index paths_;
};

} // namespace ubusd
