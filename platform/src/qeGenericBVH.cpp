#include "qe/qeGenericBVH.h"

#include <algorithm>

#include "qe/qeBVHPrimitiveContainer.h"

namespace qe {

namespace {

bool fail(std::string* why, const std::string& text) {
    if (why) *why = text;
    return false;
}

bool contains(const qeBBox& outer, const qeBBox& inner) {
    if (inner.isEmpty()) return true;
    for (int axis = 0; axis < 3; ++axis)
        if (!(outer.Min[axis] <= inner.Min[axis] && inner.Max[axis] <= outer.Max[axis])) return false;
    return true;
}

}  // namespace

qeBVHPrimitiveContainer::~qeBVHPrimitiveContainer() = default;

bool qeGenericBVH::validate(uint32_t primitiveQuantity, std::string* why) const {
    if (m_nodes.empty()) {
        if (!m_primitives.empty()) return fail(why, "primitives without nodes");
        return true;
    }
    if (m_primitives.size() != primitiveQuantity) return fail(why, "primitive list length differs from quantity");
    std::vector<uint8_t> positionSeen(m_primitives.size(), 0);
    std::vector<uint8_t> nodeSeen(m_nodes.size(), 0);
    std::vector<uint32_t> stack{0};
    while (!stack.empty()) {
        const uint32_t index = stack.back();
        stack.pop_back();
        if (nodeSeen[index]) return fail(why, "node " + std::to_string(index) + " reached twice");
        nodeSeen[index] = 1;
        const qeBVHNode& node = m_nodes[index];
        if (node.isLeaf()) {
            const uint64_t first = node.firstPrimitive();
            const uint64_t end = first + node.primitiveCount();
            if (end > m_primitives.size()) return fail(why, "leaf " + std::to_string(index) + " runs past the list");
            for (uint64_t k = first; k < end; ++k) {
                if (positionSeen[k]) return fail(why, "primitive position listed by two leaves");
                positionSeen[k] = 1;
            }
            continue;
        }
        for (const uint32_t child : {node.firstChild(), node.secondChild()}) {
            if (child <= index || child >= m_nodes.size())
                return fail(why, "node " + std::to_string(index) + " has a bad child link");
            if (!contains(node.box, m_nodes[child].box))
                return fail(why, "node " + std::to_string(index) + " does not contain its child");
            stack.push_back(child);
        }
    }
    if (std::find(nodeSeen.begin(), nodeSeen.end(), 0) != nodeSeen.end()) return fail(why, "unreachable node");
    if (std::find(positionSeen.begin(), positionSeen.end(), 0) != positionSeen.end())
        return fail(why, "primitive position in no leaf");
    std::vector<uint8_t> primitiveSeen(primitiveQuantity, 0);
    for (const uint32_t primitive : m_primitives) {
        if (primitive >= primitiveQuantity || primitiveSeen[primitive])
            return fail(why, "primitive " + std::to_string(primitive) + " out of range or repeated");
        primitiveSeen[primitive] = 1;
    }
    return true;
}

uint32_t qeGenericBVH::computeDepth() const {
    if (m_nodes.empty()) return 0;
    uint32_t deepest = 0;
    std::vector<std::pair<uint32_t, uint32_t>> stack{{0u, 1u}};
    while (!stack.empty()) {
        const auto [index, depth] = stack.back();
        stack.pop_back();
        deepest = std::max(deepest, depth);
        const qeBVHNode& node = m_nodes[index];
        if (node.isLeaf()) continue;
        stack.push_back({node.firstChild(), depth + 1});
        stack.push_back({node.secondChild(), depth + 1});
    }
    return deepest;
}

}  // namespace qe
