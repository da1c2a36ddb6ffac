// The hash table behind lookups by name: open addressing with linear probing, at most two thirds full.
#include "element_index.h"

#include <cstdlib>
#include <cstring>

namespace uci {
namespace {

constexpr size_t first_capacity = 32;

uint32_t hash_of(const uci_list *list, const char *name)
{
    uint64_t hash = 0xcbf29ce484222325u ^ reinterpret_cast<uintptr_t>(list);
    for (; *name; name++)
        hash = (hash ^ static_cast<unsigned char>(*name)) * 0x100000001b3u;
    return static_cast<uint32_t>(hash ^ (hash >> 32));
}

} // namespace

// The slot that holds the key, or the free one where it belongs.
size_t element_index::slot_of(const uci_list *list, const char *name, uint32_t hash) const
{
    size_t at = hash & (capacity_ - 1);
    for (; slots_[at].element; at = (at + 1) & (capacity_ - 1)) {
        const slot &candidate = slots_[at];
        if (candidate.hash == hash && candidate.list == list && strcmp(candidate.element->name, name) == 0)
            break;
    }
    return at;
}

uci_element *element_index::find(const uci_list *list, const char *name) const
{
    return capacity_ ? slots_[slot_of(list, name, hash_of(list, name))].element : nullptr;
}

element_index::outcome element_index::insert(const uci_list *list, uci_element *element)
{
    if ((used_ + 1) * 3 > capacity_ * 2 && !grow())
        return outcome::no_memory;
    const uint32_t hash = hash_of(list, element->name);
    slot &place = slots_[slot_of(list, element->name, hash)];
    if (place.element)
        return outcome::present;
    place = {list, element, hash};
    used_++;
    return outcome::added;
}

void element_index::erase(const uci_list *list, const uci_element *element)
{
    if (!capacity_)
        return;
    size_t hole = slot_of(list, element->name, hash_of(list, element->name));
    if (slots_[hole].element != element)
        return;
    used_--;
    // Entries behind the hole move up unless they would leave their own probe sequence.
    for (size_t at = (hole + 1) & (capacity_ - 1); slots_[at].element; at = (at + 1) & (capacity_ - 1)) {
        const size_t home = slots_[at].hash & (capacity_ - 1);
        if (((at - home) & (capacity_ - 1)) >= ((at - hole) & (capacity_ - 1))) {
            slots_[hole] = slots_[at];
            hole = at;
        }
    }
    slots_[hole] = {};
}

bool element_index::grow()
{
    const size_t new_capacity = capacity_ ? capacity_ * 2 : first_capacity;
    auto *const new_slots = static_cast<slot *>(calloc(new_capacity, sizeof(slot)));
    if (!new_slots)
        return false;
    for (size_t i = 0; i < capacity_; i++) {
        if (!slots_[i].element)
            continue;
        size_t at = slots_[i].hash & (new_capacity - 1);
        while (new_slots[at].element)
            at = (at + 1) & (new_capacity - 1);
        new_slots[at] = slots_[i];
    }
    free(slots_);
    slots_ = new_slots;
    capacity_ = new_capacity;
    return true;
}

void element_index::clear()
{
    free(slots_);
    slots_ = nullptr;
    capacity_ = used_ = 0;
}

} // namespace uci
