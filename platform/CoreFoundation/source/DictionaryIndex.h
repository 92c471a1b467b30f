// The hash table over the entries of a dictionary.
#ifndef COREFOUNDATION_DICTIONARYINDEX_H
#define COREFOUNDATION_DICTIONARYINDEX_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "Dictionary.h"

namespace cf {

// Open addressing with linear probing. At most half of the slots are in use. A slot holds half a
// hash, so that most searches look at one key, and the position of an entry.
struct Dictionary::Index {
    struct Slot {
        std::uint32_t hash;
        std::uint32_t position;  // of the entry, plus 1; 0 in a free slot
    };

    // Returns an empty index for so many entries, which the caller frees, or null if memory runs
    // out.
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

    // The slots stand behind the index.
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

    // Returns the slot of the entry at `position`, which must have one.
    std::size_t find(std::uint32_t hash, std::size_t position) {
        std::size_t slot = home(hash);
        while (slots()[slot].position != position + 1) {
            slot = next(slot);
        }
        return slot;
    }

    // Frees a slot, and moves up the slots that had to pass it by.
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

    std::size_t mask;  // the number of slots, a power of two, less 1
};

}  // namespace cf

#endif  // COREFOUNDATION_DICTIONARYINDEX_H
