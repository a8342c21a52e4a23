// Intersection lines of baked triangles: the exact pair test, the occlusion
// of the lines and the drawable set, on small hand-checked scenes in a space
// whose grid coordinates are the world coordinates, and a cross-check of the
// hierarchy search against testing every pair on a real scene.
#include <algorithm>
#include <array>
#include <random>
#include <set>
#include <tuple>

#include "OcclusionReference.h"
#include "TestSupport.h"
#include "ctr/TrianglesIntersection.h"
#include "ctr/drawing/ThreadPool.h"
#include "exact/Exact.h"
#include "visibility/IntersectionInternal.h"

namespace {

using V3 = Wm4::Vector3<float>;
using ctr::BakedVertex;
using ctr_test::Int128;
using Internal = ctr::TrianglesIntersection::tInternal;
using Record = Internal::tPointOnEdge;
using RI = ctr::RationalInterval;
using SetPointer = qe::qePointer<ctr::LineSegmentSet>;

// Identity matrices over the cube 0 .. 2^20 - 1: grid coordinates equal the
// integer world coordinates. Each group of three points is one triangle.
struct Scene {
    ctr::DiscreteProjectionSpace space;
    ctr::BakedTriangles triangles;
    qe::qePointer<qe::qeTriMesh> mesh;

    explicit Scene(const std::vector<V3>& corners) {
        const float range = 1048575.0f;
        space.setDomain(V3(0, 0, 0), V3(range, range, range));
        space.updateRatios();
        std::vector<unsigned> indices(corners.size());
        for (unsigned i = 0; i < indices.size(); ++i) indices[i] = i;
        mesh = ctr_test::MakeMesh(corners, indices);
        triangles.setProjectionSpace(&space);
        triangles.setMeshes({mesh});
        triangles.initialize();
        EXPECT_EQ(triangles.getTriangleQuantity(), corners.size() / 3);
    }
    // The edges found with triangle `first` and every partner above it, or
    // (with first = -1) by the whole search.
    Internal::tEdgeList edges(int first = -1) const {
        ctr::TrianglesIntersection intersection(triangles);
        Internal::tEdgeList list;
        if (first < 0)
            intersection.getInternal().findIntersectionEdges(list);
        else
            intersection.getInternal().findTriangleIntersections(static_cast<unsigned>(first), list);
        return list;
    }
    SetPointer lines() const { return ctr::TrianglesIntersection(triangles).computeIntersectionEdges(); }
};

// Two triangles crossing like an X along y = 450.25, z = y, between x = 300
// and 699 on the grid (A: plane z = y; B: tilted one unit further).
const std::vector<V3> kCrossA = {V3(100, 100, 100), V3(900, 100, 100), V3(500, 800, 800)};
std::vector<V3> CrossB(float shiftX) {
    return {V3(100 + shiftX, 800, 100), V3(900 + shiftX, 800, 100), V3(500 + shiftX, 100, 801)};
}
std::vector<V3> Join(std::vector<V3> a, const std::vector<V3>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
std::vector<V3> Shifted(std::vector<V3> corners, const V3& by) {
    for (V3& c : corners) c += by;
    return corners;
}

std::pair<BakedVertex, BakedVertex> Ends(const Internal::tEdge& edge) { return {edge.first.point, edge.second.point}; }

// The record's exact crossing lies on the plane of the given triangle, its
// parameter in (0, 1] and its grid point is the floor of the exact point
// (computed here by 128-bit division, not by the library's search).
void ExpectExactRecord(const Record& r, const ctr::BakedTriangles& baked, uint32_t plane) {
    ASSERT_GT(r.denominator, 0);
    EXPECT_TRUE(r.numerator > 0 && r.numerator <= r.denominator);
    const BakedVertex& p0 = baked.getVertices()[baked.getTriangles()[3 * plane]];
    const auto coordinates = [](const BakedVertex& v) { return std::array<int32_t, 3>{v.x, v.y, v.z}; };
    const auto s = coordinates(r.edgeStart), e = coordinates(r.edgeEnd), g = coordinates(r.point), o = coordinates(p0);
    Int128 onPlane = 0;
    for (int axis = 0; axis < 3; ++axis) {
        const Int128 scaled = Int128(s[axis]) * r.denominator + Int128(e[axis] - s[axis]) * r.numerator;
        const Int128 floor = scaled / r.denominator - (scaled % r.denominator < 0 ? 1 : 0);
        EXPECT_TRUE(Int128(g[axis]) == floor) << "axis " << axis;
        onPlane += (scaled - Int128(o[axis]) * r.denominator) * baked.getPlanes()[plane][axis];
    }
    EXPECT_TRUE(onPlane == 0);
}

TEST(TriangleIntersection, CrossingPairs) {
    // Crossing at y = 630800 / 1401: A spans x 300.14 .. 699.86, B 299.86 ..
    // 700.14, so both ends come from A and are rounded down.
    const Scene x(Join(kCrossA, CrossB(0)));
    const auto edges = x.edges();
    ASSERT_EQ(edges.size(), 1u);
    EXPECT_EQ(Ends(edges.front()), std::make_pair(BakedVertex{300, 450, 450}, BakedVertex{699, 450, 450}));
    for (const Record* r : {&edges.front().first, &edges.front().second}) ExpectExactRecord(*r, x.triangles, 1);

    // B moved along x: disjoint, touching in one grid coordinate (699), and
    // overlapping by one unit (the start then comes from B).
    EXPECT_TRUE(Scene(Join(kCrossA, CrossB(1000))).edges().empty());
    EXPECT_TRUE(Scene(Join(kCrossA, CrossB(400))).edges().empty());
    const auto overlap = Scene(Join(kCrossA, CrossB(399))).edges();
    ASSERT_EQ(overlap.size(), 1u);
    EXPECT_EQ(Ends(overlap.front()), std::make_pair(BakedVertex{698, 450, 450}, BakedVertex{699, 450, 450}));
}

TEST(TriangleIntersection, TouchingAndCoplanarPairs) {
    // A shared edge with the triangles folded against each other, and two
    // coplanar overlapping triangles (both in z = y).
    EXPECT_TRUE(Scene({V3(100, 300, 100), V3(500, 300, 100), V3(300, 600, 300), V3(100, 300, 100), V3(500, 300, 100),
                       V3(300, 50, 400)})
                    .edges()
                    .empty());
    EXPECT_TRUE(Scene(Join(kCrossA, Shifted(kCrossA, V3(50, 20, 20)))).edges().empty());
    // A vertex one unit through a wide triangle at depth 500 crosses it
    // along x 1000 .. 1004; lying exactly on that plane it does not.
    const std::vector<V3> wall = {V3(0, 0, 500), V3(4000, 0, 500), V3(0, 4000, 500)};
    const auto pierce = Scene(Join(wall, {V3(0, 1000, 0), V3(2004, 1000, 0), V3(1002, 1200, 501)})).edges();
    ASSERT_EQ(pierce.size(), 1u);
    EXPECT_EQ(Ends(pierce.front()), std::make_pair(BakedVertex{1000, 1199, 500}, BakedVertex{1004, 1199, 500}));
    EXPECT_TRUE(Scene(Join(wall, {V3(0, 1000, 0), V3(2004, 1000, 0), V3(1002, 1200, 500)})).edges().empty());
}

TEST(TriangleIntersection, EachPairOnce) {
    // Triangles 0 and 1 cross, and so do 2 and 3, moved away along x.
    const V3 away(2000, 0, 0);
    const Scene scene(Join(Join(kCrossA, CrossB(0)), Join(Shifted(kCrossA, away), Shifted(CrossB(0), away))));
    EXPECT_EQ(scene.edges(2).size(), 1u);
    EXPECT_TRUE(scene.edges(3).empty());
    EXPECT_EQ(scene.edges().size(), 2u);
}

// The pair test as plainly as it can be put: every crossing floored on every
// axis by 128-bit division, then the comparison along the axis of larger
// spread. The library's test takes shortcuts (estimates that reject without
// floors, floors only where they decide), which must not change a result.
// floor(p + (q - p) n / d) by 128-bit division.
int32_t ReferenceFloorAlong(int32_t p, int32_t q, int64_t n, int64_t d) {
    const Int128 product = Int128(int64_t{q} - p) * n;
    Int128 quotient = product / d;
    if (product % d != 0 && product < 0) --quotient;
    return static_cast<int32_t>(p + quotient);
}

// The comparison of four floored crossings (0, 1 of the first triangle, 2, 3
// of the other) along the axis of larger spread: true, with the slots of the
// common segment's ends, when there is one.
bool ReferenceCompare(const Record (&slot)[4], int& from, int& to) {
    int64_t spread[2];
    for (int axis = 0; axis < 2; ++axis) {
        std::array<int32_t, 4> c;
        for (int s = 0; s < 4; ++s) c[s] = axis == 0 ? slot[s].point.x : slot[s].point.y;
        spread[axis] = int64_t{*std::max_element(c.begin(), c.end())} - *std::min_element(c.begin(), c.end());
    }
    if (spread[0] == 0 && spread[1] == 0) return false;
    const auto c = [&](int s) { return spread[0] > spread[1] ? slot[s].point.x : slot[s].point.y; };
    const int lowA = c(1) < c(0) ? 1 : 0, lowB = c(3) < c(2) ? 3 : 2;
    from = c(lowB) >= c(lowA) ? lowB : lowA;
    to = c(5 - lowB) < c(1 - lowA) ? 5 - lowB : 1 - lowA;
    if (!(c(from) < c(to))) {
        std::swap(from, to);
        if ((from < 2) != (to < 2)) return false;
    }
    return true;
}

bool ReferencePair(const Internal::tTriangleData& a, const Internal::tTriangleData& b, Record& start, Record& end) {
    const auto floorAlong = ReferenceFloorAlong;
    const auto crossings = [&](const Internal::tTriangleData& t, const Internal::tTriangleData& plane, Record* out) {
        int64_t distance[3];
        bool below = false, above = false;
        for (int k = 0; k < 3; ++k) {
            distance[k] = ctr::exact::PlaneDistance(t.vertices[k], plane.vertices[0], plane.normal);
            below = below || distance[k] < 0;
            above = above || distance[k] > 0;
        }
        if (!below || !above) return false;
        int found = 0;
        for (int k = 0; k < 3 && found < 2; ++k) {
            const int64_t da = distance[k], db = distance[(k + 1) % 3];
            if (da == 0 || (db != 0 && (db < 0) == (da < 0))) continue;
            Record& r = out[found++];
            r.edgeStart = t.vertices[k];
            r.edgeEnd = t.vertices[(k + 1) % 3];
            r.numerator = da > 0 ? da : -da;
            r.denominator = da > 0 ? da - db : db - da;
            r.point = BakedVertex{floorAlong(r.edgeStart.x, r.edgeEnd.x, r.numerator, r.denominator),
                                  floorAlong(r.edgeStart.y, r.edgeEnd.y, r.numerator, r.denominator),
                                  floorAlong(r.edgeStart.z, r.edgeEnd.z, r.numerator, r.denominator)};
        }
        return true;
    };
    Record slot[4];
    if (!crossings(a, b, slot) || !crossings(b, a, slot + 2)) return false;
    int from, to;
    if (!ReferenceCompare(slot, from, to)) return false;
    start = slot[from];
    end = slot[to];
    return true;
}

// The library's pair test against the reference on every accepted grid, on
// pairs made to sit near the shortcuts' edges: small triangles packed in a
// few cells, pairs sharing a corner (crossing segments that meet in it),
// copies shifted by a unit or two (segments that nearly touch), and random
// pairs reaching the corners of the grid box.
TEST(TriangleIntersection, PairTestMatchesPlainFloorsOnEveryGrid) {
    std::mt19937_64 random(21);
    std::vector<std::pair<int64_t, int64_t>> grids{{1 << 20, 1 << 20}};
    for (int xy = 1; xy <= 28; ++xy)
        grids.emplace_back(int64_t{1} << xy, 59 - 2 * xy >= 31 ? INT32_MAX : int64_t{1} << (59 - 2 * xy));
    const auto clampTo = [](int64_t v, int64_t range) { return static_cast<int32_t>(std::clamp<int64_t>(v, 0, range)); };
    int hits = 0;
    for (const auto& [xy, z] : grids) {
        SCOPED_TRACE(testing::Message() << "grid " << xy << " x " << z);
        const auto draw = [&](int64_t range) { return static_cast<int64_t>(random() % static_cast<uint64_t>(range + 1)); };
        for (int i = 0; i < 4000; ++i) {
            // Triangles in a cube of side 2^k around a random centre.
            const int64_t side = int64_t{1} << (random() % 40);
            const BakedVertex centre{clampTo(draw(xy), xy), clampTo(draw(xy), xy), clampTo(draw(z), z)};
            const auto near = [&]() {
                const auto off = [&](int64_t range) { return static_cast<int64_t>(random() % uint64_t(2 * std::min(side, range) + 1)) - std::min(side, range); };
                return BakedVertex{clampTo(centre.x + off(xy), xy), clampTo(centre.y + off(xy), xy),
                                   clampTo(centre.z + off(z), z)};
            };
            Internal::tTriangleData t[2];
            for (auto& v : t[0].vertices) v = near();
            for (auto& v : t[1].vertices) v = near();
            switch (i % 4) {
                case 1:  // a shared corner
                    t[1].vertices[random() % 3] = t[0].vertices[random() % 3];
                    break;
                case 2:  // a copy, turned and shifted by up to two units per axis
                    for (int k = 0; k < 3; ++k) {
                        const BakedVertex& v = t[0].vertices[(k + 1) % 3];
                        const auto shift = [&]() { return static_cast<int64_t>(random() % 5) - 2; };
                        t[1].vertices[k] = BakedVertex{clampTo(v.x + shift(), xy), clampTo(v.y + shift(), xy),
                                                       clampTo(v.z + shift(), z)};
                    }
                    break;
                case 3:  // corners of the grid box
                    for (auto& v : t[1].vertices)
                        v = BakedVertex{clampTo(random() % 2 ? xy : 0, xy), clampTo(random() % 2 ? xy : 0, xy),
                                        clampTo(random() % 2 ? z : 0, z)};
                    break;
                default:
                    break;
            }
            for (int k = 0; k < 2; ++k) {
                t[k].normal = ctr::exact::PlaneRecord(t[k].vertices[0], t[k].vertices[1], t[k].vertices[2]);
                t[k].index = static_cast<uint32_t>(k);
            }
            Record s, e, rs, re;
            const bool found = Internal::testTrianglePair(t[0], t[1], s, e);
            const bool expected = ReferencePair(t[0], t[1], rs, re);
            ASSERT_EQ(found, expected) << i;
            hits += found;
            if (!found) continue;
            for (const auto& [got, want] : {std::pair<const Record*, const Record*>{&s, &rs}, {&e, &re}}) {
                ASSERT_EQ(got->point, want->point) << i;
                ASSERT_EQ(got->edgeStart, want->edgeStart) << i;
                ASSERT_EQ(got->edgeEnd, want->edgeEnd) << i;
                ASSERT_EQ(got->numerator, want->numerator) << i;
                ASSERT_EQ(got->denominator, want->denominator) << i;
            }
        }
    }
    EXPECT_GT(hits, 1000);
}

// The rejection by estimates at its ties: crossings built to lie within
// 2^-40 or less of grid points a unit or two apart, on the grid of 20 bits and
// the widest screen grid. Whenever the estimates reject, the comparison of
// the floored points must find no common segment.
TEST(TriangleIntersection, EstimatesRejectOnlyWhatFloorsReject) {
    std::mt19937_64 random(22);
    const auto draw = [&](int64_t low, int64_t high) {
        return std::uniform_int_distribution<int64_t>(low, high)(random);
    };
    int rejected = 0, kept = 0;
    for (const int64_t range : {int64_t{1} << 20, int64_t{1} << 28}) {
        for (int i = 0; i < 40000; ++i) {
            BakedVertex ends[4][2];
            Internal::tCrossing slot[4];
            Record record[4];
            const int64_t base = draw(1 << 12, range - (1 << 12)), baseY = draw(1 << 12, range - (1 << 12));
            for (int s = 0; s < 4; ++s) {
                // x = a.x + span t lands near the target k, y = a.y + r span t
                // near the target kY: t = (k - a.x) / span + delta / (span m).
                const int64_t k = base + draw(-2, 2), kY = baseY + draw(-2, 2);
                const int64_t span = draw(1, 1000);
                const int64_t r = draw(-2, 2);
                const int64_t ax = k - draw(0, span), ay = kY - r * (k - ax);
                const int64_t m = draw(1, (int64_t{1} << 62) / span);
                const int64_t d = span * m;
                int64_t n = std::clamp<int64_t>((k - ax) * m + draw(-3, 3), 1, d);
                if (draw(0, 9) == 0) n = d;
                BakedVertex a{int32_t(ax), int32_t(ay), int32_t(draw(0, 1000))};
                BakedVertex b{int32_t(ax + span), int32_t(ay + r * span), int32_t(draw(0, 1000))};
                // Half the edges run the other way: the parameter from b.
                if (random() % 2) {
                    std::swap(a, b);
                    n = d - n;
                    if (n == 0) n = d;
                }
                ends[s][0] = a;
                ends[s][1] = b;
                slot[s] = Internal::tCrossing{&ends[s][0], &ends[s][1], n, d};
                record[s].point =
                    BakedVertex{ReferenceFloorAlong(a.x, b.x, n, d), ReferenceFloorAlong(a.y, b.y, n, d), 0};
            }
            int from, to;
            if (Internal::crossingsApart(slot)) {
                ++rejected;
                ASSERT_FALSE(ReferenceCompare(record, from, to)) << i;
            } else {
                kept += ReferenceCompare(record, from, to);
            }
        }
    }
    EXPECT_GT(rejected, 5000);
    EXPECT_GT(kept, 5000);
}

// An X pair meeting exactly at x 300 .. 700, y = 450, depth 1450, then the
// given triangles (numbered from 2). The occluder planes used with it rise as
// 10 + 1.3 y: in front of the pair wherever they overlap on screen, and deep
// enough at y = 1200 that their boxes reach the edge's depth, which the
// occlusion query's box requires.
const std::vector<V3> kExactB = {V3(100, 800, 100), V3(900, 800, 100), V3(500, 100, 800)};
Scene ExactCross(const std::vector<V3>& more) {
    const V3 deeper(0, 0, 1000);
    return Scene(Join(Join(Shifted(kCrossA, deeper), Shifted(kExactB, deeper)), more));
}

// A pair (triangles 0 and 1), one more triangle (number 2), the pair's edge.
struct Occluded {
    Scene scene;
    Internal::tEdge edge;
    Occluded(const std::vector<V3>& b, const std::vector<V3>& third) : scene(Join(Join(kCrossA, b), third)) {
        const ctr::TrianglesIntersection intersection(scene.triangles);
        const Internal& internal = intersection.getInternal();
        EXPECT_TRUE(internal.testTriangleIntersection(internal.getTriangleData(0), 1, edge.first, edge.second));
    }
    bool hidesBy(unsigned triangle, Wm4::Vector2<long>& a, Wm4::Vector2<long>& b) const {
        return ctr::TrianglesIntersection(scene.triangles)
            .getInternal()
            .computeTriangleEdgeOcclusion(edge, triangle, a, b);
    }
    std::vector<RI> hidden() const {
        std::vector<RI> list;
        ctr::TrianglesIntersection(scene.triangles).getInternal().computeEdgeOcclusion(edge, list);
        return list;
    }
};

TEST(IntersectionOcclusion, SingleOccluders) {
    Wm4::Vector2<long> a, b;
    // In the plane z = y of A, covering the edge on screen.
    const Occluded coplanar(CrossB(0), {V3(0, 0, 0), V3(2000, 0, 0), V3(0, 2000, 2000)});
    for (unsigned t : {0u, 1u, 2u}) EXPECT_FALSE(coplanar.hidesBy(t, a, b)) << t;
    EXPECT_TRUE(coplanar.hidden().empty());

    // Wholly in front of it: the walk reaches it although its depth range
    // lies wholly in front.
    const Occluded front(CrossB(0), {V3(0, 0, 10), V3(3000, 0, 10), V3(0, 3000, 10)});
    ASSERT_TRUE(front.hidesBy(2, a, b));
    EXPECT_EQ(std::make_tuple(a[0], a[1], b[0], b[1]), std::make_tuple(0L, 1L, 1L, 1L));
    EXPECT_EQ(front.hidden(), (std::vector<RI>{{0, 1, 1, 1}}));

    // Depth 950 - x: the edge (x 300.143 .. 699.857 at depth 450.250)
    // passes behind it at x = 499.750.
    const Occluded slanted(CrossB(0), {V3(100, 0, 850), V3(900, 0, 50), V3(100, 2000, 850)});
    ASSERT_TRUE(slanted.hidesBy(2, a, b));
    EXPECT_EQ(b[0], b[1]);
    EXPECT_NEAR(static_cast<double>(a[0]) / static_cast<double>(a[1]), (499.7502 - 300.1428) / 399.7144, 1e-4);

    // The side line x = 300 of the occluder passes through one end exactly.
    const Occluded touching(kExactB, {V3(0, 0, 10), V3(300, 0, 10), V3(300, 900, 10)});
    ASSERT_EQ(touching.edge.first.point.x, 300);
    EXPECT_FALSE(touching.hidesBy(2, a, b));
}

TEST(IntersectionLines, VisiblePieces) {
    // Hidden nowhere: the grid ends, in world space (equal to grid space here).
    SetPointer set = Scene(Join(kCrossA, CrossB(0))).lines();
    ASSERT_NE(set, nullptr);
    ASSERT_EQ(set->VBuffer->GetVertexQuantity(), 2);
    EXPECT_EQ(std::make_pair(set->VBuffer->Position3(0), set->VBuffer->Position3(1)),
              std::make_pair(V3(300, 450, 450), V3(699, 450, 450)));

    // Hidden on [0, 1/4] (left of x = 400) and [1/4, 1/2] (x 400 .. 500):
    // merged, they leave x 500 .. 700.
    const Scene split = ExactCross({V3(0, 0, 10), V3(400, 0, 10), V3(400, 1200, 1570),  //
                                    V3(400, 0, 10), V3(500, 450, 595), V3(400, 1200, 1570)});
    const auto edges = split.edges();
    ASSERT_EQ(edges.size(), 1u);
    std::vector<RI> hidden;
    ctr::TrianglesIntersection(split.triangles).getInternal().computeEdgeOcclusion(edges.front(), hidden);
    EXPECT_EQ(ctr_test::Canonical(hidden, true), (std::vector<RI>{{0, 1, 1, 4}, {1, 4, 1, 2}}));
    set = split.lines();
    ASSERT_NE(set, nullptr);
    ASSERT_EQ(set->getSegmentQuantity(), 1);
    EXPECT_EQ(std::make_pair(set->VBuffer->Position3(0), set->VBuffer->Position3(1)),
              std::make_pair(V3(500, 450, 1450), V3(700, 450, 1450)));

    // Covered wholly: nothing to draw.
    EXPECT_EQ(ExactCross({V3(0, 0, 10), V3(3000, 0, 10), V3(0, 1200, 1570)}).lines(), nullptr);
}

// The hierarchy search against every pair i < j tested directly, on a real
// scene of two interpenetrating meshes.
void CrossCheckScene(unsigned xyBits, unsigned zBits, size_t minimumEdges) {
    contour::ImportedModel model;
    std::string error;
    ASSERT_TRUE(contour::ImportModel(ctr_test::ModelPath("scenes/two_balls_intersecting.obj"), model, error)) << error;
    qe::qeBBox bound;
    for (const auto& mesh : model.meshes) bound.include(mesh->WorldBound);
    const V3 center = bound.center();
    const float radius = (bound.Max - bound.Min).Length() * 0.5f;
    ctr::DiscreteProjectionSpace space;
    ASSERT_TRUE(space.setVoxelBitSize(xyBits, zBits));
    // Orthographic, with the depth range just holding the scene: even eight
    // depth levels then leave pairs that cross.
    const V3 direction = V3(0.4f, 0.5f, 0.8f) / V3(0.4f, 0.5f, 0.8f).Length();
    ctr_test::OrthoCamera(space, center + direction * (2.0f * radius), center, 1.1f * radius, radius, 0.95f * radius,
                          3.05f * radius);
    ctr::BakedTriangles baked;
    baked.setProjectionSpace(&space);
    baked.setMeshes(model.meshList());
    baked.initialize();
    const uint32_t count = baked.getTriangleQuantity();
    ASSERT_GT(count, 1000u);

    ctr::TrianglesIntersection intersection(baked);
    const Internal& internal = intersection.getInternal();
    Internal::tEdgeList found;
    internal.findIntersectionEdges(found);
    ASSERT_GT(found.size(), minimumEdges);

    using Key = std::tuple<int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, int64_t, int64_t>;
    const auto key = [](const Internal::tEdge& e) {
        return Key(e.first.point.x, e.first.point.y, e.first.point.z, e.second.point.x, e.second.point.y,
                   e.second.point.z, e.first.numerator, e.second.denominator);
    };
    std::vector<Key> viaHierarchy, direct;
    for (const auto& e : found) viaHierarchy.push_back(key(e));
    for (uint32_t i = 0; i < count; ++i) {
        const Internal::tTriangleData first = internal.getTriangleData(i);
        for (uint32_t j = i + 1; j < count; ++j) {
            Internal::tEdge e;
            if (internal.testTriangleIntersection(first, j, e.first, e.second)) direct.push_back(key(e));
        }
    }
    std::sort(viaHierarchy.begin(), viaHierarchy.end());
    std::sort(direct.begin(), direct.end());
    EXPECT_EQ(viaHierarchy, direct);

    // Occlusion and the set run over every edge; the set lies where the
    // model is, give or take one depth cell of the grid.
    const SetPointer set = intersection.computeIntersectionEdges();
    ASSERT_NE(set, nullptr);
    EXPECT_GT(set->getSegmentQuantity(), static_cast<int>(minimumEdges / 2));
    const float margin = 2.1f * radius / static_cast<float>(1u << zBits) + 0.01f * radius;
    for (int i = 0; i < set->VBuffer->GetVertexQuantity(); ++i) {
        const V3& p = set->VBuffer->Position3(i);
        for (int axis = 0; axis < 3; ++axis)
            EXPECT_TRUE(p[axis] >= bound.Min[axis] - margin && p[axis] <= bound.Max[axis] + margin) << i;
    }
}

TEST(IntersectionLines, HierarchyMatchesEveryPairOnRealScene) {
    CrossCheckScene(20, 19, 100);
    // The widest screen grid: the products of the exact tests reach their
    // bit budget.
    CrossCheckScene(28, 3, 5);
}

// Hide-only panels facing the camera in front of two interpenetrating balls,
// one over the screen left of x = kEdge (through the intersection lines) and
// one over all of it. The reference is the segments before the step, cut by hand
// on screen at the panel's edge: what lies left of it goes from the visible
// to the hidden pieces, nothing else moves, and any executor gives the same
// points.
TEST(IntersectionLines, OccludersHideThemToo) {
    contour::ImportedModel model = ctr_test::LoadModel("scenes/two_balls_intersecting.obj");
    const std::vector<const qe::qeTriMesh*> balls = model.meshList();
    const ctr_test::Bounds b = ctr_test::MeshBounds(balls);
    const V3 up(0, 1, 0), direction = V3(0.4f, 0.5f, 0.8f) / V3(0.4f, 0.5f, 0.8f).Length();
    const V3 right = (-direction).Cross(up) / (-direction).Cross(up).Length(), upward = right.Cross(-direction);
    ctr::DiscreteProjectionSpace space;
    ctr_test::OrthoCamera(space, b.centre + direction * (2 * b.radius), b.centre, 1.1f * b.radius, b.radius,
                          0.9f * b.radius, 3.1f * b.radius);
    // Its right edge at NDC x = edge (the centre is at 0, the window 1.1 r wide).
    constexpr float kEdge = -0.06f;
    const auto panel = [&](float edge) {
        const V3 c = b.centre + direction * (1.05f * b.radius), r = right * (1.1f * b.radius),
                 u = upward * (2 * b.radius);
        return ctr_test::MakeMesh({c - r * 2 - u, c + r * edge - u, c + r * edge + u, c - r * 2 + u},
                                  {0, 1, 2, 0, 2, 3});
    };
    const qe::qePointer<qe::qeTriMesh> leftHalf = panel(kEdge), whole = panel(2.0f);

    struct Drawn {
        SetPointer visible, hidden;
    };
    const auto draw = [&](const qe::qeTriMesh* occluder, ctr::Executor* executor) {
        ctr::GeometricFeaturesGenerator generator;
        generator.setProjectionSpace(space);
        generator.setExecutor(executor);
        std::vector<const qe::qeTriMesh*> occluders;
        if (occluder) occluders.push_back(occluder);
        generator.setSingleExportCluster(balls, &occluders);
        ctr::GeometricFeatures features;
        Drawn drawn;
        generator.computeGeometricFeatures(features, 0, true, &drawn.hidden);
        const ctr::LineSegmentSet* before = features.intersectionEdges;
        EXPECT_TRUE(generator.hideIntersectionsBehindOccluders(features, 0, &drawn.hidden));
        if (!occluder) {
            EXPECT_EQ(features.intersectionEdges.get(), before);
        }
        drawn.visible = features.intersectionEdges;
        return drawn;
    };
    // Screen length of a set's segments, left and right of the panel's edge,
    // and the greatest distance from the edge of an end that is not an end of
    // a segment of the sets given as old.
    const Wm4::Matrix4<float>& toClip = space.getWorldToClip();
    const auto screen = [&](const V3& p) {
        const auto at = [&](int j) {
            return p[0] * toClip[0][j] + p[1] * toClip[1][j] + p[2] * toClip[2][j] + toClip[3][j];
        };
        return std::array<double, 2>{at(0) / at(3) - kEdge, at(1) / at(3)};
    };
    const auto ends = [&](const SetPointer& set) {
        std::vector<std::array<std::array<double, 2>, 2>> out;
        for (int s = 0; set && s < set->getSegmentQuantity(); ++s)
            out.push_back({screen(set->VBuffer->Position3(int(set->IBuffer->GetData()[2 * s]))),
                           screen(set->VBuffer->Position3(int(set->IBuffer->GetData()[2 * s + 1])))});
        return out;
    };
    struct Ink {
        double left = 0, right = 0, cut = 0;
    };
    const auto ink = [&](const SetPointer& set, std::initializer_list<SetPointer> cutFrom) {
        std::set<std::array<double, 2>> old;
        for (const SetPointer& from : cutFrom)
            for (const auto& e : ends(from)) old.insert(e.begin(), e.end());
        Ink out;
        for (const auto& [p, q] : ends(set)) {
            const double length = std::hypot(q[0] - p[0], q[1] - p[1]);
            // The share of the segment left of x = 0.
            const double left =
                (p[0] < 0) == (q[0] < 0) ? (p[0] < 0 ? 1.0 : 0.0) : (p[0] < 0 ? p[0] : q[0]) / -std::abs(p[0] - q[0]);
            out.left += left * length;
            out.right += (1 - left) * length;
            for (const auto& e : {p, q})
                if (!old.count(e)) out.cut = std::max(out.cut, std::abs(e[0]));
        }
        return out;
    };

    const Drawn open = draw(nullptr, nullptr);
    ASSERT_NE(open.visible, nullptr);
    const Ink seen = ink(open.visible, {}), hidden = ink(open.hidden, {});
    ASSERT_GT(seen.left, 0.1);
    ASSERT_GT(seen.right, 0.1);
    // The cuts are placed to within a grid cell (NDC units: the grid spans 2).
    const double cell = 2.0 / double(1 << 20), slack = 16 * cell;

    const Drawn half = draw(leftHalf, nullptr);
    ASSERT_NE(half.visible, nullptr);
    const Ink halfSeen = ink(half.visible, {open.visible}), halfHidden = ink(half.hidden, {open.visible, open.hidden});
    EXPECT_NEAR(halfSeen.left, 0.0, slack);
    EXPECT_NEAR(halfSeen.right, seen.right, slack);
    EXPECT_NEAR(halfHidden.left + halfHidden.right, hidden.left + hidden.right + seen.left, slack);
    // A new end lies on the panel's edge, give or take the grid.
    EXPECT_LT(halfSeen.cut, 2 * cell);
    EXPECT_LT(halfHidden.cut, 2 * cell);

    const Drawn covered = draw(whole, nullptr);
    EXPECT_EQ(covered.visible, nullptr);
    const Ink allHidden = ink(covered.hidden, {open.visible, open.hidden});
    EXPECT_NEAR(allHidden.left + allHidden.right, hidden.left + hidden.right + seen.left + seen.right, slack);

    contour::ThreadPool pool(2);
    const Drawn parallel = draw(leftHalf, &pool);
    EXPECT_EQ(ends(parallel.visible), ends(half.visible));
    EXPECT_EQ(ends(parallel.hidden), ends(half.hidden));
}

}  // namespace
