// Finds sections and options by name in constant time, so that files with many of either load in linear time.
#pragma once

#include <cstddef>
#include <cstdint>

#include <uci.h>

namespace uci {

// A hash table from (list, element name) to the element. It holds one element per key and neither owns nor
// copies anything; an element must be erased before its name changes or it goes away. All zero is the empty
// table, which owns no memory.
class element_index {
public:
    enum class outcome { added, present, no_memory };

    outcome insert(const uci_list *list, uci_element *element);
    void erase(const uci_list *list, const uci_element *element);
    uci_element *find(const uci_list *list, const char *name) const;
    // Gives the memory back and leaves the empty table.
    void clear();

private:
    struct slot {
        const uci_list *list;
        uci_element *element; // null: free
        uint32_t hash;
    };

    size_t slot_of(const uci_list *list, const char *name, uint32_t hash) const;
    bool grow();

    slot *slots_;
    size_t capacity_; // 0 or a power of two
    size_t used_;
};

} // namespace uci
