// Objects and types, found by id and by path.
#include "registry.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include <sys/random.h>

namespace ubusd {

namespace {

// What an object is charged beside its texts: its record and its places in the indexes, rounded up.
constexpr size_t object_overhead = 512;

} // namespace

uint32_t random_id()
{
    uint32_t id = 0;
    // Requests of up to 256 bytes are never cut short once the pool is filled, but a signal may end the wait
    // for that.
    while (getrandom(&id, sizeof(id), 0) != sizeof(id))
        continue;
    return id;
}

object *registry::find(uint32_t id) const
{
    const auto found = objects_.find(id);
    return found == objects_.end() ? nullptr : found->second.get();
}

object_type *registry::find_type(uint32_t id) const
{
    const auto found = types_.find(id);
    return found == types_.end() ? nullptr : found->second.get();
}

object_type *registry::add_type(std::vector<uint8_t> signature)
{
    auto type = std::make_unique<object_type>();
    type->id = unused_id(types_);
    type->signature = std::move(signature);
    object_type *const added = type.get();
    types_.emplace(added->id, std::move(type));
    return added;
}

void registry::drop_unused(object_type *type)
{
    if (type && type->objects == 0)
        types_.erase(type->id);
}

object *registry::add(client &owner, std::optional<std::string> path, object_type *type)
{
    // Every object pays for its type, shared or not: the type outlives the object that brought it.
    const size_t footprint =
        object_overhead + (path ? path->size() : 0) + (type ? type->signature.size() : 0);
    if (!owner.reserve(footprint))
        return nullptr;

    auto created = std::make_unique<object>();
    created->id = unused_id(objects_);
    created->owner = &owner;
    created->type = type;
    created->path = std::move(path);
    created->footprint = footprint;
    if (type)
        type->objects++;
    if (created->path)
        paths_.emplace(*created->path, created.get());
    object *const added = created.get();
    owner.objects.push_back(added);
    objects_.emplace(added->id, std::move(created));
    return added;
}

void registry::remove(object &gone)
{
    if (gone.path)
        paths_.erase(*gone.path);
    if (gone.type) {
        gone.type->objects--;
        drop_unused(gone.type);
    }
    std::erase(gone.owner->objects, &gone);
    gone.owner->release(gone.footprint);
    objects_.erase(gone.id);
}

} // namespace ubusd
