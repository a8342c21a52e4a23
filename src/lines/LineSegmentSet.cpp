#include "ctr/LineSegmentSet.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "qe/qeAttributes.h"
#include "qe/qeTriMesh.h"

namespace ctr {

LineSegmentSet::LineSegmentSet() : qe::qeLine(0, 0, false) {}

LineSegmentSet::~LineSegmentSet() = default;

bool LineSegmentSet::Clone(qe::qeRttiInterface*& target) const {
    if (target) {
        if (!dynamic_cast<LineSegmentSet*>(target)) return false;
    } else {
        target = new LineSegmentSet;
    }
    if (!qe::qeLine::Clone(target)) return false;
    LineSegmentSet* set = static_cast<LineSegmentSet*>(target);
    // Flags describe how a producer built its segments; a copy is not that
    // producer's output, so it starts without them.
    set->segmentFlags.clear();
    if (set != this) {
        set->occlusionIntervals = occlusionIntervals;
        set->segmentClips = segmentClips;
    }
    return true;
}

LineSegmentSet* LineSegmentSet::GetOutlineEdgesFromMesh(const qe::qeVertexBuffer* vertices,
                                                        qe::qePointer<qe::qeIndexBuffer> lines,
                                                        const qe::qeGenericTransformation<float>& transformation) {
    if (!vertices || !lines) return nullptr;
    LineSegmentSet* set = new LineSegmentSet;
    set->VBuffer = const_cast<qe::qeVertexBuffer*>(vertices);
    set->IBuffer = lines;
    set->Local = transformation;
    set->setDirtyDown(false);
    set->World = transformation;
    set->UpdateMS(true, false, -2);
    return set;
}

LineSegmentSet* LineSegmentSet::GetOutlineEdgesFromTriMesh(const qe::qeTriMesh* mesh,
                                                           qe::qePointer<qe::qeIndexBuffer> lines) {
    if (!mesh) return nullptr;
    return GetOutlineEdgesFromMesh(mesh->VBuffer, lines, mesh->World);
}

namespace {

bool TakesPart(const LineSegmentSet* set) { return set && set->VBuffer && set->IBuffer; }

}  // namespace

LineSegmentSet* LineSegmentSet::FuseLineSegmentSets(const std::vector<LineSegmentSet*>& sets) {
    if (sets.empty()) return nullptr;
    int64_t vertexTotal = 0;
    int64_t segmentTotal = 0;
    for (const LineSegmentSet* set : sets) {
        if (!TakesPart(set)) continue;
        vertexTotal += set->VBuffer->GetVertexQuantity();
        segmentTotal += set->getSegmentQuantity();
    }
    if (vertexTotal == 0 || segmentTotal == 0) return nullptr;
    // The buffers count in int; a sum they cannot hold cannot be fused.
    if (vertexTotal > std::numeric_limits<int>::max() || 2 * segmentTotal > std::numeric_limits<int>::max())
        return nullptr;

    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    qe::qePointer<qe::qeVertexBuffer> fusedVertices = new qe::qeVertexBuffer(attributes, static_cast<int>(vertexTotal));
    qe::qePointer<qe::qeIndexBuffer> fusedIndices =
        new qe::qeIndexBuffer(static_cast<int>(2 * segmentTotal), qe::qeIndexBuffer::IBT_LINE_LIST);
    std::vector<std::vector<RationalInterval>> fusedIntervals(static_cast<size_t>(segmentTotal));

    unsigned int* indices = fusedIndices->GetData();
    uint32_t vertexOffset = 0;
    size_t indexOffset = 0;
    size_t segmentOffset = 0;
    for (const LineSegmentSet* set : sets) {
        if (!TakesPart(set)) continue;
        const qe::qeVertexBuffer& vertices = *set->VBuffer;
        const int vertexCount = vertices.GetVertexQuantity();
        const size_t segmentCount = static_cast<size_t>(set->getSegmentQuantity());
        const unsigned int* source = set->IBuffer->GetData();
        // An odd trailing index has no room of its own: the fused buffer holds
        // whole segments only, and the index is not a segment's end anyway.
        for (size_t i = 0; i < 2 * segmentCount; ++i) indices[indexOffset + i] = source[i] + vertexOffset;
        if (vertices.GetAttributes().HasPosition())
            for (int i = 0; i < vertexCount; ++i)
                fusedVertices->Position3(static_cast<int>(vertexOffset) + i) =
                    set->World.ApplyForward(vertices.Position3(i), true);
        const size_t intervalCount = std::min(set->occlusionIntervals.size(), segmentCount);
        for (size_t s = 0; s < intervalCount; ++s) fusedIntervals[segmentOffset + s] = set->occlusionIntervals[s];

        vertexOffset += static_cast<uint32_t>(vertexCount);
        indexOffset += 2 * segmentCount;
        segmentOffset += segmentCount;
    }

    LineSegmentSet* fused = new LineSegmentSet;
    fused->VBuffer = fusedVertices;
    fused->IBuffer = fusedIndices;
    fused->occlusionIntervals = std::move(fusedIntervals);
    fused->UpdateMS(false, false, -2);
    return fused;
}

}  // namespace ctr
