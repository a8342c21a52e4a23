// Feature lines: crease extraction and the occlusion of the crease set.
// Extraction is timed as the feature computation runs it (every mesh of the
// cluster, then the per-mesh sets fused into one world-space set), and in its
// parts: LineSegmentSet::GetCreaseEdgesFromTriMesh over the model's meshes
// and FuseLineSegmentSets over their ready sets. Occlusion is
// GeometricFeaturesGenerator::computeOcclusion of the fused set against the
// cluster it came from, under the framing perspective camera.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include <benchmark/benchmark.h>

#include "qe/qeCancelInterface.h"

#include "BenchMain.h"
#include "BenchScenes.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/LineSegmentSet.h"
#include "generator/GeneratorInternal.h"

namespace {

// Passes take from microseconds (fusion) to 0.6 s (igea 1M extraction, one
// iteration per repetition): a short minimum keeps the program under a minute.
constexpr double kMinTime = 0.2;
// The angle the feature computation uses, so that the per-mesh figures and
// the cluster figures extract the same edges.
constexpr float kCreaseAngleDegrees = 5.0f;

constexpr const char* kFandisk = "cad/fandisk.obj";
constexpr const char* kBoxHoles = "cad-brep/box_holes.obj";

// A generator whose cluster 0 is the whole model, baked under the framing
// perspective camera, with the cluster's crease set as the feature
// computation makes it. Made once per model and never moved: the generator
// borrows the model's meshes.
struct tLineScene {
    const contour::ImportedModel* model = nullptr;
    ctr::GeometricFeaturesGenerator generator;
    qe::qePointer<ctr::LineSegmentSet> creases;
};

tLineScene& GetLineScene(const char* path) {
    static std::map<std::string, std::unique_ptr<tLineScene>> cache;
    std::unique_ptr<tLineScene>& slot = cache[path];
    if (slot) return *slot;
    const contour::ImportedModel& model = bench::LoadModel(path);
    // Extraction reads stored normals only; a mesh without them yields no
    // crease and would make every figure below meaningless.
    for (const qe::qePointer<qe::qeTriMesh>& mesh : model.meshes) {
        if (!mesh->VBuffer->GetAttributes().HasNormal()) {
            std::fprintf(stderr, "benchmark model %s has no vertex normals\n", path);
            std::exit(1);
        }
    }
    slot = std::make_unique<tLineScene>();
    slot->model = &model;
    slot->generator.setProjectionSpace(
        bench::MakeFramingSpace(model, bench::Projection::kPerspective));
    slot->generator.setSingleExportCluster(model.meshList(), nullptr);
    bench::RequireValid(slot->generator.getBakedTriangles(0));
    slot->creases = slot->generator.getInternal().computeCreaseEdges(0);
    return *slot;
}

size_t CountSegments(const std::vector<qe::qePointer<ctr::LineSegmentSet>>& sets) {
    size_t segments = 0;
    for (const qe::qePointer<ctr::LineSegmentSet>& set : sets)
        if (set) segments += static_cast<size_t>(set->getSegmentQuantity());
    return segments;
}

// An edge whose two sides have split vertices is emitted once per side, so
// the set holds it twice over different indices; this counts end-position
// pairs instead.
size_t CountDistinctSegments(const ctr::LineSegmentSet& set) {
    std::vector<std::array<uint32_t, 6>> keys(static_cast<size_t>(set.getSegmentQuantity()));
    const unsigned int* indices = set.IBuffer->GetData();
    for (size_t s = 0; s < keys.size(); ++s) {
        std::array<uint32_t, 3> ends[2];
        for (int k = 0; k < 2; ++k)
            std::memcpy(ends[k].data(),
                        static_cast<const float*>(set.VBuffer->Position3(static_cast<int>(indices[2 * s + k]))),
                        sizeof ends[k]);
        if (ends[1] < ends[0]) std::swap(ends[0], ends[1]);
        std::copy(ends[0].begin(), ends[0].end(), keys[s].begin());
        std::copy(ends[1].begin(), ends[1].end(), keys[s].begin() + 3);
    }
    std::sort(keys.begin(), keys.end());
    return static_cast<size_t>(std::unique(keys.begin(), keys.end()) - keys.begin());
}

void reportExtraction(benchmark::State& state, const tLineScene& scene, size_t segments) {
    state.counters["triangles"] = static_cast<double>(scene.model->triangleCount);
    state.counters["meshes"] = static_cast<double>(scene.model->meshes.size());
    state.counters["crease_segments"] = static_cast<double>(segments);
    state.counters["triangles_per_s"] = benchmark::Counter(static_cast<double>(scene.model->triangleCount),
                                                           benchmark::Counter::kIsIterationInvariantRate);
}

// The cluster's fused crease set, as the feature computation makes it. The
// previous iteration's set is released inside the loop, as a caller that
// recomputes the lines releases the old ones.
void BM_ClusterCreases(benchmark::State& state, const char* path) {
    const tLineScene& scene = GetLineScene(path);
    if (!scene.creases) {
        state.SkipWithError("the cluster has no crease edge");
        return;
    }
    qe::qePointer<ctr::LineSegmentSet> fused;
    for (auto _ : state) {
        fused = scene.generator.getInternal().computeCreaseEdges(0);
        benchmark::DoNotOptimize(fused.get());
    }
    reportExtraction(state, scene, fused ? static_cast<size_t>(fused->getSegmentQuantity()) : 0u);
    if (fused) {
        state.counters["fused_vertices"] = static_cast<double>(fused->VBuffer->GetVertexQuantity());
        state.counters["distinct_segments"] = static_cast<double>(CountDistinctSegments(*fused));
    }
}

// GetCreaseEdgesFromTriMesh alone, for each mesh of the model (one mesh for
// the scanned models): the cluster figure less this one is the fusion.
void BM_MeshCreases(benchmark::State& state, const char* path) {
    const tLineScene& scene = GetLineScene(path);
    const bool neverCancelled = false;
    const qe::qeCancelInterfaceProxyReadOnly cancel(neverCancelled);
    std::vector<qe::qePointer<ctr::LineSegmentSet>> sets(scene.model->meshes.size());
    for (auto _ : state) {
        for (size_t m = 0; m < sets.size(); ++m) {
            sets[m] = ctr::LineSegmentSet::GetCreaseEdgesFromTriMesh(scene.model->meshes[m], cancel,
                                                                     kCreaseAngleDegrees, false);
            benchmark::DoNotOptimize(sets[m].get());
        }
    }
    const size_t segments = CountSegments(sets);
    if (!scene.creases || segments != static_cast<size_t>(scene.creases->getSegmentQuantity()))
        state.SkipWithError("per-mesh crease count differs from the cluster's fused set");
    reportExtraction(state, scene, segments);
}

// FuseLineSegmentSets over the model's ready per-mesh sets. It copies every
// vertex of every mesh, not only the crease ends, so its cost follows the
// vertex count.
void BM_FuseCreases(benchmark::State& state, const char* path) {
    const tLineScene& scene = GetLineScene(path);
    const bool neverCancelled = false;
    const qe::qeCancelInterfaceProxyReadOnly cancel(neverCancelled);
    std::vector<qe::qePointer<ctr::LineSegmentSet>> owned;
    std::vector<ctr::LineSegmentSet*> sets;
    for (const qe::qePointer<qe::qeTriMesh>& mesh : scene.model->meshes) {
        owned.push_back(ctr::LineSegmentSet::GetCreaseEdgesFromTriMesh(mesh, cancel, kCreaseAngleDegrees, false));
        sets.push_back(owned.back());
    }
    qe::qePointer<ctr::LineSegmentSet> fused;
    for (auto _ : state) {
        fused = ctr::LineSegmentSet::FuseLineSegmentSets(sets);
        benchmark::DoNotOptimize(fused.get());
    }
    reportExtraction(state, scene, CountSegments(owned));
    state.counters["fused_vertices"] = fused ? static_cast<double>(fused->VBuffer->GetVertexQuantity()) : 0.0;
}

// Visibility of segments after one occlusion pass: hidden intervals are
// merged, so a wholly hidden segment holds one interval from 0 (or before)
// to 1 (or beyond).
struct tVisibility {
    size_t visible = 0;
    size_t partly = 0;
    size_t hidden = 0;
    size_t intervals = 0;
};

tVisibility ClassifySegments(const ctr::LineSegmentSet& set) {
    tVisibility counts;
    for (const std::vector<ctr::RationalInterval>& list : set.occlusionIntervals) {
        counts.intervals += list.size();
        if (list.empty())
            ++counts.visible;
        else if (list.size() == 1 && list[0].startNumerator <= 0 && list[0].endNumerator >= list[0].endDenominator)
            ++counts.hidden;
        else
            ++counts.partly;
    }
    return counts;
}

// computeOcclusion merges with intervals already in the set, so every pass
// starts from a set emptied of the previous pass's results. Emptying it
// outside the timed region leaves the allocation of the per-segment lists in
// it, as on a set that has never been through occlusion.
void BM_CreaseOcclusion(benchmark::State& state, const char* path) {
    tLineScene& scene = GetLineScene(path);
    if (!scene.creases) {
        state.SkipWithError("the cluster has no crease edge");
        return;
    }
    ctr::LineSegmentSet& set = *scene.creases;
    for (auto _ : state) {
        state.PauseTiming();
        set.occlusionIntervals.clear();
        set.segmentClips.clear();
        state.ResumeTiming();
        scene.generator.computeOcclusion(set, 0);
        benchmark::DoNotOptimize(set.occlusionIntervals.data());
    }
    const double segments = static_cast<double>(set.getSegmentQuantity());
    const tVisibility counts = ClassifySegments(set);
    state.counters["triangles"] = static_cast<double>(scene.model->triangleCount);
    state.counters["crease_segments"] = segments;
    state.counters["segments_per_s"] = benchmark::Counter(segments, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["visible"] = static_cast<double>(counts.visible);
    state.counters["partly"] = static_cast<double>(counts.partly);
    state.counters["hidden"] = static_cast<double>(counts.hidden);
    state.counters["intervals_per_segment"] = static_cast<double>(counts.intervals) / segments;
}

void registerAll() {
    bench::RegisterGrid(
        {{"BM_ClusterCreases", BM_ClusterCreases},
         {"BM_MeshCreases", BM_MeshCreases},
         {"BM_FuseCreases", BM_FuseCreases},
         {"BM_CreaseOcclusion", BM_CreaseOcclusion}},
        {{"box_holes", kBoxHoles}, {"fandisk", kFandisk}, {"bunny", bench::kBunny}, {"igea1m", bench::kIgea1M}},
        kMinTime);
}

}  // namespace

int main(int argc, char** argv) {
    registerAll();
    return bench::RunBenchmarks(argc, argv);
}
