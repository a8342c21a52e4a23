// The whole drawing, phase by phase, for the end-to-end benchmark script:
// import, baking, each step of the feature computation, the visible pieces
// and the SVG export, each timed on its own (wall clock, milliseconds). Runs
// the same steps in the same order as GeometricFeaturesGenerator does, so the
// sum of the compute phases is what a host pays for one view.
//
//   drawing_phases [--view NAME] [--perspective] [--threads N] [--runs K]
//                  [--no-allocator-settings]
//                  (MODEL | --icosphere FREQUENCY | --torus RESOLUTION)
//
// --no-allocator-settings leaves the C library's allocator as a host that
// links the library gets it, instead of the contour tool's settings.
//
// Prints one line per run: phase=milliseconds pairs and counts.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <unordered_map>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "qe/qeAttributes.h"
#include "qe/qeIndexBuffer.h"
#include "qe/qePointer.h"
#include "qe/qeVertexBuffer.h"

#include "BenchScenes.h"
#include "ctr/drawing/Camera.h"
#include "ctr/drawing/Drawing.h"
#include "ctr/drawing/ModelImport.h"
#include "ctr/drawing/ThreadPool.h"
#include "ctr/ExportParameters.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/LineSegmentSet.h"
#include "ctr/SVGExporter.h"
#include "generator/GeneratorInternal.h"

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// An icosahedron whose faces are cut into frequency^2 triangles, with every
// vertex pushed onto the unit sphere: 20 * frequency^2 triangles of nearly
// equal size. A vertex is made once from its canonical barycentric key, so
// faces that share it share its bits.
contour::ImportedModel makeIcosphere(int frequency) {
    const double t = (1.0 + std::sqrt(5.0)) / 2.0;
    const double corners[12][3] = {{-1, t, 0},  {1, t, 0},  {-1, -t, 0}, {1, -t, 0}, {0, -1, t},  {0, 1, t},
                                   {0, -1, -t}, {0, 1, -t}, {t, 0, -1},  {t, 0, 1},  {-t, 0, -1}, {-t, 0, 1}};
    const int faces[20][3] = {{0, 11, 5},  {0, 5, 1},  {0, 1, 7},  {0, 7, 10}, {0, 10, 11}, {1, 5, 9}, {5, 11, 4},
                              {11, 10, 2}, {10, 7, 6}, {7, 1, 8},  {3, 9, 4},  {3, 4, 2},   {3, 2, 6}, {3, 6, 8},
                              {3, 8, 9},   {4, 9, 5},  {2, 4, 11}, {6, 2, 10}, {8, 6, 7},   {9, 8, 1}};
    // Keyed by the sorted (corner, weight) pairs packed into 64 bits: a
    // corner is below 16 and a weight at most the frequency.
    std::unordered_map<uint64_t, unsigned int> known;
    std::vector<Wm4::Vector3<float>> positions;
    const auto vertex = [&](const int(&face)[3], int a, int b) {
        const int weights[3] = {frequency - a - b, a, b};
        std::pair<int, int> pairs[3];
        int count = 0;
        for (int k = 0; k < 3; ++k)
            if (weights[k] > 0) pairs[count++] = {face[k], weights[k]};
        // Sorted by corner number: the same point from any face.
        for (int i = 1; i < count; ++i)
            for (int j = i; j > 0 && pairs[j] < pairs[j - 1]; --j) std::swap(pairs[j], pairs[j - 1]);
        uint64_t key = static_cast<uint64_t>(count);
        for (int k = 0; k < count; ++k)
            key = key << 20 | static_cast<uint64_t>(pairs[k].first) << 16 | static_cast<uint64_t>(pairs[k].second);
        const auto found = known.find(key);
        if (found != known.end()) return found->second;
        double p[3] = {0.0, 0.0, 0.0};
        for (int k = 0; k < count; ++k)
            for (int axis = 0; axis < 3; ++axis) p[axis] += corners[pairs[k].first][axis] * pairs[k].second;
        const double length = std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]);
        positions.emplace_back(static_cast<float>(p[0] / length), static_cast<float>(p[1] / length),
                               static_cast<float>(p[2] / length));
        return known.emplace(key, static_cast<unsigned int>(positions.size() - 1)).first->second;
    };
    std::vector<unsigned int> indices;
    for (const auto& face : faces)
        for (int a = 0; a < frequency; ++a)
            for (int b = 0; a + b < frequency; ++b) {
                indices.insert(indices.end(), {vertex(face, a, b), vertex(face, a + 1, b), vertex(face, a, b + 1)});
                if (a + b + 2 <= frequency)
                    indices.insert(indices.end(),
                                   {vertex(face, a + 1, b), vertex(face, a + 1, b + 1), vertex(face, a, b + 1)});
            }
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    attributes.SetNormalChannels(3);
    qe::qePointer<qe::qeVertexBuffer> vertices = new qe::qeVertexBuffer(attributes, static_cast<int>(positions.size()));
    for (size_t i = 0; i < positions.size(); ++i) {
        vertices->Position3(static_cast<int>(i)) = positions[i];
        vertices->Normal3(static_cast<int>(i)) = positions[i];
    }
    qe::qePointer<qe::qeIndexBuffer> buffer =
        new qe::qeIndexBuffer(static_cast<int>(indices.size()), qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    std::copy(indices.begin(), indices.end(), buffer->GetData());
    return bench::ModelOfMesh(vertices, buffer, "icosphere");
}

size_t segments(const qe::qePointer<ctr::LineSegmentSet>& set) {
    return set ? static_cast<size_t>(set->getSegmentQuantity()) : 0;
}

long minorFaults() {
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

int usage() {
    std::fprintf(stderr,
                 "usage: drawing_phases [--view NAME] [--perspective] [--threads N] [--runs K] "
                 "[--no-allocator-settings] (MODEL | --icosphere FREQUENCY | --torus RESOLUTION)\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    contour::CameraOptions cameraOptions;
    cameraOptions.perspective = false;
    unsigned int threads = 1;
    int runs = 1, icosphere = 0, torus = 0;
    std::string model;
    bool allocatorSettings = true;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const bool hasValue = i + 1 < argc;
        if (option == "--view" && hasValue) {
            if (!contour::ParseViewPreset(argv[++i], cameraOptions.view)) return usage();
        } else if (option == "--perspective") {
            cameraOptions.perspective = true;
        } else if (option == "--threads" && hasValue) {
            threads = static_cast<unsigned int>(std::max(1, std::atoi(argv[++i])));
        } else if (option == "--runs" && hasValue) {
            runs = std::max(1, std::atoi(argv[++i]));
        } else if (option == "--no-allocator-settings") {
            allocatorSettings = false;
        } else if (option == "--icosphere" && hasValue) {
            icosphere = std::atoi(argv[++i]);
            if (icosphere > 4096) return usage();
        } else if (option == "--torus" && hasValue) {
            torus = std::atoi(argv[++i]);
        } else if (!option.empty() && option[0] != '-' && model.empty()) {
            model = option;
        } else {
            return usage();
        }
    }
    if (model.empty() && icosphere <= 0 && torus <= 0) return usage();
    // The allocator settings of the contour tool, so that the phases pay
    // for fresh pages as they do there; set before anything large is
    // allocated.
    if (allocatorSettings) contour::KeepLargeBuffersInHeap();

    contour::ThreadPool pool(threads);
    ctr::Executor* executor = threads > 1 ? &pool : nullptr;
    for (int run = 0; run < runs; ++run) {
        std::map<std::string, double> ms;
        contour::ImportedModel scene;
        auto start = Clock::now();
        if (icosphere > 0) {
            scene = makeIcosphere(icosphere);
        } else if (torus > 0) {
            scene = bench::MakeRippledTorus(torus);
        } else {
            std::string error;
            if (!contour::ImportModel(model, scene, error)) {
                std::fprintf(stderr, "drawing_phases: %s\n", error.c_str());
                return 1;
            }
        }
        ms["import"] = millisecondsSince(start);

        const std::vector<const qe::qeTriMesh*> meshes = scene.meshList(), occluders;
        contour::CameraMatrices camera;
        std::string error;
        if (!contour::FrameCamera(meshes, occluders, cameraOptions, 210.0, 297.0, camera, error)) {
            std::fprintf(stderr, "drawing_phases: %s\n", error.c_str());
            return 1;
        }
        const ctr::DiscreteProjectionSpace space = contour::ProjectionSpaceOf(camera);

        // Page faults of the compute phases: each first write of a page costs
        // one, so they show how often the phases' buffers are faulted anew.
        const long faultsBefore = minorFaults();
        ctr::GeometricFeaturesGenerator generator;
        generator.setProjectionSpace(space);
        generator.setExecutor(executor);
        start = Clock::now();
        generator.setSingleExportCluster(meshes, &occluders);
        ms["bake"] = millisecondsSince(start);

        // The steps of computeGeometricFeatures(features, 0, true), one by one.
        const auto& state = generator.getInternal();
        ctr::GeometricFeatures features;
        // Creases and silhouettes run side by side with two threads or more,
        // as computeGeometricFeatures runs them: each is reported with its
        // own time, and compute counts the pair's wall time once.
        start = Clock::now();
        double pairSeconds[2] = {0.0, 0.0};
        state.computeCreasesAndSilhouettes(0, features.creaseEdges, features.silhouetteEdges, pairSeconds);
        const double pairWall = millisecondsSince(start);
        ms["creases"] = 1e3 * pairSeconds[0];
        ms["silhouettes"] = 1e3 * pairSeconds[1];
        start = Clock::now();
        ctr::LineSegmentSet::RemoveCommonSegments(features.creaseEdges, features.silhouetteEdges);
        if (features.creaseEdges && !features.creaseEdges->IBuffer) features.creaseEdges = nullptr;
        ms["common"] = millisecondsSince(start);
        start = Clock::now();
        if (features.creaseEdges) generator.computeOcclusion(*features.creaseEdges, 0);
        if (features.silhouetteEdges) generator.computeOcclusion(*features.silhouetteEdges, 0);
        ms["occlusion"] = millisecondsSince(start);
        start = Clock::now();
        features.intersectionEdges = state.computeIntersectionEdges(0);
        ms["intersections"] = millisecondsSince(start);

        // The exporter bakes the visible pieces itself; they are also timed
        // alone so that the compute figure includes them.
        start = Clock::now();
        for (const qe::qePointer<ctr::LineSegmentSet>* set :
             {&features.creaseEdges, &features.silhouetteEdges, &features.intersectionEdges})
            if (*set) {
                qe::qePointer<ctr::LineSegmentSet> pieces = ctr::LineSegmentSet::BakeVisibleSegments(*set);
                (void)pieces;
            }
        ms["visible"] = millisecondsSince(start);
        const long computeFaults = minorFaults() - faultsBefore;

        start = Clock::now();
        ctr::ExportParameters parameters(space);
        parameters.setPageSizeInMM(Wm4::Vector2<float>(210.0f, 297.0f));
        parameters.computeBestFitTransform();
        ctr::SVGExporter exporter;
        exporter.setExportParameters(parameters);
        if (!exporter.openFile("/dev/null") || !exporter.streamGeometricFeatures(features) || !exporter.closeFile()) {
            std::fprintf(stderr, "drawing_phases: export failed\n");
            return 1;
        }
        ms["export"] = millisecondsSince(start);
        ms["compute"] =
            ms["bake"] + pairWall + ms["common"] + ms["occlusion"] + ms["intersections"] + ms["visible"];

        struct rusage usage {};
        getrusage(RUSAGE_SELF, &usage);
        std::printf("triangles=%zu creaseSegments=%zu silhouetteSegments=%zu intersectionSegments=%zu",
                    scene.triangleCount, segments(features.creaseEdges), segments(features.silhouetteEdges),
                    segments(features.intersectionEdges));
        for (const auto& [phase, value] : ms) std::printf(" %s=%.3f", phase.c_str(), value);
        std::printf(" computeFaults=%ld peakRssMiB=%.1f\n", computeFaults, static_cast<double>(usage.ru_maxrss) / 1024.0);
        std::fflush(stdout);
    }
    return 0;
}
