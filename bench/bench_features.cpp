// The whole feature computation of a cluster and each of its steps:
// crease extraction, silhouette extraction, removal of creases that the
// silhouettes repeat, occlusion of both sets, and the intersection lines
// (search, their occlusion and the visible pieces), under the framing
// perspective camera.

#include <map>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "BenchMain.h"
#include "BenchScenes.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/LineSegmentSet.h"
#include "generator/GeneratorInternal.h"

namespace {

constexpr double kMinTime = 0.2;

struct tFeatureScene {
    ctr::GeometricFeaturesGenerator generator;
    qe::qePointer<ctr::LineSegmentSet> creases;
    qe::qePointer<ctr::LineSegmentSet> silhouettes;
};

// Made once per model; the generator borrows the model's meshes, which the
// loader keeps for the program's lifetime.
tFeatureScene& GetScene(const std::string& path) {
    static std::map<std::string, std::unique_ptr<tFeatureScene>> cache;
    std::unique_ptr<tFeatureScene>& slot = cache[path];
    if (slot) return *slot;
    const contour::ImportedModel& model = bench::LoadModel(path);
    slot = std::make_unique<tFeatureScene>();
    slot->generator.setProjectionSpace(
        bench::MakeFramingSpace(model, bench::Projection::kPerspective));
    slot->generator.setSingleExportCluster(model.meshList(), nullptr);
    bench::RequireValid(slot->generator.getBakedTriangles(0));
    slot->creases = slot->generator.getInternal().computeCreaseEdges(0);
    slot->silhouettes = slot->generator.getInternal().computeSilhouetteEdges(0);
    return *slot;
}

// A copy of a set that the timed step may change (buffers shared, index
// buffer copied, since removal compacts it in place).
qe::qePointer<ctr::LineSegmentSet> Copy(const qe::qePointer<ctr::LineSegmentSet>& source) {
    if (!source) return nullptr;
    const ctr::LineSegmentSet& set = *source;
    qe::qeRttiInterface* clone = nullptr;
    set.Clone(clone);
    qe::qePointer<ctr::LineSegmentSet> copy = static_cast<ctr::LineSegmentSet*>(clone);
    qe::qeRttiInterface* indices = nullptr;
    set.IBuffer->Clone(indices);
    copy->IBuffer = static_cast<qe::qeIndexBuffer*>(indices);
    copy->occlusionIntervals.clear();
    copy->segmentClips.clear();
    return copy;
}

void SetCounters(benchmark::State& state, const tFeatureScene& scene) {
    state.counters["triangles"] = scene.generator.getInternal().bakedTriangles[0].getTriangleQuantity();
    state.counters["creases"] = scene.creases ? scene.creases->getSegmentQuantity() : 0;
    state.counters["silhouettes"] = scene.silhouettes ? scene.silhouettes->getSegmentQuantity() : 0;
}

void BM_Creases(benchmark::State& state, const char* path) {
    tFeatureScene& scene = GetScene(path);
    for (auto _ : state) {
        qe::qePointer<ctr::LineSegmentSet> set = scene.generator.getInternal().computeCreaseEdges(0);
        benchmark::DoNotOptimize(set.get());
    }
    SetCounters(state, scene);
}

void BM_Silhouettes(benchmark::State& state, const char* path) {
    tFeatureScene& scene = GetScene(path);
    for (auto _ : state) {
        qe::qePointer<ctr::LineSegmentSet> set = scene.generator.getInternal().computeSilhouetteEdges(0);
        benchmark::DoNotOptimize(set.get());
    }
    SetCounters(state, scene);
}

void BM_RemoveCommon(benchmark::State& state, const char* path) {
    tFeatureScene& scene = GetScene(path);
    size_t kept = 0;
    for (auto _ : state) {
        state.PauseTiming();
        qe::qePointer<ctr::LineSegmentSet> creases = Copy(scene.creases);
        state.ResumeTiming();
        ctr::LineSegmentSet::RemoveCommonSegments(creases, scene.silhouettes);
        kept = creases && creases->IBuffer ? static_cast<size_t>(creases->getSegmentQuantity()) : 0;
    }
    SetCounters(state, scene);
    state.counters["creases_kept"] = static_cast<double>(kept);
}

void BM_Occlusion(benchmark::State& state, const char* path) {
    tFeatureScene& scene = GetScene(path);
    for (auto _ : state) {
        state.PauseTiming();
        qe::qePointer<ctr::LineSegmentSet> creases = Copy(scene.creases);
        qe::qePointer<ctr::LineSegmentSet> silhouettes = Copy(scene.silhouettes);
        state.ResumeTiming();
        if (creases) scene.generator.computeOcclusion(*creases, 0);
        if (silhouettes) scene.generator.computeOcclusion(*silhouettes, 0);
    }
    SetCounters(state, scene);
    const double segments = (scene.creases ? scene.creases->getSegmentQuantity() : 0) +
                            (scene.silhouettes ? scene.silhouettes->getSegmentQuantity() : 0);
    state.counters["segments_per_s"] = benchmark::Counter(segments, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_Intersections(benchmark::State& state, const char* path) {
    tFeatureScene& scene = GetScene(path);
    size_t pieces = 0;
    for (auto _ : state) {
        qe::qePointer<ctr::LineSegmentSet> set = scene.generator.getInternal().computeIntersectionEdges(0);
        pieces = set ? static_cast<size_t>(set->getSegmentQuantity()) : 0;
    }
    SetCounters(state, scene);
    state.counters["pieces"] = static_cast<double>(pieces);
}

void BM_AllFeatures(benchmark::State& state, const char* path) {
    tFeatureScene& scene = GetScene(path);
    for (auto _ : state) {
        ctr::GeometricFeatures features;
        scene.generator.computeGeometricFeatures(features, 0, true);
        benchmark::DoNotOptimize(features.creaseEdges.get());
    }
    SetCounters(state, scene);
}

void RegisterAll() {
    bench::RegisterGrid(
        {{"BM_Creases", BM_Creases},
         {"BM_Silhouettes", BM_Silhouettes},
         {"BM_RemoveCommon", BM_RemoveCommon},
         {"BM_Occlusion", BM_Occlusion},
         {"BM_Intersections", BM_Intersections},
         {"BM_AllFeatures", BM_AllFeatures}},
        {{"bunny", bench::kBunny}, {"two_balls", "scenes/two_balls_intersecting.obj"}, {"igea1m", bench::kIgea1M}},
        kMinTime);
}

}  // namespace

int main(int argc, char** argv) {
    RegisterAll();
    return bench::RunBenchmarks(argc, argv);
}
