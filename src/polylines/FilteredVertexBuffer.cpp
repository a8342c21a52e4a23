#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

#include "qe/qeAttributes.h"

#include "ctr/LineSegmentSet.h"
#include "lines/EdgeOrder.h"

namespace ctr {

namespace {

constexpr unsigned int kUsed = 1u;
constexpr unsigned int kRepresentative = 0x80000000u;

bool SamePosition(const Wm4::Vector3<float>& p, const Wm4::Vector3<float>& q) {
    return p[0] == q[0] && p[1] == q[1] && p[2] == q[2];
}

}  // namespace

void LineSegmentSet::CreateFilteredVertexBuffer(const qe::qeVertexBuffer& vertices, const qe::qeIndexBuffer& indices,
                                                qe::qePointer<qe::qeVertexBuffer>& filtered,
                                                std::vector<unsigned int>& remap) {
    filtered = nullptr;
    const bool hasPositions = vertices.GetAttributes().HasPosition();
    const unsigned int vertexCount = hasPositions ? static_cast<unsigned int>(vertices.GetVertexQuantity()) : 0u;
    remap.assign(static_cast<size_t>(vertices.GetVertexQuantity()), 0u);
    // Used flags, the final numbers and the representative mark share remap.
    const size_t used = static_cast<size_t>(indices.GetIndexQuantity()) & ~size_t(1);
    const unsigned int* data = indices.GetData();
    for (size_t i = 0; i < used; ++i)
        if (data[i] < vertexCount) remap[data[i]] = kUsed;

    std::vector<unsigned int> order(vertexCount);
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(), [&](unsigned int v, unsigned int w) {
        if (remap[v] != remap[w]) return remap[v] > remap[w];
        // By value, NaN last: positions that weld are neighbours after the
        // sort, and a NaN never welds (the walk compares with ==).
        return edges::ComparePositionValue(vertices.Position3(static_cast<int>(v)),
                                           vertices.Position3(static_cast<int>(w))) < 0;
    });

    unsigned int next = 0;
    for (size_t i = 0; i < order.size();) {
        const unsigned int v = order[i];
        if (remap[v] == 0u) break;
        remap[v] = next | kRepresentative;
        const Wm4::Vector3<float>& p = vertices.Position3(static_cast<int>(v));
        for (++i; i < order.size() && remap[order[i]] == kUsed &&
                  SamePosition(vertices.Position3(static_cast<int>(order[i])), p);
             ++i)
            remap[order[i]] = next;
        ++next;
    }

    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    filtered = new qe::qeVertexBuffer(attributes, static_cast<int>(next));
    for (unsigned int v = 0; v < vertexCount; ++v) {
        if (!(remap[v] & kRepresentative)) continue;
        remap[v] &= ~kRepresentative;
        filtered->Position3(static_cast<int>(remap[v])) = vertices.Position3(static_cast<int>(v));
    }
}

void LineSegmentSet::CreateFilteredVertexBufferPatched(const qe::qeVertexBuffer& vertices, qe::qeIndexBuffer& indices,
                                                       qe::qePointer<qe::qeVertexBuffer>& filtered) {
    std::vector<unsigned int> remap;
    CreateFilteredVertexBuffer(vertices, indices, filtered, remap);
    unsigned int* data = indices.GetData();
    // An index naming no vertex cannot be remapped; like an unused vertex it
    // becomes 0.
    for (int i = 0; i < indices.GetIndexQuantity(); ++i) data[i] = data[i] < remap.size() ? remap[data[i]] : 0u;
}

}  // namespace ctr
