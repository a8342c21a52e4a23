// Numbering by exact bit pattern, shared by the corner joining and the
// smooth normals: no tolerance is applied anywhere in the importer.
#ifndef CONTOUR_FIRSTSEENNUMBERING_H
#define CONTOUR_FIRSTSEENNUMBERING_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ScratchArray.h"

namespace contour::importer {

inline uint32_t floatBits(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// Numbers keys of Words 32-bit words in the order they are first seen
// (0, 1, 2, ...): an open-addressing table over the keys' bit patterns, so
// two keys are the same only when every bit agrees. Far lighter than a
// node-based map for the millions of corners of a large scan.
template <size_t Words>
class tFirstSeenNumbering {
public:
    using tKey = std::array<uint32_t, Words>;

    explicit tFirstSeenNumbering(size_t expectedKeys) {
        size_t capacity = 16;
        while (capacity < 2 * expectedKeys) capacity *= 2;
        m_slots.assign(capacity, kEmpty);
        m_keys.reserve(expectedKeys);
    }

    // The number of key, given to it now if it is new.
    uint32_t number(const tKey& key) {
        size_t slot = hash(key) & (m_slots.size() - 1);
        for (;;) {
            const uint32_t id = m_slots[slot];
            if (id == kEmpty) break;
            if (sameKey(m_keys[id], key)) return id;
            slot = (slot + 1) & (m_slots.size() - 1);
        }
        const uint32_t id = static_cast<uint32_t>(m_keys.size());
        m_slots[slot] = id;
        m_keys.push_back(key);
        if (2 * m_keys.size() > m_slots.size()) grow();
        return id;
    }

    size_t size() const { return m_keys.size(); }

    // Starts loading the slot where key would be looked up first, so that a
    // caller who knows its next keys early overlaps their cache misses.
    void prefetch(const tKey& key) const { __builtin_prefetch(&m_slots[hash(key) & (m_slots.size() - 1)]); }

private:
    static constexpr uint32_t kEmpty = 0xffffffffu;

    static bool sameKey(const tKey& a, const tKey& b) {
        uint32_t differ = 0;
        for (size_t k = 0; k < Words; ++k) differ |= a[k] ^ b[k];
        return differ == 0;
    }

    static size_t hash(const tKey& key) {
        uint64_t h = 0x9e3779b97f4a7c15ull;
        for (const uint32_t word : key) h = (h ^ word) * 0xff51afd7ed558ccdull;
        return static_cast<size_t>(h ^ (h >> 29));
    }

    void grow() {
        const size_t capacity = 2 * m_slots.size();
        m_slots = ScratchArray<uint32_t>();
        m_slots.assign(capacity, kEmpty);
        const size_t mask = m_slots.size() - 1;
        for (uint32_t id = 0; id < m_keys.size(); ++id) {
            size_t slot = hash(m_keys[id]) & mask;
            while (m_slots[slot] != kEmpty) slot = (slot + 1) & mask;
            m_slots[slot] = id;
        }
    }

    ScratchArray<uint32_t> m_slots;
    ScratchArray<tKey> m_keys;
};

}  // namespace contour::importer

#endif
