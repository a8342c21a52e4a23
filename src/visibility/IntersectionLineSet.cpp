// From intersection edges to a drawable set: hidden parts removed, the ends
// of the visible pieces put on the grid and taken back to world space.

#include <limits>
#include <string>
#include <vector>

#include "qe/qeAttributes.h"

#include "check/Check.h"
#include "check/Validate.h"
#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/TrianglesIntersection.h"
#include "exact/Exact.h"
#include "parallel/Chunks.h"
#include "visibility/IntersectionInternal.h"
#include "visibility/IntersectionPieces.h"
#include "visibility/IntervalMerge.h"

namespace ctr {

namespace {

constexpr size_t kEdgesPerChunk = 64;
constexpr size_t kChunksPerWave = 32;

using Points = std::vector<Wm4::Vector3<float>>;

// A set of one segment per pair of points, none sharing a vertex; null for
// no point.
LineSegmentSet* MakePieceSet(const Points& points) {
    if (points.empty() || points.size() > static_cast<size_t>(std::numeric_limits<int>::max())) return nullptr;
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

}  // namespace

LineSegmentSet* TrianglesIntersection::computeIntersectionEdges() const { return computeIntersectionEdges(nullptr); }

LineSegmentSet* TrianglesIntersection::computeIntersectionEdges(qe::qePointer<LineSegmentSet>* hiddenPieces) const {
    if (hiddenPieces) *hiddenPieces = nullptr;
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
    // Each edge's pieces go to visible or hidden, the ends of both placed on
    // the grid and taken back to world space alike, so that a hidden piece
    // and the visible one next to it end on the same point.
    const bool withHidden = hiddenPieces != nullptr;
    const auto edgePieces = [&](const tInternal::tEdge& edge, std::vector<RationalInterval>& hidden, Points& visible,
                                Points& hiddenOut) {
        hidden.clear();
        state.computeEdgeOcclusion(edge, hidden);
        SortAndMergeIntervals(hidden);
        if (check::IsValidating()) {
            std::string why;
            CTR_ASSERT_MSG(check::ValidateIntervals(hidden, &why), why.c_str());
        }

        // The parameter now runs between the grid points of the two ends.
        const BakedVertex& g1 = edge.first.point;
        const BakedVertex& g2 = edge.second.point;
        ForEachIntersectionPiece(hidden, withHidden,
                                 [&](bool isHidden, const exact::Fraction& from, const exact::Fraction& to) {
                                     const BakedVertex start = exact::FloorAlong(g1, g2, from);
                                     const BakedVertex end = exact::FloorAlong(g1, g2, to);
                                     // Less than one grid cell on screen: nothing to draw.
                                     if (start.x == end.x && start.y == end.y) return;
                                     Points& out = isHidden ? hiddenOut : visible;
                                     out.push_back(space->gridToWorld(start));
                                     out.push_back(space->gridToWorld(end));
                                 });
    };

    Points points, hiddenPoints;
    if (state.executor) {
        // Each chunk of edges keeps its own pieces, joined in chunk order.
        const std::vector<const tInternal::tEdge*> edgeAt = [&] {
            std::vector<const tInternal::tEdge*> list;
            list.reserve(edges.size());
            for (const tInternal::tEdge& edge : edges) list.push_back(&edge);
            return list;
        }();
        std::vector<Points> chunkPoints(ChunkCount(edgeAt.size(), kEdgesPerChunk));
        std::vector<Points> chunkHidden(chunkPoints.size());
        const bool finished = ForEachChunkInWaves(
            *state.executor, edgeAt.size(), kEdgesPerChunk, kChunksPerWave,
            [&](size_t chunk, size_t begin, size_t end) {
                std::vector<RationalInterval> hidden;
                for (size_t i = begin; i < end; ++i)
                    edgePieces(*edgeAt[i], hidden, chunkPoints[chunk], chunkHidden[chunk]);
            },
            [&](size_t begin, size_t end) {
                if (!notifier) return true;
                for (size_t i = begin; i < end; ++i) notifier->advanceProgress(step);
                return !notifier->shouldCancel();
            });
        if (!finished) return nullptr;
        for (size_t chunk = 0; chunk < chunkPoints.size(); ++chunk) {
            points.insert(points.end(), chunkPoints[chunk].begin(), chunkPoints[chunk].end());
            hiddenPoints.insert(hiddenPoints.end(), chunkHidden[chunk].begin(), chunkHidden[chunk].end());
        }
    } else {
        std::vector<RationalInterval> hidden;
        for (const tInternal::tEdge& edge : edges) {
            if (notifier) {
                notifier->advanceProgress(step);
                if (notifier->shouldCancel()) return nullptr;
            }
            edgePieces(edge, hidden, points, hiddenPoints);
        }
    }

    if (points.empty() && hiddenPoints.empty()) return nullptr;
    if (notifier && notifier->shouldCancel()) return nullptr;
    if (hiddenPieces) *hiddenPieces = MakePieceSet(hiddenPoints);
    return MakePieceSet(points);
}

}  // namespace ctr
