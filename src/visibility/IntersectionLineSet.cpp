// From intersection edges to a drawable set: hidden parts removed, the ends
// of the visible pieces put on the grid and taken back to world space.

#include <limits>
#include <vector>

#include "qe/qeAttributes.h"

#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/TrianglesIntersection.h"
#include "exact/Exact.h"
#include "parallel/Chunks.h"
#include "visibility/IntersectionInternal.h"
#include "visibility/IntervalMerge.h"

namespace ctr {

namespace {

constexpr size_t kEdgesPerChunk = 64;
constexpr size_t kChunksPerWave = 32;

}  // namespace

LineSegmentSet* TrianglesIntersection::computeIntersectionEdges() const {
    const tInternal& state = *internal;
    qe::qeProgressNotifierInterface* notifier = state.progressNotifier;
    tInternal::tEdgeList edges;
    state.findIntersectionEdges(edges);
    if (notifier && notifier->shouldCancel()) return nullptr;
    const DiscreteProjectionSpace* space = state.bakedTriangles->getProjectionSpace();
    if (edges.empty() || !space) return nullptr;

    // What is left of the notifier's range is spread evenly over the edges.
    const float step =
        notifier ? static_cast<float>(notifier->getRemainingProgress() / static_cast<double>(edges.size())) : 1.0f;
    const auto visiblePieces = [&](const tInternal::tEdge& edge, std::vector<RationalInterval>& hidden,
                                   std::vector<Wm4::Vector3<float>>& out) {
        hidden.clear();
        state.computeEdgeOcclusion(edge, hidden);
        SortAndMergeIntervals(hidden);

        // The parameter now runs between the grid points of the two ends.
        const BakedVertex& g1 = edge.first.point;
        const BakedVertex& g2 = edge.second.point;
        const auto addPiece = [&](const exact::Fraction& from, const exact::Fraction& to) {
            const BakedVertex start = exact::FloorAlong(g1, g2, from);
            const BakedVertex end = exact::FloorAlong(g1, g2, to);
            // Less than one grid cell on screen: nothing to draw.
            if (start.x == end.x && start.y == end.y) return;
            out.push_back(space->gridToWorld(start));
            out.push_back(space->gridToWorld(end));
        };
        // Merged intervals are sorted with positive gaps, so the visible
        // pieces are the gaps, plus the stretches before the first and after
        // the last interval when they have positive length. Interval ends
        // here are never negative.
        exact::Fraction visibleFrom{0, 1};
        for (const RationalInterval& interval : hidden) {
            const exact::Fraction hiddenFrom{interval.startNumerator, interval.startDenominator};
            if (exact::Less(visibleFrom, hiddenFrom)) addPiece(visibleFrom, hiddenFrom);
            visibleFrom = exact::Fraction{interval.endNumerator, interval.endDenominator};
        }
        if (exact::Less(visibleFrom, exact::Fraction{1, 1})) addPiece(visibleFrom, exact::Fraction{1, 1});
    };

    std::vector<Wm4::Vector3<float>> points;
    if (state.executor) {
        // Each chunk of edges keeps its own pieces, joined in chunk order.
        const std::vector<const tInternal::tEdge*> edgeAt = [&] {
            std::vector<const tInternal::tEdge*> list;
            list.reserve(edges.size());
            for (const tInternal::tEdge& edge : edges) list.push_back(&edge);
            return list;
        }();
        std::vector<std::vector<Wm4::Vector3<float>>> chunkPoints(ChunkCount(edgeAt.size(), kEdgesPerChunk));
        const bool finished = ForEachChunkInWaves(
            *state.executor, edgeAt.size(), kEdgesPerChunk, kChunksPerWave,
            [&](size_t chunk, size_t begin, size_t end) {
                std::vector<RationalInterval> hidden;
                for (size_t i = begin; i < end; ++i) visiblePieces(*edgeAt[i], hidden, chunkPoints[chunk]);
            },
            [&](size_t begin, size_t end) {
                if (!notifier) return true;
                for (size_t i = begin; i < end; ++i) notifier->advanceProgress(step);
                return !notifier->shouldCancel();
            });
        if (!finished) return nullptr;
        for (const std::vector<Wm4::Vector3<float>>& part : chunkPoints)
            points.insert(points.end(), part.begin(), part.end());
    } else {
        std::vector<RationalInterval> hidden;
        for (const tInternal::tEdge& edge : edges) {
            if (notifier) {
                notifier->advanceProgress(step);
                if (notifier->shouldCancel()) return nullptr;
            }
            visiblePieces(edge, hidden, points);
        }
    }

    if (points.empty()) return nullptr;
    if (notifier && notifier->shouldCancel()) return nullptr;
    if (points.size() > static_cast<size_t>(std::numeric_limits<int>::max())) return nullptr;
    const int count = static_cast<int>(points.size());
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    qe::qePointer<qe::qeVertexBuffer> vertices = new qe::qeVertexBuffer(attributes, count);
    qe::qePointer<qe::qeIndexBuffer> indices = new qe::qeIndexBuffer(count, qe::qeIndexBuffer::IBT_LINE_LIST);
    unsigned int* index = indices->GetData();
    for (int i = 0; i < count; ++i) {
        vertices->Position3(i) = points[static_cast<size_t>(i)];
        index[i] = static_cast<unsigned int>(i);
    }
    LineSegmentSet* set = new LineSegmentSet;
    set->VBuffer = vertices;
    set->IBuffer = indices;
    set->UpdateMS(true, false, -2);
    return set;
}

}  // namespace ctr
