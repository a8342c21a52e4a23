// Parallel runs must give what the calling thread alone gives: the same line
// sets to the bit and the same file bytes, whatever the number of threads.
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DemoScene.h"
#include "Drawing.h"
#include "ModelImport.h"
#include "TestSupport.h"
#include "ThreadPool.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "generator/GeneratorInternal.h"

namespace {

TEST(Parallel, PoolRunsEveryIndexOnceLoopAfterLoop) {
    // Many short loops in a row: a worker that wakes late for one loop must
    // neither run an index of the next nor miss one.
    contour::ThreadPool pool(3);
    ASSERT_EQ(pool.threadCount(), 3u);
    for (size_t loop = 0; loop < 300; ++loop) {
        const size_t count = 1 + loop % 17;
        std::vector<std::atomic<int>> calls(count);
        pool.parallelFor(count, [&](size_t i) { calls[i].fetch_add(1); });
        for (size_t i = 0; i < count; ++i) ASSERT_EQ(calls[i].load(), 1) << "loop " << loop << " index " << i;
    }
    pool.parallelFor(0, [](size_t) { FAIL(); });
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Bit-for-bit equality of two sets: positions, indices, clips and intervals.
void ExpectSameSet(const qe::qePointer<ctr::LineSegmentSet>& a, const qe::qePointer<ctr::LineSegmentSet>& b,
                   const char* kind) {
    ASSERT_EQ(a == nullptr, b == nullptr) << kind;
    if (!a) return;
    ASSERT_EQ(a->VBuffer->GetVertexQuantity(), b->VBuffer->GetVertexQuantity()) << kind;
    ASSERT_EQ(a->IBuffer->GetIndexQuantity(), b->IBuffer->GetIndexQuantity()) << kind;
    for (int i = 0; i < a->VBuffer->GetVertexQuantity(); ++i)
        ASSERT_EQ(std::memcmp(&a->VBuffer->Position3(i), &b->VBuffer->Position3(i), sizeof(float) * 3), 0) << kind;
    ASSERT_EQ(std::memcmp(a->IBuffer->GetData(), b->IBuffer->GetData(),
                          sizeof(unsigned int) * static_cast<size_t>(a->IBuffer->GetIndexQuantity())),
              0)
        << kind;
    ASSERT_EQ(a->segmentClips.size(), b->segmentClips.size()) << kind;
    for (size_t i = 0; i < a->segmentClips.size(); ++i)
        ASSERT_EQ(std::memcmp(&a->segmentClips[i], &b->segmentClips[i], sizeof a->segmentClips[i]), 0) << kind;
    ASSERT_EQ(a->occlusionIntervals.size(), b->occlusionIntervals.size()) << kind;
    for (size_t i = 0; i < a->occlusionIntervals.size(); ++i) {
        const auto& x = a->occlusionIntervals[i];
        const auto& y = b->occlusionIntervals[i];
        ASSERT_EQ(x.size(), y.size()) << kind << " segment " << i;
        for (size_t k = 0; k < x.size(); ++k)
            ASSERT_TRUE(x[k].startNumerator == y[k].startNumerator && x[k].startDenominator == y[k].startDenominator &&
                        x[k].endNumerator == y[k].endNumerator && x[k].endDenominator == y[k].endDenominator)
                << kind << " segment " << i;
    }
}

void ExpectSameWithAnyThreads(const contour::ImportedModel& model, const std::string& name) {
    SCOPED_TRACE(name);
    const std::vector<const qe::qeTriMesh*> meshes = model.meshList(), occluders;
    contour::DrawingOptions options;
    options.camera.perspective = false;
    contour::CameraMatrices camera;
    std::string error;
    ASSERT_TRUE(contour::FrameCamera(meshes, occluders, options.camera, 210.0, 297.0, camera, error)) << error;
    ctr::DiscreteProjectionSpace space;
    space.setViewProjection(camera.worldToClip, camera.clipToWorld);
    space.updateRatios();

    const auto features = [&](ctr::Executor* executor) {
        ctr::GeometricFeaturesGenerator generator;
        generator.setProjectionSpace(space);
        generator.setExecutor(executor);
        generator.setSingleExportCluster(meshes, &occluders);
        ctr::GeometricFeatures result;
        generator.computeGeometricFeatures(result, 0, true);
        return result;
    };
    const std::string folder = ::testing::TempDir();
    const auto draw = [&](ctr::Executor* executor, const std::string& file) {
        contour::DrawingStats stats;
        std::string failure;
        EXPECT_TRUE(contour::DrawToSVG(meshes, occluders, options, folder + file, stats, failure, executor)) << failure;
        const std::string text = ReadFile(folder + file);
        std::filesystem::remove(folder + file);
        return text;
    };

    const ctr::GeometricFeatures serial = features(nullptr);
    const std::string serialFile = draw(nullptr, "parallel_serial.svg");
    ASSERT_NE(serialFile.find("<path"), std::string::npos);
    for (const unsigned int threads : {2u, 3u}) {
        contour::ThreadPool pool(threads);
        const ctr::GeometricFeatures parallel = features(&pool);
        ExpectSameSet(serial.creaseEdges, parallel.creaseEdges, "creases");
        ExpectSameSet(serial.silhouetteEdges, parallel.silhouetteEdges, "silhouettes");
        ExpectSameSet(serial.intersectionEdges, parallel.intersectionEdges, "intersections");
        EXPECT_TRUE(draw(&pool, "parallel_pool.svg") == serialFile) << threads << " threads";
    }
}

TEST(Parallel, SameResultWithAnyThreadCount) {
    // The demo holds creases, silhouettes and an intersection line.
    ExpectSameWithAnyThreads(contour::MakeDemoScene(), "demo");
    // A CAD part, many meshes that cut each other, and two scanned balls.
    int found = 0;
    for (const char* relative : {"cad-brep/box_holes.obj", "scenes/2CylinderEngine.glb",
                                 "scenes/two_balls_intersecting.obj"}) {
        const std::string path = ctr_test::ModelPath(relative);
        if (!std::filesystem::exists(path)) continue;
        ++found;
        contour::ImportedModel model;
        std::string error;
        ASSERT_TRUE(contour::ImportModel(path, model, error)) << error;
        ExpectSameWithAnyThreads(model, relative);
    }
    if (found == 0) GTEST_SKIP() << "model files not found under " << ctr_test::ModelPath("") << ": demo scene only";
}

}  // namespace
