// Baking: BakedTriangles::initialize, from the source meshes to stored grid
// triangles with plane records and a built and refitted hierarchy. Measured
// over a size series of a procedural mesh and on named real models, with the
// hierarchy build alone timed for both split methods side by side.

#include <benchmark/benchmark.h>

#include "BenchScenes.h"
#include "ctr/drawing/ThreadPool.h"

namespace {

using qe::qeLinearGenericBVHBuilder;

void reportBaking(benchmark::State& state, const contour::ImportedModel& model, const ctr::BakedTriangles& baked) {
    const bench::tHierarchyShape shape = bench::MeasureHierarchy(baked);
    state.counters["source_triangles"] = static_cast<double>(model.triangleCount);
    state.counters["baked_triangles"] = static_cast<double>(baked.getTriangleQuantity());
    state.counters["nodes"] = static_cast<double>(shape.nodes);
    state.counters["triangles_per_s"] =
        benchmark::Counter(static_cast<double>(model.triangleCount), benchmark::Counter::kIsIterationInvariantRate);
}

// A fresh object per iteration, as a generator bakes a new cluster: the
// allocation of every list (and the release of the previous object) is part
// of the cost. With threads > 1 the bake runs through a pool of that many
// threads (the calling one included); such runs are timed by the wall clock.
void bakeLoop(benchmark::State& state, const contour::ImportedModel& model, bench::Projection projection,
              unsigned int threads = 1) {
    const ctr::DiscreteProjectionSpace space = bench::MakeFramingSpace(model, projection);
    const std::vector<const qe::qeTriMesh*> meshes = model.meshList();
    contour::ThreadPool pool(threads);
    std::unique_ptr<ctr::BakedTriangles> baked;
    for (auto _ : state) {
        baked = std::make_unique<ctr::BakedTriangles>();
        baked->setProjectionSpace(&space);
        baked->setExecutor(threads > 1 ? &pool : nullptr);
        baked->setMeshes(meshes);
        baked->initialize();
        uint32_t stored = baked->getTriangleQuantity();
        benchmark::DoNotOptimize(stored);
    }
    if (baked) reportBaking(state, model, *baked);
}

// Argument: torus resolution r, 4 r^2 triangles.
void BM_BakeTorus(benchmark::State& state) {
    bakeLoop(state, bench::GetTorus(static_cast<int>(state.range(0))), bench::Projection::kPerspective);
}
// The largest sizes take a second or more per bake: one bake per repetition.
BENCHMARK(BM_BakeTorus)->Arg(32)->Arg(64)->Arg(128)->Arg(256)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BakeTorus)->Arg(512)->Unit(benchmark::kMillisecond)->Iterations(1);

// The same through a pool of two threads.
void BM_BakeTorus2Threads(benchmark::State& state) {
    bakeLoop(state, bench::GetTorus(static_cast<int>(state.range(0))), bench::Projection::kPerspective, 2);
}
BENCHMARK(BM_BakeTorus2Threads)->Arg(32)->Arg(64)->Arg(128)->Arg(256)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BakeTorus2Threads)->Arg(512)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

void BM_BakeModel(benchmark::State& state, const char* path, bench::Projection projection) {
    bakeLoop(state, bench::LoadModel(path), projection);
}
BENCHMARK_CAPTURE(BM_BakeModel, bunny_perspective, bench::kBunny, bench::Projection::kPerspective)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_BakeModel, bunny_orthographic, bench::kBunny, bench::Projection::kOrthographic)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_BakeModel, armadillo_perspective, bench::kArmadillo, bench::Projection::kPerspective)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_BakeModel, igea1m_perspective, bench::kIgea1M, bench::Projection::kPerspective)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

void BM_BakeModel2Threads(benchmark::State& state, const char* path, bench::Projection projection) {
    bakeLoop(state, bench::LoadModel(path), projection, 2);
}
BENCHMARK_CAPTURE(BM_BakeModel2Threads, bunny_perspective, bench::kBunny, bench::Projection::kPerspective)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_BakeModel2Threads, armadillo_perspective, bench::kArmadillo, bench::Projection::kPerspective)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_BakeModel2Threads, igea1m_perspective, bench::kIgea1M, bench::Projection::kPerspective)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime();

// The hierarchy part of baking alone (primitive boxes, build, refit), for
// the default surface-area split and the median split over the same baked
// triangles.
void BM_BuildHierarchy(benchmark::State& state, const char* path, qeLinearGenericBVHBuilder::SplitMethod method) {
    const bench::tBakedScene& source = bench::GetBakedScene(bench::LoadModel(path), bench::Projection::kPerspective,
                                                            qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH);
    ctr::BakedTriangles baked = source.baked;
    bool built = false;
    for (auto _ : state) {
        built = baked.buildHierarchy(method);
        benchmark::DoNotOptimize(built);
    }
    if (!built) state.SkipWithError("the builder refused the triangles");
    const bench::tHierarchyShape shape = bench::MeasureHierarchy(baked);
    state.counters["baked_triangles"] = static_cast<double>(baked.getTriangleQuantity());
    state.counters["nodes"] = static_cast<double>(shape.nodes);
    state.counters["depth"] = static_cast<double>(shape.depth);
}
BENCHMARK_CAPTURE(BM_BuildHierarchy, bunny_sah, bench::kBunny, qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_BuildHierarchy, bunny_median, bench::kBunny, qeLinearGenericBVHBuilder::SPLIT_MEDIAN)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_BuildHierarchy, igea1m_sah, bench::kIgea1M, qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_BuildHierarchy, igea1m_median, bench::kIgea1M, qeLinearGenericBVHBuilder::SPLIT_MEDIAN)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
