// Bounding-volume hierarchy in a flat node array. Node 0 is the root.
#ifndef QE_QEGENERICBVH_H
#define QE_QEGENERICBVH_H

#include <cstdint>
#include <string>
#include <vector>

#include "qe/qeBBox.h"

namespace qe {

// The layout is fixed because traversals read it directly: a box of six
// floats, then two words. word0 with both top bits set marks a leaf whose
// primitives start at position (word0 & kIndexMask) of the primitive list and
// number word1. Otherwise the top bits of word0 hold the split axis (0 to 2),
// its low 30 bits the first child and the low 28 bits of word1 the second.
struct qeBVHNode {
    static constexpr uint32_t kLeafFlag = 0xC0000000u;
    static constexpr uint32_t kIndexMask = 0x3FFFFFFFu;
    static constexpr uint32_t kSecondChildMask = 0x0FFFFFFFu;

    qeBBox box;
    uint32_t word0 = 0;
    uint32_t word1 = 0;

    bool isLeaf() const { return (word0 & kLeafFlag) == kLeafFlag; }
    uint32_t firstPrimitive() const { return word0 & kIndexMask; }
    uint32_t primitiveCount() const { return word1; }
    uint32_t firstChild() const { return word0 & kIndexMask; }
    uint32_t secondChild() const { return word1 & kSecondChildMask; }
    uint32_t splitAxis() const { return word0 >> 30; }
};
static_assert(sizeof(qeBVHNode) == 32, "the node layout is read directly by traversals");

class qeGenericBVH {
public:
    const std::vector<qeBVHNode>& getNodes() const { return m_nodes; }
    std::vector<qeBVHNode>& getNodes() { return m_nodes; }
    const std::vector<uint32_t>& getPrimitives() const { return m_primitives; }
    std::vector<uint32_t>& getPrimitives() { return m_primitives; }
    bool isEmpty() const { return m_nodes.empty(); }

    // Empties both lists, keeping their capacity.
    void clear() {
        m_nodes.clear();
        m_primitives.clear();
    }

    // Structural check: child links in range and pointing forward, leaves
    // covering every primitive position exactly once, every primitive number
    // below primitiveQuantity and listed once, and every box containing the
    // boxes of its children. On failure, why (if given) says what is wrong.
    bool validate(uint32_t primitiveQuantity, std::string* why = nullptr) const;

    // Longest root-to-leaf path, counted in nodes (0 for an empty tree).
    uint32_t computeDepth() const;

private:
    std::vector<qeBVHNode> m_nodes;
    std::vector<uint32_t> m_primitives;
};

}  // namespace qe

#endif
