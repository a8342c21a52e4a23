// Intersection lines behind the hide-only meshes of a cluster. The lines come
// out of the intersection search as world-space pieces without occlusion
// data; here they are treated like crease segments facing the occluders
// alone, and cut with the bakers of visible and hidden pieces.

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "check/Check.h"
#include "check/Validate.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/SheetLines.h"
#include "generator/GeneratorInternal.h"
#include "lines/Placement.h"
#include "parallel/Chunks.h"
#include "visibility/IntervalMerge.h"

namespace ctr {

namespace {

// Pieces are short and the occluders few; chunks of this size keep the
// per-task overhead small against the queries.
constexpr size_t kSegmentsPerChunk = 256;
constexpr size_t kChunksPerWave = 32;

// The whole segment, with no perspective to undo: a segment that keeps it
// and no hidden interval is copied by the baker with its own end points.
constexpr LineSegmentSet::tSegmentClip kUncut{0.0f, 1.0f, 1.0f, 1.0f};

}  // namespace

bool GeometricFeaturesGenerator::hideIntersectionsBehindOccluders(
    GeometricFeatures& features, unsigned int cluster, qe::qePointer<LineSegmentSet>* hiddenIntersectionEdges) {
    const tInternal& state = *internal;
    if (cluster >= state.occluderTriangles.size()) return true;
    const BakedTriangles& occluders = state.occluderTriangles[cluster];
    const LineSegmentSet* source = features.intersectionEdges;
    if (occluders.getTriangleQuantity() == 0 || !source || !source->VBuffer || !source->IBuffer) return true;
    const qe::qeVertexBuffer& vertices = *source->VBuffer;
    if (!vertices.GetAttributes().HasPosition()) return true;
    const unsigned int vertexCount = static_cast<unsigned int>(vertices.GetVertexQuantity());
    const unsigned int* indices = source->IBuffer->GetData();
    const size_t segmentCount = static_cast<size_t>(source->getSegmentQuantity());
    if (segmentCount == 0) return true;

    // The occlusion goes into a set of its own over the same buffers, so
    // that the caller's set is untouched until the step is through.
    qe::qePointer<LineSegmentSet> work = new LineSegmentSet;
    work->VBuffer = source->VBuffer;
    work->IBuffer = source->IBuffer;
    CopyPlacement(*source, *work);
    work->segmentClips.assign(segmentCount, kUncut);
    work->occlusionIntervals.resize(segmentCount);

    const DiscreteProjectionSpace& space = state.projectionSpace;
    // One flag per chunk, so that no two threads write the same word.
    std::vector<char> chunkHides(ChunkCount(segmentCount, kSegmentsPerChunk), 0);
    const auto occlude = [&](size_t chunk, size_t begin, size_t end) {
        std::vector<RationalInterval> list;
        for (size_t i = begin; i < end; ++i) {
            const unsigned int indexA = indices[2 * i];
            const unsigned int indexB = indices[2 * i + 1];
            if (indexA >= vertexCount || indexB >= vertexCount) continue;
            const Wm4::Vector3<float> worldA =
                source->World.ApplyForward(vertices.Position3(static_cast<int>(indexA)), true);
            const Wm4::Vector3<float> worldB =
                source->World.ApplyForward(vertices.Position3(static_cast<int>(indexB)), true);
            float wA = 0.0f, wB = 0.0f;
            BakedVertex bakedA{0, 0, 0}, bakedB{0, 0, 0};
            const std::pair<float, float> t = space.clipEdgeWorld(worldA, worldB, bakedA, bakedB, wA, wB);
            // Every piece was in view and longer than a grid cell when it was
            // made; one that no longer is has only met round-off, and the
            // occluders have no say on it.
            if (!(t.first < t.second) || (bakedA.x == bakedB.x && bakedA.y == bakedB.y)) continue;
            list.clear();
            occluders.computeOcclusionIntervals(bakedA, bakedB, list);
            if (list.empty()) continue;
            SortAndMergeIntervals(list);
            if (check::IsValidating()) {
                std::string why;
                CTR_ASSERT_MSG(check::ValidateIntervals(list, &why), why.c_str());
            }
            work->segmentClips[i] = {t.first, t.second, wA, wB};
            work->occlusionIntervals[i] = list;
            chunkHides[chunk] = 1;
        }
    };

    qe::qeProgressNotifierInterface* notifier = state.progressNotifier;
    if (state.executor) {
        const bool finished =
            ForEachChunkInWaves(*state.executor, segmentCount, kSegmentsPerChunk, kChunksPerWave, occlude,
                                [&](size_t, size_t) { return !notifier || !notifier->shouldCancel(); });
        if (!finished) return false;
    } else {
        for (size_t chunk = 0; chunk < chunkHides.size(); ++chunk) {
            if (notifier && notifier->shouldCancel()) return false;
            const size_t begin = chunk * kSegmentsPerChunk;
            occlude(chunk, begin, std::min(segmentCount, begin + kSegmentsPerChunk));
        }
    }
    bool hides = false;
    for (char flag : chunkHides) hides = hides || flag != 0;
    if (!hides) return true;

    qe::qePointer<LineSegmentSet> covered = hiddenIntersectionEdges ? BakeHiddenSegments(work) : nullptr;
    features.intersectionEdges = LineSegmentSet::BakeVisibleSegments(work);
    if (!covered) return true;
    if (!*hiddenIntersectionEdges) {
        *hiddenIntersectionEdges = covered;
        return true;
    }
    qe::qePointer<LineSegmentSet> joined = LineSegmentSet::FuseLineSegmentSets({*hiddenIntersectionEdges, covered});
    // Pieces, not segments waiting to be cut: no occlusion data, like the
    // sets they were joined from.
    if (joined) joined->occlusionIntervals.clear();
    *hiddenIntersectionEdges = joined;
    return true;
}

}  // namespace ctr
