// Silhouette edges of baked meshes, checked against the facing of the source
// triangles seen from the eye, and the removal of segments common to two sets.
#include <map>
#include <set>

#include "TestSupport.h"

namespace {

using ctr_test::Bake;
using ctr_test::Indices;
using V3 = Wm4::Vector3<float>;
using ctr::LineSegmentSet;
using Edge = std::pair<unsigned, unsigned>;
using SetPointer = qe::qePointer<LineSegmentSet>;
using MeshPointer = qe::qePointer<qe::qeTriMesh>;

// The sets of every mesh, owned here, with null entries kept.
std::vector<SetPointer> Silhouettes(const ctr::BakedTriangles& baked) {
    std::vector<LineSegmentSet*> out;
    EXPECT_TRUE(baked.computeSilhouetteEdges(out));
    return std::vector<SetPointer>(out.begin(), out.end());
}

// The segments as index pairs, smaller index first; a segment found twice
// fails the test.
std::set<Edge> Undirected(const LineSegmentSet& set) {
    std::set<Edge> edges;
    const unsigned* indices = set.IBuffer->GetData();
    for (int s = 0; s < set.getSegmentQuantity(); ++s) {
        const Edge edge = std::minmax(indices[2 * s], indices[2 * s + 1]);
        EXPECT_TRUE(edges.insert(edge).second) << "segment " << edge.first << "-" << edge.second << " twice";
    }
    return edges;
}

// Mesh edges whose triangles face the eye differently in world space, and
// edges of one triangle only.
std::set<Edge> ExpectedSilhouette(const qe::qeTriMesh& mesh, const V3& eye) {
    std::map<Edge, std::vector<bool>> facing;
    for (int t = 0; t < mesh.GetTriangleQuantity(); ++t) {
        int v[3];
        mesh.GetTriangle(t, v[0], v[1], v[2]);
        V3 p[3];
        for (int c = 0; c < 3; ++c) p[c] = mesh.World.ApplyForward(mesh.VBuffer->Position3(v[c]), true);
        const bool front = (p[1] - p[0]).Cross(p[2] - p[0]).Dot(eye - p[0]) > 0.0f;
        for (int c = 0; c < 3; ++c)
            facing[std::minmax(static_cast<unsigned>(v[c]), static_cast<unsigned>(v[(c + 1) % 3]))].push_back(front);
    }
    std::set<Edge> edges;
    for (const auto& [edge, sides] : facing)
        if (sides.size() == 1 || sides[0] != sides[1]) edges.insert(edge);
    return edges;
}

// Twelve vertices (0, +-1, +-g) cyclically, faces wherever three lie at edge
// length 2 from each other, turned to face outwards.
MeshPointer Icosahedron() {
    const float g = (1.0f + std::sqrt(5.0f)) / 2.0f;
    std::vector<V3> points;
    for (const float s : {-1.0f, 1.0f})
        for (const float u : {-g, g}) {
            points.emplace_back(0.0f, s, u);
            points.emplace_back(s, u, 0.0f);
            points.emplace_back(u, 0.0f, s);
        }
    const auto neighbours = [&](unsigned i, unsigned j) {
        return std::abs((points[i] - points[j]).SquaredLength() - 4.0f) < 1e-3f;
    };
    std::vector<unsigned> indices;
    for (unsigned i = 0; i < 12; ++i)
        for (unsigned j = i + 1; j < 12; ++j)
            for (unsigned k = j + 1; k < 12; ++k) {
                if (!neighbours(i, j) || !neighbours(j, k) || !neighbours(i, k)) continue;
                const bool outward = (points[j] - points[i]).Cross(points[k] - points[i]).Dot(points[i]) > 0.0f;
                indices.insert(indices.end(), {i, outward ? j : k, outward ? k : j});
            }
    EXPECT_EQ(indices.size(), 60u);
    return ctr_test::MakeMesh(points, indices);
}

TEST(SilhouetteEdges, ClosedConvexMeshFoldsBetweenFrontAndBackFaces) {
    // Turned about z and moved to the centre.
    MeshPointer mesh = Icosahedron();
    const float c = std::cos(0.4f), s = std::sin(0.4f);
    mesh->World.SetMatrix(Wm4::Matrix4<float>(c, s, 0, 0, -s, c, 0, 0, 0, 0, 1, 0, 0.5f, -0.25f, 0, 1));
    const V3 centre(0.5f, -0.25f, 0.0f);

    for (const V3& eye : {V3(4.1f, 2.7f, 6.3f), V3(-5.2f, 0.9f, -3.4f), V3(0.3f, -6.6f, 1.7f)}) {
        SCOPED_TRACE(testing::Message() << "eye " << eye[0] << ", " << eye[1] << ", " << eye[2]);
        ctr::DiscreteProjectionSpace space;
        ctr_test::PerspectiveCamera(space, eye, centre);
        const std::vector<SetPointer> sets = Silhouettes(Bake(space, {mesh}));
        ASSERT_TRUE(sets.size() == 1 && sets[0]);
        const std::set<Edge> expected = ExpectedSilhouette(*mesh, eye);
        EXPECT_GE(expected.size(), 5u);
        EXPECT_EQ(Undirected(*sets[0]), expected);
        // Model space: the mesh's own vertices, placed where the mesh is.
        EXPECT_TRUE(sets[0]->VBuffer == mesh->VBuffer && sets[0]->World == mesh->World &&
                    sets[0]->Local == mesh->World);
    }
}

TEST(SilhouetteEdges, ClippedTrianglesGiveWholeSourceEdges) {
    // Vertex 3 lies far right of the view: triangle 1 3 2 is cut into a fan
    // whose side on the clip plane and whose diagonal are no mesh edges.
    // Seen from behind, baking turns the fan over and its edge codes with it.
    const MeshPointer quad =
        ctr_test::MakeMesh({V3(-1.0f, -1.0f, 0.0f), V3(0.0f, -1.0f, 0.0f), V3(-1.0f, 0.5f, 0.0f), V3(9.0f, 0.7f, 0.3f)},
                           {0, 1, 2, 1, 3, 2});
    const std::set<Edge> borders{{0, 1}, {0, 2}, {1, 3}, {2, 3}};
    for (const float side : {4.0f, -4.0f}) {
        SCOPED_TRACE(side);
        ctr::DiscreteProjectionSpace space;
        ctr_test::PerspectiveCamera(space, V3(0.0f, 0.0f, side), V3(0.0f, 0.0f, 0.0f));
        const ctr::BakedTriangles baked = Bake(space, {quad});
        ASSERT_FALSE(baked.getMeshClipRecords()[0].empty());
        const std::vector<SetPointer> sets = Silhouettes(baked);
        ASSERT_TRUE(sets.size() == 1 && sets[0]);
        EXPECT_EQ(Undirected(*sets[0]), borders);
    }
}

// Interval list and clip record that name segment s.
std::vector<ctr::RationalInterval> Tag(int s) { return {ctr::RationalInterval{s, 7, 1, 1}}; }
LineSegmentSet::tSegmentClip Clip(int s) { return {0.0f, 1.0f, static_cast<float>(s), 1.0f}; }

TEST(CommonSegments, RemovesWholeSegmentsMatchedByPositionInEitherDirection) {
    const float nan = std::nanf("");
    const float nextToOne = std::nextafter(1.0f, 2.0f);
    // a: 0 p-q, 1 q-r, 2 r-s, 3 q-p again, 4 r-t with t one ulp off b's,
    // 5 s-u, 6 a NaN end, 7 an index past the buffer.
    const V3 p(0, 0, 0), q(1, 0, 0), r(1, 1, 0), s(0, 1, 0), u(0, 1, 2);
    const SetPointer a =
        ctr_test::LineSet({p, q, r, s, V3(nextToOne, 1, 1), u, V3(nan, 0, 0)}, {0, 1, 1, 2, 2, 3, 1, 0, 2, 4, 3, 5, 6, 0, 0, 40});
    for (int k = 0; k < 8; ++k) {
        a->occlusionIntervals.push_back(Tag(k));
        a->segmentClips.push_back(Clip(k));
        a->segmentFlags.push_back(k % 2 == 1);
    }
    // b, in its own buffer and order: q-p, r-q, p-q again, r-(1, 1, 1), the
    // same NaN segment, an index past its buffer.
    const SetPointer b = ctr_test::LineSet({q, p, r, V3(1, 1, 1), V3(nan, 0, 0)}, {0, 1, 2, 0, 1, 0, 2, 3, 4, 1, 2, 9});
    const std::vector<unsigned> bIndices = Indices(*b);

    LineSegmentSet::RemoveCommonSegments(a, b);
    // Kept, in order and direction: 2, 4, 5, 6, 7.
    EXPECT_EQ(Indices(*a), (std::vector<unsigned>{2, 3, 2, 4, 3, 5, 6, 0, 0, 40}));
    ASSERT_EQ(a->occlusionIntervals.size(), 5u);
    ASSERT_EQ(a->segmentClips.size(), 5u);
    const int kept[] = {2, 4, 5, 6, 7};
    for (int k = 0; k < 5; ++k) {
        EXPECT_EQ(a->occlusionIntervals[k], Tag(kept[k])) << k;
        EXPECT_EQ(a->segmentClips[k].wStart, static_cast<float>(kept[k])) << k;
    }
    EXPECT_EQ(a->segmentFlags, (std::vector<bool>{false, false, true, false, true}));
    EXPECT_EQ(Indices(*b), bIndices);
    EXPECT_EQ(b->VBuffer->Position3(0), q);
}

// The copies that split normals give a crease: the first of equal segments
// stays, with its own data; ends one ulp apart, NaN ends and bad indices
// stay as they are.
TEST(CommonSegments, DuplicatesWithinASetGoOnceEach) {
    const float nan = std::nanf("");
    const V3 p(0, 0, 0), q(1, 0, 0), r(1, 1, 0);
    // 0 p-q, 1 q-r, 2 q-p, 3 p-q, 4 r-(q one ulp off), 5 NaN-p, 6 NaN-p,
    // 7 an index past the buffer, 8 q-r from other vertices at equal positions.
    const SetPointer set = ctr_test::LineSet({p, q, r, V3(std::nextafter(1.0f, 2.0f), 0, 0), V3(nan, 0, 0), q, r},
                                   {0, 1, 1, 2, 1, 0, 0, 1, 2, 3, 4, 0, 4, 0, 0, 40, 6, 5});
    for (int k = 0; k < 9; ++k) {
        set->occlusionIntervals.push_back(Tag(k));
        set->segmentClips.push_back(Clip(k));
    }
    EXPECT_EQ(LineSegmentSet::RemoveDuplicateSegments(set), 3);
    EXPECT_EQ(Indices(*set), (std::vector<unsigned>{0, 1, 1, 2, 2, 3, 4, 0, 4, 0, 0, 40}));
    const int kept[] = {0, 1, 4, 5, 6, 7};
    ASSERT_EQ(set->occlusionIntervals.size(), 6u);
    for (int k = 0; k < 6; ++k) {
        EXPECT_EQ(set->occlusionIntervals[k], Tag(kept[k])) << k;
        EXPECT_EQ(set->segmentClips[k].wStart, static_cast<float>(kept[k])) << k;
    }
    EXPECT_EQ(LineSegmentSet::RemoveDuplicateSegments(set), 0);
    EXPECT_EQ(LineSegmentSet::RemoveDuplicateSegments(nullptr), 0);
    EXPECT_EQ(LineSegmentSet::RemoveDuplicateSegments(SetPointer(new LineSegmentSet)), 0);
}

}  // namespace
