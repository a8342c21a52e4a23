// Baking of mesh lists into the integer grid: which triangles are kept,
// clipped or dropped, and the invariants every later stage relies on.
#include <algorithm>
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "ModelImport.h"
#include "TestSupport.h"
#include "ctr/BakedTriangles.h"

namespace {

using Wm4::Vector3;
using V3 = Vector3<float>;

ctr::BakedTriangles Bake(const ctr::DiscreteProjectionSpace& space, const std::vector<const qe::qeTriMesh*>& meshes) {
    ctr::BakedTriangles baked;
    baked.setProjectionSpace(&space);
    baked.setMeshes(meshes);
    baked.initialize();
    std::string why;
    EXPECT_TRUE(baked.validate(&why)) << why;
    return baked;
}

bool UsesVertex(const ctr::BakedTriangles& baked, uint32_t vertex) {
    const std::vector<uint32_t>& corners = baked.getTriangles();
    return std::find(corners.begin(), corners.end(), vertex) != corners.end();
}

// Distance in grid units from p to the segment a-b, in x and y only.
double ScreenDistance(const ctr::BakedVertex& p, const ctr::BakedVertex& a, const ctr::BakedVertex& b) {
    const double dx = double(b.x) - a.x, dy = double(b.y) - a.y;
    const double length2 = dx * dx + dy * dy;
    double t = length2 > 0 ? ((double(p.x) - a.x) * dx + (double(p.y) - a.y) * dy) / length2 : 0.0;
    t = std::clamp(t, 0.0, 1.0);
    return std::hypot(a.x + t * dx - p.x, a.y + t * dy - p.y);
}

TEST(Baking, MeshInsideTheCubeKeepsItsVerticesAndTriangles) {
    // Two triangles of opposite winding and one seen edge-on (all corners on
    // x = 0.5): the first two are stored counter-clockwise, the third has no
    // area on screen and is dropped.
    const auto mesh = ctr_test::MakeMesh({V3(-0.5f, -0.5f, 0.0f), V3(0.5f, -0.5f, 0.1f), V3(0.0f, 0.5f, 0.2f),
                                          V3(0.5f, 0.5f, -0.3f), V3(0.5f, -0.2f, 0.4f), V3(0.5f, 0.3f, -0.4f)},
                                         {0, 1, 2, 1, 2, 3, 3, 4, 5});
    const ctr::DiscreteProjectionSpace space;
    const ctr::BakedTriangles baked = Bake(space, {mesh});

    EXPECT_EQ(baked.getVertices().size(), 6u);
    ASSERT_EQ(baked.getTriangleQuantity(), 2u);
    EXPECT_TRUE(baked.getMeshClipRecords()[0].empty());
    for (const Vector3<int64_t>& plane : baked.getPlanes()) EXPECT_LT(plane[2], 0);
    // (x + 1) * 1048575 / 2, truncated: -0.5 -> 262143, 0.5 -> 786431.
    EXPECT_EQ(baked.getVertices()[0], (ctr::BakedVertex{262143, 262143, 524287}));
    // Triangle 1, 2, 3 is clockwise on screen, so two corners were exchanged.
    const std::vector<uint32_t> second(baked.getTriangles().begin() + 3, baked.getTriangles().end());
    EXPECT_EQ(second, (std::vector<uint32_t>{1, 3, 2}));
}

TEST(Baking, TrianglesCrossingTheCubeBecomeFansWithEdgeCodes) {
    // Corner 1 lies beyond x = 1: the triangle is cut to a quadrilateral,
    // stored as a fan of two triangles over four new vertices; the source
    // vertex keeps the marker and no triangle uses it. A second triangle lies
    // wholly beyond x = 1 and disappears.
    const auto mesh = ctr_test::MakeMesh({V3(-0.5f, -0.5f, 0.0f), V3(1.5f, 0.0f, 0.0f), V3(-0.5f, 0.5f, 0.0f),
                                          V3(1.5f, 0.5f, 0.0f), V3(2.0f, 0.9f, 0.0f), V3(1.2f, 0.9f, 0.0f)},
                                         {0, 1, 2, 3, 4, 5});
    const ctr::DiscreteProjectionSpace space;
    const ctr::BakedTriangles baked = Bake(space, {mesh});

    ASSERT_EQ(baked.getTriangleQuantity(), 2u);
    ASSERT_EQ(baked.getVertices().size(), 6u + 4u);
    EXPECT_EQ(baked.getVertices()[1].x, ctr::BakedTriangles::kOutOfCubeMarker);
    for (uint32_t v = 0; v < 6; ++v) EXPECT_FALSE(UsesVertex(baked, v)) << "source vertex " << v;

    // Every clipped edge with a code lies on the source edge the code names
    // (1: C->A, 2: A->B, 3: B->C), and the code-0 edges are the cut on x = 1
    // and the fan diagonal.
    const std::vector<uint32_t>& records = baked.getMeshClipRecords()[0];
    ASSERT_EQ(records.size(), 2u);
    const ctr::BakedVertex source[3] = {{262143, 262143, 524287}, {1310718, 524287, 524287}, {262143, 786431, 524287}};
    int onPlane = 0;
    for (uint32_t t = 0; t < 2; ++t) {
        EXPECT_EQ(records[t] & ctr::BakedTriangles::kClipRecordTriangleMask, 0u);
        for (uint32_t j = 0; j < 3; ++j) {
            const uint32_t code = (records[t] >> (26 + 2 * j)) & 3u;
            // Slot j: the side ending at corner j.
            const ctr::BakedVertex& from = baked.getVertices()[baked.getTriangles()[3 * t + (j + 2) % 3]];
            const ctr::BakedVertex& to = baked.getVertices()[baked.getTriangles()[3 * t + j]];
            if (code == 0) {
                onPlane += (from.x == 1048575 && to.x == 1048575);
                continue;
            }
            const ctr::BakedVertex& a = source[(code + 1) % 3];  // code 1 -> C, 2 -> A, 3 -> B
            const ctr::BakedVertex& b = source[(code + 2) % 3];
            EXPECT_LE(ScreenDistance(from, a, b), 2.0) << "triangle " << t << " edge " << j;
            EXPECT_LE(ScreenDistance(to, a, b), 2.0) << "triangle " << t << " edge " << j;
        }
    }
    EXPECT_EQ(onPlane, 1);
}

TEST(Baking, UnusableInputIsSkippedWithoutCrashing) {
    ctr::DiscreteProjectionSpace space;
    // Empty list: nothing, no hierarchy, and queries are no-ops.
    {
        const ctr::BakedTriangles baked = Bake(space, {});
        EXPECT_EQ(baked.getTriangleQuantity(), 0u);
        EXPECT_TRUE(baked.getHierarchy().isEmpty());
        std::vector<ctr::RationalInterval> list;
        baked.computeOcclusionIntervals({0, 0, 0}, {100, 100, 100}, list);
        EXPECT_TRUE(list.empty());
    }
    // A null entry and a mesh without vertices keep their (empty) ranges;
    // a triangle with an index past its vertex buffer is dropped.
    const auto broken = ctr_test::MakeMesh({V3(0, 0, 0), V3(0.5f, 0, 0), V3(0, 0.5f, 0)}, {0, 1, 7, 0, 1, 2});
    qe::qePointer<qe::qeTriMesh> bare = new qe::qeTriMesh(nullptr, nullptr);
    const ctr::BakedTriangles baked = Bake(space, {nullptr, bare, broken});
    EXPECT_EQ(baked.getTriangleQuantity(), 1u);
    EXPECT_EQ(baked.getMeshFirstTriangle(), (std::vector<uint32_t>{0, 0, 0}));
    EXPECT_EQ(baked.getMeshTriangleEnd(2), 1u);
    // Without a projection space nothing is baked.
    ctr::BakedTriangles unplaced;
    unplaced.setMeshes({broken});
    unplaced.initialize();
    EXPECT_EQ(unplaced.getTriangleQuantity(), 0u);
}

TEST(Baking, RealMeshesUnderPerspectiveKeepTheInvariants) {
    // The camera is close enough that the near plane and the sides cut the
    // cow, and the bit sizes at both ends of the accepted range must bake
    // without overflow (the sanitizer build checks every product).
    contour::ImportedModel model;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath("organic/spot.obj"), model, error)) << error;
    const qe::qeBBox& bound = model.meshes[0]->WorldBound;
    const V3 center = bound.center();
    const float radius = (bound.Max - bound.Min).Length() * 0.5f;
    for (const auto& bits : {std::pair<unsigned, unsigned>{20, 20}, {20, 19}, {28, 3}, {2, 55}}) {
        ctr::DiscreteProjectionSpace space;
        if (bits.first != 20 || bits.second != 20) {
            ASSERT_TRUE(space.setVoxelBitSize(bits.first, bits.second));
        }
        ctr_test::PerspectiveCamera(space, center + V3(0.3f, 0.4f, 0.9f) * radius, center, 50.0f, 1.5f, 0.5f * radius,
                                    3.0f * radius);
        const ctr::BakedTriangles baked = Bake(space, model.meshList());
        if (bits.first == 20) {
            EXPECT_GT(baked.getTriangleQuantity(), 1000u);
            EXPECT_FALSE(baked.getMeshClipRecords()[0].empty());
        }
        // Baking twice gives the same data.
        ctr::BakedTriangles again = baked;
        again.initialize();
        EXPECT_EQ(again.getTriangles(), baked.getTriangles());
        EXPECT_EQ(again.getVertices(), baked.getVertices());
    }
}

}  // namespace
