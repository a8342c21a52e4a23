// Baking of mesh lists into the integer grid: which triangles are kept,
// clipped or dropped, and the invariants every later stage relies on.
#include <random>

#include "TestSupport.h"

namespace {

using Wm4::Vector3;
using V3 = Vector3<float>;

using ctr_test::Bake;

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
