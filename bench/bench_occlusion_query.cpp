// Occlusion query: BakedTriangles::computeOcclusionIntervals, edge against
// the baked hierarchy. The edges are those the later stages hand it: mesh
// edges taken through DiscreteProjectionSpace::clipEdgeWorld (each query is
// made against the model that the edge belongs to, as feature edges are),
// and random edges through the model's volume for contrast. The default
// surface-area hierarchy is timed side by side with a median-split one built
// over the same baked triangles.

#include <benchmark/benchmark.h>

#include "BenchMain.h"
#include "BenchScenes.h"

namespace {

using qe::qeLinearGenericBVHBuilder;

// Every iteration queries the same sample in the same order, so that the
// rates of two hierarchies over one model are measured on identical work.
constexpr size_t kSampleSize = 16384;
// A pass over the sample takes 5 ms to 1.5 s; a short minimum keeps the
// whole program near a minute with five repetitions.
constexpr double kMinTime = 0.2;
constexpr uint32_t kMeshEdgeSeed = 7;
constexpr uint32_t kRandomEdgeSeed = 11;
// Random edges are at most this fraction of the model box's diagonal long.
constexpr float kRandomEdgeLength = 0.1f;

enum class EdgeKind { kMesh, kRandom };

const std::vector<bench::tGridEdge>& getEdgeSample(const contour::ImportedModel& model, bench::Projection projection,
                                                   EdgeKind kind) {
    using tKey = std::tuple<const contour::ImportedModel*, bench::Projection, EdgeKind>;
    static std::map<tKey, std::vector<bench::tGridEdge>> cache;
    const tKey key(&model, projection, kind);
    const auto found = cache.find(key);
    if (found != cache.end()) return found->second;
    const ctr::DiscreteProjectionSpace& space =
        bench::GetBakedScene(model, projection, qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH).space;
    std::vector<bench::tWorldEdge> world =
        kind == EdgeKind::kMesh
            ? bench::CollectMeshEdges(model, kMeshEdgeSeed)
            : bench::MakeRandomEdges(bench::ComputeWorldBox(model), kSampleSize, kRandomEdgeLength, kRandomEdgeSeed);
    if (world.size() > kSampleSize) world.resize(kSampleSize);
    return cache[key] = bench::ProjectEdges(space, world);
}

void queryLoop(benchmark::State& state, const contour::ImportedModel& model, bench::Projection projection,
               EdgeKind kind, qeLinearGenericBVHBuilder::SplitMethod method) {
    const bench::tBakedScene& scene = bench::GetBakedScene(model, projection, method);
    const std::vector<bench::tGridEdge>& edges = getEdgeSample(model, projection, kind);
    if (edges.empty()) {
        state.SkipWithError("no edge of the sample is in view");
        return;
    }
    std::vector<ctr::RationalInterval> list;
    size_t intervals = 0;
    for (auto _ : state) {
        for (const bench::tGridEdge& edge : edges) {
            list.clear();
            scene.baked.computeOcclusionIntervals(edge.a, edge.b, list);
            intervals += list.size();
        }
        benchmark::DoNotOptimize(intervals);
    }
    const bench::tHierarchyShape shape = bench::MeasureHierarchy(scene.baked);
    const double queries = static_cast<double>(edges.size());
    state.counters["queries_per_s"] = benchmark::Counter(queries, benchmark::Counter::kIsIterationInvariantRate);
    state.counters["intervals_per_query"] =
        static_cast<double>(intervals) / (queries * static_cast<double>(state.iterations()));
    state.counters["baked_triangles"] = static_cast<double>(scene.baked.getTriangleQuantity());
    state.counters["nodes"] = static_cast<double>(shape.nodes);
    state.counters["leaves"] = static_cast<double>(shape.leaves);
    state.counters["depth"] = static_cast<double>(shape.depth);
}

void registerAll() {
    // Size series: mesh edges of the rippled torus, 4 r^2 triangles.
    for (const int resolution : {32, 64, 128, 256, 512}) {
        const std::string name = "BM_QueryTorus/" + std::to_string(resolution);
        benchmark::RegisterBenchmark(name.c_str(),
                                     [resolution](benchmark::State& state) {
                                         queryLoop(state, bench::GetTorus(resolution), bench::Projection::kPerspective,
                                                   EdgeKind::kMesh, qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH);
                                     })
            ->Unit(benchmark::kMillisecond)
            ->MinTime(kMinTime);
    }

    const std::pair<const char*, const char*> models[] = {
        {"bunny", bench::kBunny}, {"armadillo", bench::kArmadillo}, {"igea1m", bench::kIgea1M}};
    const std::pair<const char*, EdgeKind> kinds[] = {{"mesh_edges", EdgeKind::kMesh},
                                                      {"random_edges", EdgeKind::kRandom}};
    const std::pair<const char*, qeLinearGenericBVHBuilder::SplitMethod> methods[] = {
        {"sah", qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH}, {"median", qeLinearGenericBVHBuilder::SPLIT_MEDIAN}};
    for (const auto& [modelName, path] : models) {
        for (const auto& [kindName, kind] : kinds) {
            for (const auto& [methodName, method] : methods) {
                const std::string name =
                    std::string("BM_Query/") + modelName + "/" + kindName + "/" + methodName + "/perspective";
                benchmark::RegisterBenchmark(name.c_str(),
                                             [path = path, kind = kind, method = method](benchmark::State& state) {
                                                 queryLoop(state, bench::LoadModel(path),
                                                           bench::Projection::kPerspective, kind, method);
                                             })
                    ->Unit(benchmark::kMillisecond)
                    ->MinTime(kMinTime);
            }
        }
        const std::string name = std::string("BM_Query/") + modelName + "/mesh_edges/sah/orthographic";
        benchmark::RegisterBenchmark(name.c_str(),
                                     [path = path](benchmark::State& state) {
                                         queryLoop(state, bench::LoadModel(path), bench::Projection::kOrthographic,
                                                   EdgeKind::kMesh, qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH);
                                     })
            ->Unit(benchmark::kMillisecond)
            ->MinTime(kMinTime);
    }
}

}  // namespace

int main(int argc, char** argv) {
    registerAll();
    return bench::RunBenchmarks(argc, argv);
}
