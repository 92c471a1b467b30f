// SPDX-License-Identifier: Apache-2.0

// Defines the hash table of the positions of the entries of a dictionary.
#ifndef COREFOUNDATION_DICTIONARYINDEX_H
#define COREFOUNDATION_DICTIONARYINDEX_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "Dictionary.h"

namespace cf {

// The table uses open addressing with linear probing. At most half of the slots are in use. A slot
// holds the position of an entry and half of the hash of its key, so most searches compare one key.
struct Dictionary::Index {
    struct Slot {
        std::uint32_t hash;
        std::uint32_t position;  // The position of the entry plus 1, or 0 in a free slot.
    };

    // Returns an empty index for this number of entries, which the caller frees. Returns null if
    // memory runs out.
    static Index* make(std::size_t entries) {
        std::size_t count = 1;
        while (count < 2 * entries) {
            count *= 2;
        }
        auto* const index =
            static_cast<Index*>(std::calloc(1, sizeof(Index) + count * sizeof(Slot)));
        if (index != nullptr) {
            index->mask = count - 1;
        }
        return index;
    }

    // Returns the slots, which follow the index in memory.
    Slot* slots() { return reinterpret_cast<Slot*>(this + 1); }

    std::size_t next(std::size_t slot) const { return (slot + 1) & mask; }
    std::size_t home(std::uint32_t hash) const { return hash & mask; }

    void insert(std::uint32_t hash, std::size_t position) {
        std::size_t slot = home(hash);
        while (slots()[slot].position != 0) {
            slot = next(slot);
        }
        slots()[slot] = {hash, static_cast<std::uint32_t>(position + 1)};
    }

    // Returns the slot of the entry at `position`, which must be in the index.
    std::size_t find(std::uint32_t hash, std::size_t position) {
        std::size_t slot = home(hash);
        while (slots()[slot].position != position + 1) {
            slot = next(slot);
        }
        return slot;
    }

    // Frees a slot, and moves those slots behind it that a search would no longer find.
    void erase(std::size_t slot) {
        std::size_t free = slot;
        for (std::size_t at = next(slot); slots()[at].position != 0; at = next(at)) {
            const std::size_t distance = (at - home(slots()[at].hash)) & mask;
            if (distance >= ((at - free) & mask)) {
                slots()[free] = slots()[at];
                free = at;
            }
        }
        slots()[free] = {0, 0};
    }

    std::size_t mask;  // The number of slots, which is a power of two, minus 1.
};

}  // namespace cf

#endif  // COREFOUNDATION_DICTIONARYINDEX_H
