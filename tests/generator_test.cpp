// The feature computation as a host drives it: the order of its steps, its
// cancellation checks and the work it announces; and a prepared model drawn
// from many cameras, on several threads, giving what a fresh generator gives.

#include <cstring>
#include <thread>

#include "TestSupport.h"
#include "ctr/PreparedModel.h"
#include "ctr/drawing/Drawing.h"
#include "ctr/drawing/ThreadPool.h"

namespace {

using V3 = Wm4::Vector3<float>;
using SetPointer = qe::qePointer<ctr::LineSegmentSet>;

// A tilted square of two triangles with flat normals, seen from the front:
// its four borders are creases and silhouettes alike, its diagonal neither.
qe::qePointer<qe::qeTriMesh> Square(float z) {
    const V3 n(0, 0, 1);
    return ctr_test::MakeMesh({V3(-1, -1, z), V3(1, -1, z), V3(1, 1, z), V3(-1, 1, z)}, {0, 1, 2, 0, 2, 3},
                              {n, n, n, n});
}

void Camera(ctr::GeometricFeaturesGenerator& generator) {
    ctr::DiscreteProjectionSpace space;
    ctr_test::PerspectiveCamera(space, V3(0.3f, 0.2f, 6), V3(0, 0, 0));
    generator.setProjectionSpace(space);
}

int Segments(const SetPointer& set) { return set ? set->getSegmentQuantity() : -1; }

TEST(FeatureComputation, StepsAndCommonSegments) {
    const auto square = Square(0.0f);
    ctr::GeometricFeaturesGenerator generator;
    Camera(generator);
    ctr::GeometricFeatures features;
    // No cluster yet: every step finds nothing.
    generator.computeGeometricFeatures(features, 0, true);
    EXPECT_EQ(features.creaseEdges, nullptr);
    EXPECT_EQ(features.silhouetteEdges, nullptr);
    EXPECT_EQ(features.intersectionEdges, nullptr);

    generator.setSingleExportCluster({square}, nullptr);
    generator.computeGeometricFeatures(features, 0, false);
    EXPECT_EQ(Segments(features.creaseEdges), 4);
    EXPECT_EQ(Segments(features.silhouetteEdges), 4);
    EXPECT_EQ(features.creaseEdges->occlusionIntervals.size(), 4u);
    EXPECT_EQ(features.silhouetteEdges->segmentClips.size(), 4u);
    EXPECT_EQ(features.intersectionEdges, nullptr);
    // Every crease is a silhouette too: removing them leaves no crease set.
    generator.computeGeometricFeatures(features, 0, true);
    EXPECT_EQ(features.creaseEdges, nullptr);
    EXPECT_EQ(Segments(features.silhouetteEdges), 4);
}

// Everything a view's set carries, bit for bit: positions where they land
// in the world, indices, flags, hidden intervals and clip records.
void ExpectSameSet(const SetPointer& a, const SetPointer& b, const std::string& what) {
    ASSERT_EQ(a == nullptr, b == nullptr) << what;
    if (!a) return;
    ASSERT_EQ(a->VBuffer == nullptr, b->VBuffer == nullptr) << what;
    ASSERT_EQ(a->IBuffer == nullptr, b->IBuffer == nullptr) << what;
    if (a->VBuffer) {
        ASSERT_EQ(a->VBuffer->GetVertexQuantity(), b->VBuffer->GetVertexQuantity()) << what;
        for (int i = 0; i < a->VBuffer->GetVertexQuantity(); ++i) {
            const V3 p = a->World.ApplyForward(a->VBuffer->Position3(i), true);
            const V3 q = b->World.ApplyForward(b->VBuffer->Position3(i), true);
            ASSERT_EQ(std::memcmp(&p, &q, sizeof p), 0) << what << " vertex " << i;
        }
    }
    if (a->IBuffer) {
        EXPECT_EQ(ctr_test::Indices(*a), ctr_test::Indices(*b)) << what;
    }
    EXPECT_EQ(a->segmentFlags, b->segmentFlags) << what;
    EXPECT_EQ(a->occlusionIntervals, b->occlusionIntervals) << what;
    ASSERT_EQ(a->segmentClips.size(), b->segmentClips.size()) << what;
    if (!a->segmentClips.empty()) {
        EXPECT_EQ(std::memcmp(a->segmentClips.data(), b->segmentClips.data(),
                              a->segmentClips.size() * sizeof a->segmentClips[0]),
                  0)
            << what;
    }
}

struct ViewResult {
    ctr::GeometricFeatures features;
    SetPointer hiddenIntersections;
    int duplicates = 0;
};

// One view's features, from the meshes or from the prepared model, with the
// intersections behind the occluders hidden as the tool hides them.
ViewResult ComputeView(const contour::CameraMatrices& camera, const std::vector<const qe::qeTriMesh*>& meshes,
                       const std::vector<const qe::qeTriMesh*>& occluders, const ctr::PreparedModel* prepared,
                       bool removeCommon, ctr::Executor* executor, bool oneCopyPerCrease = false) {
    ctr::GeometricFeaturesGenerator generator;
    generator.setRemoveDuplicateCreases(oneCopyPerCrease);
    generator.setProjectionSpace(contour::ProjectionSpaceOf(camera));
    generator.setExecutor(executor);
    if (prepared)
        generator.setPreparedModel(prepared);
    else
        generator.setSingleExportCluster(meshes, &occluders);
    ViewResult result;
    generator.computeGeometricFeatures(result.features, 0, removeCommon, &result.hiddenIntersections);
    result.duplicates = generator.getRemovedDuplicateCreases();
    generator.hideIntersectionsBehindOccluders(result.features, 0, &result.hiddenIntersections);
    return result;
}

void ExpectSameView(const ViewResult& a, const ViewResult& b, const std::string& what) {
    ExpectSameSet(a.features.creaseEdges, b.features.creaseEdges, what + " creases");
    ExpectSameSet(a.features.silhouetteEdges, b.features.silhouetteEdges, what + " silhouettes");
    ExpectSameSet(a.features.intersectionEdges, b.features.intersectionEdges, what + " intersections");
    ExpectSameSet(a.hiddenIntersections, b.hiddenIntersections, what + " hidden intersections");
}

// Many cameras of one prepared model, computed at once on two threads (one
// of them with a pool inside its views), give each view exactly what a
// generator given the meshes gives; the prepared edges are left as they were.
// Views that drop repeated creases before hiding them get the creases that
// dropping them afterwards leaves.
TEST(PreparedModel, ViewsEqualFreshGeneratorsOnAnyThread) {
    struct tScene {
        std::vector<std::string> models;
        bool occluder;
    };
    // Split normals (duplicate creases, most of them silhouettes too), an open
    // surface, solids that cut each other, several meshes in one cluster
    // with a hide-only box, and a STEP part's outline metadata when the
    // reader is built.
    const tScene scenes[] = {{{"cad/cube_split_normals.obj"}, false},
                             {{"open/three_peaks.obj"}, false},
                             {{"scenes/two_balls_intersecting.obj", "cad/joint.obj"}, true},
                             {{"cad-step/plate.step"}, false}};
    for (const tScene& scene : scenes) {
        std::vector<contour::ImportedModel> models(scene.models.size());
        std::vector<const qe::qeTriMesh*> meshes;
        bool loaded = true;
        for (size_t i = 0; i < models.size(); ++i) {
            std::string error;
            loaded = loaded && contour::ImportModel(ctr_test::ModelPath(scene.models[i]), models[i], error);
            for (const qe::qeTriMesh* mesh : models[i].meshList()) meshes.push_back(mesh);
        }
        // Only the STEP reader may be missing from a build.
        if (!loaded && scene.models[0] == "cad-step/plate.step") continue;
        ASSERT_TRUE(loaded) << scene.models[0];
        const ctr_test::Bounds bounds = ctr_test::MeshBounds(meshes);
        const V3 half(0.5f * bounds.radius, 0.5f * bounds.radius, 0.5f * bounds.radius);
        const auto box = scene.occluder ? ctr_test::MakeSplitBox(bounds.centre - half, bounds.centre) : nullptr;
        std::vector<const qe::qeTriMesh*> occluders;
        if (box) occluders.push_back(box);

        std::vector<contour::CameraMatrices> cameras;
        for (const auto& [azimuth, elevation, perspective] :
             {std::make_tuple(0.0, 0.0, false), std::make_tuple(90.0, 0.0, false), std::make_tuple(45.0, 35.2644, false),
              std::make_tuple(200.0, -30.0, false), std::make_tuple(30.0, 20.0, true),
              std::make_tuple(300.0, 60.0, true)}) {
            contour::CameraOptions options;
            options.azimuthElevation = std::array<double, 2>{azimuth, elevation};
            options.perspective = perspective;
            contour::CameraMatrices camera;
            std::string error;
            ASSERT_TRUE(contour::FrameCamera(meshes, occluders, options, 210.0, 297.0, camera, error)) << error;
            cameras.push_back(camera);
        }
        // Fresh views with the pool find creases beside silhouettes.
        contour::ThreadPool pool(2);
        std::vector<ViewResult> fresh;
        for (size_t c = 0; c < cameras.size(); ++c)
            fresh.push_back(ComputeView(cameras[c], meshes, occluders, nullptr, c % 2 == 0, c % 2 ? &pool : nullptr));

        const ctr::PreparedModel prepared(meshes, &occluders);
        const SetPointer before = ctr::PreparedModel(meshes, &occluders).copyCreaseEdges();
        std::vector<ViewResult> shared(cameras.size());
        const auto views = [&](size_t first, ctr::Executor* executor) {
            for (size_t c = first; c < cameras.size(); c += 2)
                shared[c] = ComputeView(cameras[c], meshes, occluders, &prepared, c % 2 == 0, executor, c % 3 == 0);
        };
        std::thread other(views, 1, nullptr);
        views(0, &pool);
        other.join();
        for (size_t c = 0; c < cameras.size(); ++c) {
            if (c % 3 == 0) {
                EXPECT_EQ(ctr::LineSegmentSet::RemoveDuplicateSegments(fresh[c].features.creaseEdges),
                          shared[c].duplicates);
            }
            ExpectSameView(fresh[c], shared[c], scene.models[0] + " camera " + std::to_string(c));
        }
        // The views edited their copies only.
        const SetPointer after = prepared.copyCreaseEdges();
        ExpectSameSet(before, after, scene.models[0] + " prepared edges");
        EXPECT_EQ(prepared.getCreaseEdges()->VBuffer, after->VBuffer);
        EXPECT_NE(prepared.getCreaseEdges()->IBuffer, after->IBuffer);
    }
}

// The tool drops repeated creases before hiding them; its counts are still
// those of dropping them afterwards: found, repeated by a silhouette, and
// repeated by another crease.
TEST(PreparedModel, ViewCountsAsWhenDuplicatesGoLast) {
    for (const char* name : {"cad/cube_split_normals.obj", "cad/joint.obj"}) {
        const contour::ImportedModel model = ctr_test::LoadModel(name);
        const std::vector<const qe::qeTriMesh*> meshes = model.meshList(), none;
        contour::DrawingOptions options;
        contour::CameraMatrices camera;
        std::string error;
        ASSERT_TRUE(contour::FrameCamera(meshes, none, options.camera, 210.0, 297.0, camera, error)) << error;
        contour::ViewLines lines;
        contour::DrawingStats stats;
        ASSERT_TRUE(contour::ComputeView(meshes, none, options, camera, contour::FitToPage(options), lines, stats,
                                         error, nullptr, nullptr))
            << error;

        ctr::GeometricFeaturesGenerator generator;
        generator.setProjectionSpace(contour::ProjectionSpaceOf(camera));
        generator.setSingleExportCluster(meshes, nullptr);
        ctr::GeometricFeatures features;
        generator.computeGeometricFeatures(features, 0, false);
        const size_t found = static_cast<size_t>(Segments(features.creaseEdges));
        ctr::LineSegmentSet::RemoveCommonSegments(features.creaseEdges, features.silhouetteEdges);
        const size_t afterCommon = static_cast<size_t>(features.creaseEdges->getSegmentQuantity());
        EXPECT_EQ(stats.crease.found, found) << name;
        EXPECT_EQ(stats.crease.commonRemoved, found - afterCommon) << name;
        EXPECT_EQ(stats.crease.duplicatesRemoved,
                  static_cast<size_t>(ctr::LineSegmentSet::RemoveDuplicateSegments(features.creaseEdges)))
            << name;
        EXPECT_GT(stats.crease.duplicatesRemoved + stats.crease.commonRemoved, 0u) << name;
    }
}

}  // namespace
