#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "qe/qeAttributes.h"

#include "ctr/SheetLines.h"
#include "lines/Placement.h"
#include "visibility/SegmentPieces.h"

namespace ctr {

LineSegmentSet* BakeHiddenSegments(const LineSegmentSet* source) {
    if (!source || !source->VBuffer || !source->IBuffer) return nullptr;
    if (!source->VBuffer->GetAttributes().HasPosition()) return nullptr;
    const OccludedSegments segments(*source);

    // Hidden pieces of the segments in view; a segment out of view carries
    // the whole range as hidden, but nothing of it is on the sheet.
    const auto eachHiddenPiece = [&](const auto& visit) {
        for (size_t k = 0; k < segments.listed(); ++k) {
            const OccludedSegments::tSegment segment = segments.at(k);
            if (!segments.valid(segment) || !segment.inView()) continue;
            ForEachSegmentPiece(segment.hidden, [&](bool hidden, const tPieceEnd& from, const tPieceEnd& to) {
                if (hidden) visit(segment, from, to);
            });
        }
    };
    size_t pieces = 0;
    eachHiddenPiece([&](const OccludedSegments::tSegment&, const tPieceEnd&, const tPieceEnd&) { ++pieces; });
    if (pieces == 0 || pieces > static_cast<size_t>(std::numeric_limits<int>::max() / 2)) return nullptr;

    const int count = static_cast<int>(2 * pieces);
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    qe::qePointer<qe::qeVertexBuffer> vertices = new qe::qeVertexBuffer(attributes, count);
    qe::qePointer<qe::qeIndexBuffer> indices = new qe::qeIndexBuffer(count, qe::qeIndexBuffer::IBT_LINE_LIST);
    unsigned int* index = indices->GetData();
    int next = 0;
    eachHiddenPiece([&](const OccludedSegments::tSegment& segment, const tPieceEnd& from, const tPieceEnd& to) {
        // Built per piece: the few pieces of a segment do not repay keeping
        // its cutter between them.
        const SegmentCutter cutter = segments.cutter(segment);
        for (const tPieceEnd* end : {&from, &to}) {
            vertices->Position3(next) = cutter.point(*end);
            index[next] = static_cast<unsigned int>(next);
            ++next;
        }
    });

    std::unique_ptr<LineSegmentSet> result(new LineSegmentSet);
    result->VBuffer = vertices;
    result->IBuffer = indices;
    CopyPlacement(*source, *result);
    return result.release();
}

}  // namespace ctr
