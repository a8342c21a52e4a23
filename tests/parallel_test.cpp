// Parallel runs must give what the calling thread alone gives: the same line
// sets to the bit and the same file bytes, whatever the number of threads.
#include <atomic>
#include <cstring>

#include "ctr/drawing/DemoScene.h"
#include "ctr/drawing/Drawing.h"
#include "TestSupport.h"
#include "ctr/drawing/ThreadPool.h"
#include "ctr/drawing/DemoScene.h"
#include "ctr/drawing/Drawing.h"
#include "ctr/drawing/ThreadPool.h"
#include "ctr/BakedTriangles.h"
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

// The tool's camera for meshes on an A4 sheet; false when none can be made.
bool FramedSpace(const std::vector<const qe::qeTriMesh*>& meshes, const contour::CameraOptions& options,
                 ctr::DiscreteProjectionSpace& space) {
    const std::vector<const qe::qeTriMesh*> occluders;
    contour::CameraMatrices camera;
    std::string error;
    if (!contour::FrameCamera(meshes, occluders, options, 210.0, 297.0, camera, error)) return false;
    space.setViewProjection(camera.worldToClip, camera.clipToWorld);
    space.updateRatios();
    return true;
}

// Calls use(model, name) for each listed model.
template <typename Use>
void ForEachModel(std::initializer_list<const char*> relatives, const Use& use) {
    for (const char* relative : relatives) {
        use(ctr_test::LoadModel(relative), relative);
    }
}

void ExpectSameWithAnyThreads(const contour::ImportedModel& model, const std::string& name) {
    SCOPED_TRACE(name);
    const std::vector<const qe::qeTriMesh*> meshes = model.meshList(), occluders;
    contour::DrawingOptions options;
    options.camera.perspective = false;
    ctr::DiscreteProjectionSpace space;
    ASSERT_TRUE(FramedSpace(meshes, options.camera, space));

    // Tests run side by side in processes of their own: each draws into files
    // of its own.
    const std::string folder = ::testing::TempDir() + std::to_string(getpid()) + "_";
    const auto draw = [&](ctr::Executor* executor, const std::string& file) {
        contour::DrawingStats stats;
        std::string failure;
        EXPECT_TRUE(contour::DrawToSVG(meshes, occluders, options, folder + file, stats, failure, executor)) << failure;
        const std::string text = ctr_test::ReadFile(folder + file);
        std::filesystem::remove(folder + file);
        return text;
    };

    const std::string serialFile = draw(nullptr, "parallel_serial.svg");
    ASSERT_NE(serialFile.find("<path"), std::string::npos);
    for (const unsigned int threads : {2u, 3u}) {
        contour::ThreadPool pool(threads);
        EXPECT_TRUE(draw(&pool, "parallel_pool.svg") == serialFile) << threads << " threads";
    }
}

TEST(Parallel, SameResultWithAnyThreadCount) {
    // The demo holds creases, silhouettes and an intersection line.
    ExpectSameWithAnyThreads(contour::MakeDemoScene(), "demo");
    // A CAD part and two scanned balls.
    ForEachModel({"cad-brep/box_holes.obj", "scenes/two_balls_intersecting.obj"},
                 [](const contour::ImportedModel& model, const char* name) { ExpectSameWithAnyThreads(model, name); });
}

TEST(Parallel, SameResultWithAnyThreadCountOnAnAssembly) {
    // Many meshes that cut each other.
    CTR_SKIP_WITHOUT_MODEL("scenes/2CylinderEngine.glb");
    ForEachModel({"scenes/2CylinderEngine.glb"},
                 [](const contour::ImportedModel& model, const char* name) { ExpectSameWithAnyThreads(model, name); });
}

template <typename T>
bool SameBytes(const std::vector<T>& a, const std::vector<T>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

// A bake through a pool stores, bit for bit, what the calling thread alone
// stores: vertices, triangles, planes, per-mesh ranges and clip records, and
// the hierarchy's nodes (numbering, boxes) and primitive order. Returns the
// number of clip records, so that callers can check the camera clipped.
size_t ExpectSameBake(const std::vector<const qe::qeTriMesh*>& meshes, const ctr::DiscreteProjectionSpace& space,
                      const std::string& name) {
    SCOPED_TRACE(name);
    const auto bake = [&](ctr::Executor* executor) {
        ctr::BakedTriangles baked;
        baked.setProjectionSpace(&space);
        baked.setMeshes(meshes);
        baked.setExecutor(executor);
        baked.initialize();
        return baked;
    };
    const ctr::BakedTriangles serial = ctr_test::Bake(space, meshes);
    size_t clipRecords = 0;
    for (const std::vector<uint32_t>& records : serial.getMeshClipRecords()) clipRecords += records.size();
    for (const unsigned int threads : {2u, 3u}) {
        contour::ThreadPool pool(threads);
        const ctr::BakedTriangles parallel = bake(&pool);
        EXPECT_TRUE(SameBytes(serial.getVertices(), parallel.getVertices())) << threads << " threads";
        EXPECT_TRUE(SameBytes(serial.getTriangles(), parallel.getTriangles())) << threads << " threads";
        EXPECT_TRUE(SameBytes(serial.getPlanes(), parallel.getPlanes())) << threads << " threads";
        EXPECT_TRUE(SameBytes(serial.getMeshFirstVertex(), parallel.getMeshFirstVertex())) << threads << " threads";
        EXPECT_TRUE(SameBytes(serial.getMeshFirstTriangle(), parallel.getMeshFirstTriangle())) << threads << " threads";
        EXPECT_EQ(serial.getMeshClipRecords(), parallel.getMeshClipRecords()) << threads << " threads";
        EXPECT_TRUE(SameBytes(serial.getHierarchy().getNodes(), parallel.getHierarchy().getNodes()))
            << threads << " threads";
        EXPECT_TRUE(SameBytes(serial.getHierarchy().getPrimitives(), parallel.getHierarchy().getPrimitives()))
            << threads << " threads";
    }
    return clipRecords;
}

TEST(Parallel, BakeIsTheSameWithAnyThreadCount) {
    ctr::DiscreteProjectionSpace whole, close;
    ctr_test::OrthoCamera(whole, Wm4::Vector3<float>(0.5f, 6.0f, 5.0f), Wm4::Vector3<float>(0.0f, 0.0f, 0.0f), 3.5f,
                          3.5f, 0.1f, 20.0f);
    // Near the tube, looking along it: the near plane and the sides of the
    // view cut many triangles.
    ctr_test::PerspectiveCamera(close, Wm4::Vector3<float>(2.6f, 0.3f, -1.0f), Wm4::Vector3<float>(2.0f, 0.0f, 1.5f),
                                50.0f, 1.0f, 0.3f, 6.0f);

    const qe::qePointer<qe::qeTriMesh> torus = ctr_test::MakeTorus(96);
    const qe::qePointer<qe::qeTriMesh> small = ctr_test::MakeTorus(12);
    // Two meshes, so that ranges and clip records of a later mesh move too.
    const std::vector<const qe::qeTriMesh*> meshes = {torus.get(), small.get()};
    ExpectSameBake(meshes, whole, "torus, whole view");
    EXPECT_GT(ExpectSameBake(meshes, close, "torus, clipped view"), 1000u);
}

TEST(Parallel, BakeIsTheSameWithAnyThreadCountOnLargeScans) {
    CTR_SKIP_WITHOUT_MODEL("organic/stanford-bunny.obj");
    CTR_SKIP_WITHOUT_MODEL("organic/armadillo_86k.ply");
    ForEachModel({"organic/stanford-bunny.obj", "organic/armadillo_86k.ply"},
                 [](const contour::ImportedModel& model, const char* name) {
                     const std::vector<const qe::qeTriMesh*> list = model.meshList();
                     ctr::DiscreteProjectionSpace space;
                     ASSERT_TRUE(FramedSpace(list, contour::CameraOptions(), space));
                     ExpectSameBake(list, space, name);
                 });
}

}  // namespace
