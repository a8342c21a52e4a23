#include <string>
#include <vector>

#include "check/Check.h"
#include "check/Validate.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "generator/GeneratorInternal.h"
#include "parallel/Chunks.h"
#include "visibility/IntervalMerge.h"

namespace ctr {

namespace {

const RationalInterval kWholeSegment{0, 1, 1, 1};

// Chunks of a few hundred microseconds each; a wave keeps cancellation
// within a few milliseconds of the request.
constexpr size_t kSegmentsPerChunk = 256;
constexpr size_t kChunksPerWave = 32;

// A host may have stored intervals of its own in the set, and the merge
// takes them as they come, meaningful or not: the merged list is held to the
// invariants only when the list it started from met them.
void validateMerged(const std::vector<RationalInterval>& before, const std::vector<RationalInterval>& merged) {
    if (!check::ValidateIntervals(before, nullptr)) return;
    std::string why;
    CTR_ASSERT_MSG(check::ValidateIntervals(merged, &why), why.c_str());
}

}  // namespace

void GeometricFeaturesGenerator::computeOcclusion(LineSegmentSet& set, unsigned int cluster) {
    tInternal& state = *internal;
    if (cluster >= state.bakedTriangles.size()) return;
    if (!set.VBuffer || !set.IBuffer) return;
    const qe::qeVertexBuffer& vertices = *set.VBuffer;
    const unsigned int* indices = set.IBuffer->GetData();
    const size_t segmentCount = static_cast<size_t>(set.IBuffer->GetIndexQuantity()) >> 1;

    if (set.segmentClips.size() != segmentCount) set.segmentClips.assign(segmentCount, {0.0f, 0.0f, 0.0f, 0.0f});
    if (set.occlusionIntervals.size() != segmentCount) {
        set.occlusionIntervals.clear();
        set.occlusionIntervals.resize(segmentCount);
    }
    if (segmentCount == 0) return;

    // Without positions no index names a vertex.
    const unsigned int vertexCount =
        vertices.GetAttributes().HasPosition() ? static_cast<unsigned int>(vertices.GetVertexQuantity()) : 0u;
    const DiscreteProjectionSpace& space = state.projectionSpace;
    const BakedTriangles& baked = state.bakedTriangles[cluster];
    const BakedTriangles& occluders = state.occluderTriangles[cluster];
    qe::qeProgressNotifierInterface* notifier = state.progressNotifier;

    const auto occlude = [&](size_t i, std::vector<RationalInterval>& work) {
        const unsigned int indexA = indices[2 * i];
        const unsigned int indexB = indices[2 * i + 1];
        if (indexA >= vertexCount || indexB >= vertexCount) {
            // Nothing to draw: treated like a segment out of view.
            set.segmentClips[i] = {1.0f, 0.0f, 0.0f, 0.0f};
            set.occlusionIntervals[i].assign(1, kWholeSegment);
            return;
        }
        const Wm4::Vector3<float> worldA = set.World.ApplyForward(vertices.Position3(static_cast<int>(indexA)), true);
        const Wm4::Vector3<float> worldB = set.World.ApplyForward(vertices.Position3(static_cast<int>(indexB)), true);
        // The clipper leaves w untouched for a rejected edge; zero is stored.
        float wA = 0.0f;
        float wB = 0.0f;
        BakedVertex bakedA{0, 0, 0};
        BakedVertex bakedB{0, 0, 0};
        const std::pair<float, float> t = space.clipEdgeWorld(worldA, worldB, bakedA, bakedB, wA, wB);
        set.segmentClips[i] = {t.first, t.second, wA, wB};

        // Also true for NaN parameters: an edge the clipper cannot place is
        // not drawn.
        if (!(t.first < t.second) || (bakedA.x == bakedB.x && bakedA.y == bakedB.y)) {
            set.occlusionIntervals[i].assign(1, kWholeSegment);
            return;
        }
        work.assign(set.occlusionIntervals[i].begin(), set.occlusionIntervals[i].end());
        baked.computeOcclusionIntervals(bakedA, bakedB, work);
        occluders.computeOcclusionIntervals(bakedA, bakedB, work);
        SortAndMergeIntervals(work);
        if (check::IsValidating()) validateMerged(set.occlusionIntervals[i], work);
        set.occlusionIntervals[i].assign(work.begin(), work.end());
    };

    if (state.executor) {
        // Segments are independent; the notifier hears from the calling
        // thread between waves, with the same advance per segment.
        ForEachChunkInWaves(
            *state.executor, segmentCount, kSegmentsPerChunk, kChunksPerWave,
            [&](size_t, size_t begin, size_t end) {
                std::vector<RationalInterval> work;
                for (size_t i = begin; i < end; ++i) occlude(i, work);
            },
            [&](size_t begin, size_t end) {
                if (!notifier) return true;
                for (size_t i = begin; i < end; ++i) notifier->advanceProgress(1.0);
                return !notifier->shouldCancel();
            });
        return;
    }
    std::vector<RationalInterval> work;
    for (size_t i = 0; i < segmentCount; ++i) {
        if (notifier) {
            if (notifier->shouldCancel()) return;
            notifier->advanceProgress(1.0);
        }
        occlude(i, work);
    }
}

}  // namespace ctr
