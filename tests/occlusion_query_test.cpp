// The exact occlusion query: hand-checked cases on a grid where world
// coordinates are grid coordinates, and cross-checks of the hierarchy walk
// against testing every triangle on real meshes.
#include <numeric>
#include <random>

#include "OcclusionReference.h"
#include "TestSupport.h"

namespace {

using V3 = Wm4::Vector3<float>;
using ctr_test::BruteForce;
using ctr_test::Canonical;
using ctr_test::Int128;

struct Baked {
    ctr::DiscreteProjectionSpace space;
    ctr::BakedTriangles triangles;
};

// Keeps the space at a stable address for the baked triangles' pointer.
std::unique_ptr<Baked> BakeAll(const ctr::DiscreteProjectionSpace& space,
                               const std::vector<const qe::qeTriMesh*>& meshes) {
    auto baked = std::make_unique<Baked>();
    baked->space = space;
    baked->triangles.setProjectionSpace(&baked->space);
    baked->triangles.setMeshes(meshes);
    baked->triangles.initialize();
    std::string why;
    EXPECT_TRUE(baked->triangles.validate(&why)) << why;
    return baked;
}

std::vector<ctr::RationalInterval> Query(const ctr::BakedTriangles& baked, ctr::BakedVertex a, ctr::BakedVertex b) {
    std::vector<ctr::RationalInterval> list;
    baked.computeOcclusionIntervals(a, b, list);
    return list;
}

// Random edges and the model's own edges, clipped like feature edges are;
// the hierarchy walk must return exactly what testing every triangle does.
void CrossCheck(const char* model, unsigned xyBits, unsigned zBits, int randomEdges) {
    contour::ImportedModel imported;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath(model), imported, error)) << error;
    const qe::qeBBox& bound = imported.meshes[0]->WorldBound;
    const V3 center = bound.center();
    const float radius = (bound.Max - bound.Min).Length() * 0.5f;
    ctr::DiscreteProjectionSpace space;  // 20/20 by default, beyond what setVoxelBitSize accepts
    if (xyBits != 20 || zBits != 20) {
        ASSERT_TRUE(space.setVoxelBitSize(xyBits, zBits));
    }
    ctr_test::PerspectiveCamera(space, center + V3(0.5f, 0.3f, 0.8f) * (2.2f * radius), center, 40.0f, 1.3f,
                                0.2f * radius, 6.0f * radius);
    const auto baked = BakeAll(space, imported.meshList());
    ASSERT_GT(baked->triangles.getTriangleQuantity(), 0u);

    std::mt19937 random(1234);
    std::uniform_int_distribution<int32_t> xy(0, space.getGridLimit(0)), z(0, space.getGridLimit(2));
    size_t withIntervals = 0, total = 0;
    const auto check = [&](const ctr::BakedVertex& a, const ctr::BakedVertex& b) {
        const auto hidden = Canonical(Query(baked->triangles, a, b), false);
        ASSERT_EQ(hidden, Canonical(BruteForce(baked->triangles, a, b), false))
            << "edge (" << a.x << "," << a.y << "," << a.z << ")-(" << b.x << "," << b.y << "," << b.z << ")";
        withIntervals += !hidden.empty();
        total += hidden.size();
    };
    for (int i = 0; i < randomEdges; ++i)
        check({xy(random), xy(random), z(random)}, {xy(random), xy(random), z(random)});
    const qe::qeTriMesh& mesh = *imported.meshes[0];
    std::uniform_int_distribution<int> pick(0, mesh.GetTriangleQuantity() - 1);
    for (int i = 0; i < randomEdges; ++i) {
        int v[3];
        mesh.GetTriangle(pick(random), v[0], v[1], v[2]);
        ctr::BakedVertex a, b;
        float wa = 0, wb = 0;
        const auto range =
            space.clipEdgeWorld(mesh.World.ApplyForward(mesh.VBuffer->Position3(v[0]), true),
                                mesh.World.ApplyForward(mesh.VBuffer->Position3(v[1]), true), a, b, wa, wb);
        if (range.first < range.second) check(a, b);
    }
    // The check must have had something to compare.
    EXPECT_GT(withIntervals, static_cast<size_t>(randomEdges) / 10);
    EXPECT_GT(total, withIntervals);

    // Another tree over the same triangles answers alike.
    ASSERT_TRUE(baked->triangles.buildHierarchy(qe::qeLinearGenericBVHBuilder::SPLIT_MEDIAN));
    std::string why;
    EXPECT_TRUE(baked->triangles.validate(&why)) << why;
    for (int i = 0; i < randomEdges / 2; ++i)
        check({xy(random), xy(random), z(random)}, {xy(random), xy(random), z(random)});
}

TEST(OcclusionQuery, HierarchyMatchesEveryTriangleOnRealMeshes) {
    CrossCheck("organic/spot.obj", 20, 20, 300);
    CrossCheck("cad/couplingdown.ply", 20, 19, 200);
    // The largest grid in x and y and the deepest depth: the products of the
    // exact tests reach their bit budget here.
    CrossCheck("open/three_peaks.obj", 28, 3, 150);
    CrossCheck("cad/joint.obj", 12, 35, 150);
}

TEST(OcclusionQuery, DepthsCloserThanAFloatStepAreNeverPruned) {
    // On grids whose depth goes beyond 24 bits, neighbouring depths share a
    // float. Stacks of screen-parallel triangles, each queried with edges
    // just behind and just in front of it by less than that float's step:
    // the walk must still answer exactly as testing every triangle does.
    for (const auto& [xyBits, zBits] : {std::pair{12u, 35u}, {2u, 55u}, {28u, 3u}}) {
        SCOPED_TRACE(testing::Message() << xyBits << "/" << zBits);
        ctr::DiscreteProjectionSpace space;
        ASSERT_TRUE(space.setVoxelBitSize(xyBits, zBits));
        std::mt19937 random(xyBits * 100 + zBits);
        std::uniform_real_distribution<float> at(-0.9f, 0.9f), size(0.05f, 0.6f);
        std::vector<V3> positions;
        std::vector<unsigned> indices;
        for (unsigned t = 0; t < 400; ++t) {
            const V3 corner(at(random), at(random), t % 2 ? at(random) : 0.0f);
            const float w = size(random), h = size(random);
            for (const V3& offset : {V3(0, 0, 0), V3(w, 0, 0), V3(0, h, 0)}) positions.push_back(corner + offset);
            for (unsigned c = 0; c < 3; ++c) indices.push_back(3 * t + c);
        }
        const auto baked = BakeAll(space, {ctr_test::MakeMesh(positions, indices)});
        const ctr::BakedTriangles& t = baked->triangles;
        ASSERT_GT(t.getTriangleQuantity(), 0u);
        size_t hidden = 0;
        for (uint32_t k = 0; k < t.getTriangleQuantity(); ++k) {
            const ctr::BakedVertex* p[3];
            for (int c = 0; c < 3; ++c) p[c] = &t.getVertices()[t.getTriangles()[3 * k + c]];
            const int32_t x = (p[0]->x + p[1]->x + p[2]->x) / 3, y = (p[0]->y + p[1]->y + p[2]->y) / 3;
            const int32_t z = std::min({p[0]->z, p[1]->z, p[2]->z});
            for (const int32_t dz : {-1, 0, 1, 2, 63, 64, 65}) {
                const int32_t depth = static_cast<int32_t>(std::clamp<int64_t>(int64_t{z} + dz, 0, INT32_MAX));
                const ctr::BakedVertex a{x, y, depth}, b{x + 1, y, depth};
                const auto list = Canonical(Query(t, a, b), false);
                ASSERT_EQ(list, Canonical(BruteForce(t, a, b), false)) << "triangle " << k << " depth step " << dz;
                hidden += !list.empty();
            }
        }
        EXPECT_GT(hidden, 0u);
    }
}

}  // namespace
