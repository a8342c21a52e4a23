// The camera, clipping and quantisation of the discrete projection space, and
// the float-to-integer conversions and fraction comparison beneath it.
#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "ctr/DiscreteProjectionSpace.h"
#include "projection/ExactArithmetic.h"

namespace {

using V3 = Wm4::Vector3<float>;
using V4 = Wm4::Vector4<float>;
using Polygon = std::vector<V4>;

constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr unsigned int kCapacity = ctr::DiscreteProjectionSpace::kMaxClipVertices;

// Grid coordinates must stay in [0, getGridLimit(axis)] whatever the camera.
void ExpectOnGrid(const ctr::DiscreteProjectionSpace& space, const ctr::BakedVertex& v) {
    const int32_t coordinates[3] = {v.x, v.y, v.z};
    for (int axis = 0; axis < 3; ++axis) {
        EXPECT_GE(coordinates[axis], 0) << "axis " << axis;
        EXPECT_LE(coordinates[axis], space.getGridLimit(axis)) << "axis " << axis;
    }
}

// What clipEdgeWorld returns and writes; the defaults are sentinels that no
// call produces.
struct EdgeResult {
    float tA = -7.0f, tB = -7.0f;
    ctr::BakedVertex a{-7, -7, -7}, b{-7, -7, -7};
    float wA = -7.0f, wB = -7.0f;

    bool operator==(const EdgeResult& o) const {
        return tA == o.tA && tB == o.tB && a == o.a && b == o.b && wA == o.wA && wB == o.wB;
    }
};

void PrintTo(const EdgeResult& r, std::ostream* os) {
    *os << "t (" << r.tA << ", " << r.tB << ") a {" << r.a.x << ", " << r.a.y << ", " << r.a.z << "} b {" << r.b.x
        << ", " << r.b.y << ", " << r.b.z << "} w (" << r.wA << ", " << r.wB << ")";
}

EdgeResult ClipEdge(const ctr::DiscreteProjectionSpace& space, const V3& a, const V3& b) {
    EdgeResult r;
    const std::pair<float, float> t = space.clipEdgeWorld(a, b, r.a, r.b, r.wA, r.wB);
    r.tA = t.first;
    r.tB = t.second;
    return r;
}

bool IsRejected(const EdgeResult& r) { return r.tA == 1.0f && r.tB == 0.0f; }

// Runs clipTriangle on two buffers of exactly kCapacity vertices (heap-held,
// so the address sanitizer sees any overrun); result holds the polygon.
struct TriangleResult {
    bool kept = false;
    unsigned int count = 99;
    unsigned int codes = 99;
    Polygon polygon;
};

TriangleResult ClipTriangle(const ctr::DiscreteProjectionSpace& space, const V4& a, const V4& b, const V4& c) {
    Polygon first(kCapacity), second(kCapacity);
    first[0] = a;
    first[1] = b;
    first[2] = c;
    V4* polygon = first.data();
    V4* scratch = second.data();
    TriangleResult r;
    r.kept = space.clipTriangle(polygon, scratch, r.count, r.codes);
    if (r.kept && r.count <= kCapacity) r.polygon.assign(polygon, polygon + r.count);
    return r;
}

unsigned int CodeOf(unsigned int codes, unsigned int vertex) { return (codes >> (2 * vertex)) & 3u; }

// How many result vertices carry each code 0..3.
std::vector<unsigned int> CodeCounts(const TriangleResult& r) {
    std::vector<unsigned int> counts(4, 0);
    for (unsigned int i = 0; i < r.count; ++i) ++counts[CodeOf(r.codes, i)];
    return counts;
}

// ---------------------------------------------------------------------------
// Scales and bit sizes

TEST(ProjectionSpace, DefaultScalesAndCorners) {
    const ctr::DiscreteProjectionSpace space;
    // Identity matrices: one NDC unit is one world unit on both axes, the
    // cube is 2 wide, and the 20-bit range 2^20 - 1 = 1048575 spans it.
    const float half = 1048575.0f / 2.0f;  // 524287.5, exact in float
    EXPECT_EQ(space.getDiscreteScale(), V3(half, half, half));
    EXPECT_EQ(space.getGridLimit(0), 1 << 20);
    EXPECT_EQ(space.getGridLimit(2), 1 << 20);

    // With the identity camera world points are clip points with w = 1: the
    // cube corners land on 0 and on 2 * 524287.5 = 1048575; the centre on
    // 524287.5, truncated to 524287.
    const EdgeResult r = ClipEdge(space, V3(-1, -1, -1), V3(1, 1, 1));
    EXPECT_EQ(r.a, (ctr::BakedVertex{0, 0, 0}));
    EXPECT_EQ(r.b, (ctr::BakedVertex{1048575, 1048575, 1048575}));
    EXPECT_EQ(space.quantizeClipPoint(V4(0, 0, 0, 1)), (ctr::BakedVertex{524287, 524287, 524287}));
    // A homogeneous point is divided by its w first: (2, -2, 0, 2) is (1, -1, 0).
    EXPECT_EQ(space.quantizeClipPoint(V4(2, -2, 0, 2)), (ctr::BakedVertex{1048575, 0, 524287}));
}

TEST(ProjectionSpace, VoxelBitSizes) {
    // The bound is zBits + 2 * xyBits <= 59, with more than one bit per axis.
    // Refused: 60; one bit on an axis; sums that wrap in 32 bits and would
    // look small (2 + 2 * 2^31 = 2^32 + 2, 2^32 - 1 + 2 * 5 = 2^32 + 9).
    ctr::DiscreteProjectionSpace space;
    const V3 defaultScale = space.getDiscreteScale();
    const unsigned int refused[][2] = {{20, 20}, {1, 30}, {30, 1}, {0, 2}, {29, 2}, {0x80000000u, 2}, {5, 0xFFFFFFFFu}};
    for (const auto& bits : refused) {
        EXPECT_FALSE(space.setVoxelBitSize(bits[0], bits[1])) << bits[0] << "/" << bits[1];
        EXPECT_EQ(space.getXYBitSize(), 20u);
        EXPECT_EQ(space.getZBitSize(), 20u);
        EXPECT_EQ(space.getDiscreteScale(), defaultScale);
    }
    EXPECT_TRUE(space.setVoxelBitSize(20, 19));                // 59
    EXPECT_EQ(space.getDiscreteScale()[2], 524287.0f / 2.0f);  // (2^19 - 1) / 2

    // 28 + 28 + 3 = 59. 2^28 - 1 needs 28 significant bits and rounds to the
    // float 2^28, so the scale is 2^27 and the upper face quantises to 2^28
    // itself, one past the nominal range; the grid limit admits it.
    ctr::DiscreteProjectionSpace wide;
    ASSERT_TRUE(wide.setVoxelBitSize(28, 3));
    EXPECT_EQ(wide.getDiscreteScale()[0], 134217728.0f);
    EXPECT_EQ(wide.getDiscreteScale()[2], 3.5f);  // (2^3 - 1) / 2
    EXPECT_EQ(wide.getGridLimit(0), 268435456);
    EXPECT_EQ(wide.quantizeClipPoint(V4(1, -1, 1, 1)), (ctr::BakedVertex{268435456, 0, 7}));

    // 2 + 2 + 55 = 59 passes the budget, but a 32-bit grid cannot hold 55
    // bits: depth saturates at 2^31 - 1 and the upper face (scaled value
    // 2^31 as a float) is clamped there instead of overflowing.
    ctr::DiscreteProjectionSpace deep;
    ASSERT_TRUE(deep.setVoxelBitSize(2, 55));
    EXPECT_EQ(deep.getGridLimit(2), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(deep.quantizeClipPoint(V4(1, 1, 1, 1)), (ctr::BakedVertex{3, 3, std::numeric_limits<int32_t>::max()}));
}

TEST(ProjectionSpace, LongerSideGetsTheWholeRange) {
    // Orthographic view 4 wide and 2 high: one NDC unit is 2 world units in x
    // and 1 in y, so x gets the range 1048575 and y 2 * 1048575 / 4 =
    // 524287.5, both exact: scales 524287.5 and 262143.75 per NDC unit.
    ctr::DiscreteProjectionSpace space;
    const ctr_test::CameraMatrices camera =
        ctr_test::OrthoMatrices(V3(0, 0, 5), V3(0, 0, 0), V3(0, 1, 0), 2.0f, 1.0f, 0.1f, 100.0f);
    space.setViewProjection(camera.worldToClip, camera.clipToWorld);
    // Setting the matrices alone keeps the old scales.
    EXPECT_EQ(space.getDiscreteScale(), ctr::DiscreteProjectionSpace().getDiscreteScale());
    space.updateRatios();
    EXPECT_EQ(space.computeFrustumSizeXY(), Wm4::Vector2<float>(2.0f, 1.0f));
    EXPECT_EQ(space.getDiscreteScale()[0], 524287.5f);
    EXPECT_EQ(space.getDiscreteScale()[1], 262143.75f);
    // A grid step is 4 / 1048575 world units on both axes. The two inverse
    // scales are rounded quotients 2/1048575 and 4/1048575, which differ by
    // exactly a power of two, so the world steps agree bit for bit.
    EXPECT_EQ(space.getDiscreteInvScale()[0] * 2.0f, space.getDiscreteInvScale()[1] * 1.0f);

    // World (1, 0.5) is NDC (0.5, 0.5): 1.5 * 524287.5 = 786431.25 and
    // 1.5 * 262143.75 = 393215.625. The view's corner (2, 1) is the top of
    // both ranges.
    const EdgeResult r = ClipEdge(space, V3(1, 0.5f, 0), V3(2, 1, 0));
    EXPECT_EQ(r.a.x, 786431);
    EXPECT_EQ(r.a.y, 393215);
    EXPECT_EQ(r.b.x, 1048575);
    EXPECT_EQ(r.b.y, 524287);

    // A tall perspective view (aspect 1/2) takes the other branch: y gets the
    // whole range and x about half.
    ctr::DiscreteProjectionSpace tall;
    ctr_test::PerspectiveCamera(tall, V3(0, 0, 10), V3(0, 0, 0), 40.0f, 0.5f);
    EXPECT_EQ(tall.getDiscreteScale()[1], 524287.5f);
    EXPECT_NEAR(tall.getDiscreteScale()[0], 524287.5f / 2.0f, 1.0f);

    // An extremely flat view would give y less than one unit: it keeps 1.
    ctr::DiscreteProjectionSpace flat;
    ctr_test::OrthoCamera(flat, V3(0, 0, 5), V3(0, 0, 0), 1.0e6f, 1.0e-3f);
    EXPECT_EQ(flat.getDiscreteScale()[1], 0.5f);
    EXPECT_EQ(flat.quantizeClipPoint(V4(0, 1, 0, 1)).y, 1);
}

// ---------------------------------------------------------------------------
// Edge clipping. With the default identity camera a world point is its own
// clip point with w = 1, so the expected cuts below are worked out by hand;
// the coordinates are chosen so that every float step is exact.

TEST(ProjectionClipEdge, RejectedEdgesLeaveOutputsUntouched) {
    const ctr::DiscreteProjectionSpace space;
    // Both ends beyond max x.
    EdgeResult untouched;
    untouched.tA = 1.0f;
    untouched.tB = 0.0f;
    EXPECT_EQ(ClipEdge(space, V3(2, 0, 0), V3(3, 0.5f, 0)), untouched);

    // (3, 0) - (0, 3) lies on x + y = 3 and misses the cube, though neither
    // plane alone has both ends beyond it: the cut at max x leaves (1, 2) -
    // (0, 3), and that piece lies beyond max y. Still rejected, still untouched.
    EXPECT_EQ(ClipEdge(space, V3(3, 0, 0), V3(0, 3, 0)), untouched);
    EXPECT_EQ(ClipEdge(space, V3(0, 0, 1.5f), V3(0.5f, 0.5f, 4)), untouched);  // beyond far
}

TEST(ProjectionClipEdge, CutsMeasuredOnTheGivenEdge) {
    const ctr::DiscreteProjectionSpace space;
    // An end exactly on a plane is inside: no cut, t stays (0, 1).
    // Grid values are (ndc + 1) * 524287.5, truncated.
    EXPECT_EQ(ClipEdge(space, V3(1, 0.5f, 0), V3(-0.5f, 0, -1)),
              (EdgeResult{0, 1, {1048575, 786431, 524287}, {262143, 524287, 0}, 1, 1}));

    // a = (-9, -16), b = (7, 16): x = -9 + 16t, y = -16 + 32t. The edge
    // enters through min x at t = 1/2, point (-1, 0); it would leave through
    // max x at t = 5/8, point (1, 4), but leaves earlier through max y at
    // t = 17/32, point (-0.5, 1). Each cut is computed from the midpoint of
    // the current piece and lands on s = 0 or s = -1/4, so all is exact.
    // The ends land on the faces x = -1 and y = 1.
    EXPECT_EQ(ClipEdge(space, V3(-9, -16, 0.5f), V3(7, 16, 0.5f)),
              (EdgeResult{0.5f, 17.0f / 32.0f, {0, 524287, 786431}, {262143, 1048575, 786431}, 1, 1}));
    // Reversed, the same points come out swapped, at 1 - t.
    EXPECT_EQ(ClipEdge(space, V3(7, 16, 0.5f), V3(-9, -16, 0.5f)),
              (EdgeResult{15.0f / 32.0f, 0.5f, {262143, 1048575, 786431}, {0, 524287, 786431}, 1, 1}));
}

TEST(ProjectionClipEdge, PerspectiveDepthAndW) {
    // Eye at the origin looking down -z, near 1, far 100: clip w is the
    // distance in front of the eye.
    ctr::DiscreteProjectionSpace space;
    ctr_test::PerspectiveCamera(space, V3(0, 0, 0), V3(0, 0, -1), 60.0f, 1.0f, 1.0f, 100.0f);

    // Inside, no cut: w is the depth exactly (camera z times -1).
    EdgeResult r = ClipEdge(space, V3(0, 0, -2), V3(0.5f, 0.25f, -50));
    EXPECT_EQ(std::make_pair(r.tA, r.tB), std::make_pair(0.0f, 1.0f));
    EXPECT_EQ(std::make_pair(r.wA, r.wB), std::make_pair(2.0f, 50.0f));
    EXPECT_LT(r.a.z, r.b.z);  // smaller z is nearer

    // From behind the eye (w = -1) to depth 10: the near plane cuts where the
    // depth is 1, at t = 2/11; the cut end has w = 1 and the smallest depth.
    r = ClipEdge(space, V3(0, 0, 1), V3(0, 0, -10));
    EXPECT_NEAR(r.tA, 2.0f / 11.0f, 1e-6f);
    EXPECT_EQ(r.tB, 1.0f);
    EXPECT_NEAR(r.wA, 1.0f, 1e-5f);
    EXPECT_EQ(r.wB, 10.0f);
    EXPECT_EQ(r.a.x, 524287);
    EXPECT_LE(r.a.z, 1);

    // Beyond the far plane: cut at depth 100, t = (100 - 2) / (200 - 2).
    r = ClipEdge(space, V3(0, 0, -2), V3(0, 0, -200));
    EXPECT_NEAR(r.tB, 98.0f / 198.0f, 1e-6f);
    EXPECT_NEAR(r.wB, 100.0f, 1e-3f);
    EXPECT_GE(r.b.z, 1048575 - 1);

    // Wholly behind the eye: outside the near plane at both ends.
    EXPECT_TRUE(IsRejected(ClipEdge(space, V3(0, 0, 1), V3(0.5f, 0, 3))));
}

// Random edges of a few world units before a perspective camera, so that w
// varies strongly along them. At 28 bits the grid is finer than float
// resolution, so equal grid points mean bit-equal NDC values.
TEST(ProjectionClipEdge, RandomEdges) {
    ctr::DiscreteProjectionSpace space;
    ASSERT_TRUE(space.setVoxelBitSize(28, 3));
    ctr_test::PerspectiveCamera(space, V3(0, 0, 0), V3(0, 0, -1), 60.0f, 1.0f, 0.5f, 20.0f);
    std::mt19937 random(5);
    std::uniform_real_distribution<float> lateral(-6.0f, 6.0f);
    std::uniform_real_distribution<float> depth(-25.0f, 2.0f);
    size_t cut = 0;
    for (int trial = 0; trial < 3000; ++trial) {
        const V3 a(lateral(random), lateral(random), depth(random));
        const V3 b(lateral(random), lateral(random), depth(random));
        const EdgeResult r = ClipEdge(space, a, b);
        const EdgeResult reversed = ClipEdge(space, b, a);
        ASSERT_EQ(IsRejected(r), IsRejected(reversed));
        if (IsRejected(r)) continue;
        if (r.tA != 0.0f || r.tB != 1.0f) ++cut;
        ExpectOnGrid(space, r.a);
        ExpectOnGrid(space, r.b);
        EXPECT_LE(r.tA, r.tB);
        // Each cut is computed from the midpoint of the current piece, so it
        // cannot depend on which end is inside: reversal swaps the ends bit
        // for bit.
        EXPECT_EQ(reversed.a, r.b);
        EXPECT_EQ(reversed.b, r.a);
        EXPECT_EQ(reversed.wA, r.wB);
        EXPECT_EQ(reversed.wB, r.wA);
        // Clip space is an affine image of world space, so the parameters
        // apply to the world edge; only float rounding separates the two
        // routes (one unit of a 20-bit grid is 256 here).
        for (const auto& [t, expected] : {std::make_pair(r.tA, r.a), std::make_pair(r.tB, r.b)}) {
            const V3 p = a + (b - a) * t;
            const ctr::BakedVertex q = space.quantizeClipPoint(V4(p[0], p[1], p[2], 1.0f) * space.getWorldToClip());
            EXPECT_NEAR(q.x, expected.x, 4 * 256);
            EXPECT_NEAR(q.y, expected.y, 4 * 256);
        }
        if (HasFailure()) return;
    }
    EXPECT_GT(cut, 300u);
}

// ---------------------------------------------------------------------------
// Triangle clipping, in homogeneous clip coordinates.

TEST(ProjectionClipTriangle, InsideAndOneCornerOut) {
    const ctr::DiscreteProjectionSpace space;
    const V4 a(0, 0, 0, 1), b(0.5f, 0, 0, 1), c(0, 0.5f, 0, 1);
    TriangleResult r = ClipTriangle(space, a, b, c);
    ASSERT_TRUE(r.kept);
    EXPECT_EQ(r.count, 3u);
    EXPECT_EQ(r.codes, 57u);  // 1 | 2 << 2 | 3 << 4
    EXPECT_EQ(r.polygon, (Polygon{a, b, c}));

    // A corner on a plane is inside: still untouched.
    r = ClipTriangle(space, a, V4(1, 0, 0, 1), V4(0, -1, 1, 1));
    EXPECT_EQ(r.count, 3u);
    EXPECT_EQ(r.codes, 57u);

    // B beyond max x. Walking A, B, C: A is kept (code 1, edge C->A); A->B
    // crosses x = 1 at (1, 0), which ends a piece of A->B (code 2); B->C
    // crosses at (1, 0.5), ending the piece on the plane (code 0); C ends
    // B->C (code 3). Codes 1 | 2 << 2 | 0 << 4 | 3 << 6 = 201.
    const V4 beyond(2, 0, 0, 1), top(0, 1, 0, 1);
    r = ClipTriangle(space, a, beyond, top);
    ASSERT_TRUE(r.kept);
    ASSERT_EQ(r.count, 4u);
    EXPECT_EQ(r.codes, 201u);
    EXPECT_EQ(r.polygon, (Polygon{a, V4(1, 0, 0, 1), V4(1, 0.5f, 0, 1), top}));
    EXPECT_EQ(CodeCounts(r)[0], 1u);
}

TEST(ProjectionClipTriangle, Rejection) {
    const ctr::DiscreteProjectionSpace space;
    // All three corners beyond max x.
    EXPECT_FALSE(ClipTriangle(space, V4(2, 0, 0, 1), V4(3, 0, 0, 1), V4(2, 1, 0, 1)).kept);
    // Outside the cube though no plane has all three corners beyond it: the
    // triangle lies in x + y >= 3. After the cut at max x, every corner left
    // has y >= 2.
    EXPECT_FALSE(ClipTriangle(space, V4(3, 0, 0, 1), V4(0, 3, 0, 1), V4(3, 3, 0, 1)).kept);
    // Every corner behind the viewer (w < 0), with coordinates that an
    // affine test would call inside.
    EXPECT_FALSE(ClipTriangle(space, V4(0, 0, 0, -1), V4(0.5f, 0, 0, -1), V4(0, 0.5f, 0, -1)).kept);
}

TEST(ProjectionClipTriangle, ManyPlanes) {
    const ctr::DiscreteProjectionSpace space;
    // In the plane x + y + z = 0 the cube's section is the hexagon with
    // corners (1, -1, 0) and its permutations. A triangle with corners 1.5
    // times three alternate hexagon corners contains those three and has each
    // of its edges cutting off one of the other three: 3 + 2 * 3 = 9 corners,
    // six edges on planes and one piece of each triangle edge.
    TriangleResult r = ClipTriangle(space, V4(1.5f, -1.5f, 0, 1), V4(0, 1.5f, -1.5f, 1), V4(-1.5f, 0, 1.5f, 1));
    ASSERT_TRUE(r.kept);
    ASSERT_EQ(r.count, 9u);
    EXPECT_EQ(CodeCounts(r), (std::vector<unsigned int>{6, 1, 1, 1}));
    for (const V4& p : r.polygon) {
        EXPECT_EQ(p[3], 1.0f);
        for (int axis = 0; axis < 3; ++axis) EXPECT_LE(std::fabs(p[axis]), 1.0f + 1e-6f);
        EXPECT_NEAR(p[0] + p[1] + p[2], 0.0f, 1e-6f);
    }

    // A much larger triangle covers the whole hexagon: six corners, all on
    // planes.
    r = ClipTriangle(space, V4(10, -5, -5, 1), V4(-5, 10, -5, 1), V4(-5, -5, 10, 1));
    ASSERT_TRUE(r.kept);
    EXPECT_EQ(r.count, 6u);
    EXPECT_EQ(r.codes, 0u);
}

TEST(ProjectionClipTriangle, CornerBehindTheViewer) {
    const ctr::DiscreteProjectionSpace space;
    // C has w = -1. Seen through the camera, the triangle's image is not the
    // triangle of the three projected corners: its edges to C run off to
    // infinity and come back from the opposite side. Clipping in homogeneous
    // coordinates keeps only the part with w > 0, inside the cube.
    const V4 a(0, 0, 0, 1), b(0.5f, 0, 0, 1), c(0.5f, 0.25f, 0, -1);
    const TriangleResult r = ClipTriangle(space, a, b, c);
    ASSERT_TRUE(r.kept);
    ASSERT_GE(r.count, 3u);
    ASSERT_LE(r.count, kCapacity);
    for (const V4& p : r.polygon) {
        EXPECT_GT(p[3], 0.0f);
        for (int axis = 0; axis < 3; ++axis) EXPECT_LE(std::fabs(p[axis]), p[3] * (1.0f + 1e-6f));
    }
    EXPECT_NE(std::find(r.polygon.begin(), r.polygon.end(), a), r.polygon.end());
    EXPECT_NE(std::find(r.polygon.begin(), r.polygon.end(), b), r.polygon.end());
    // Each source edge keeps one piece: A->B whole, B->C for t <= 1/4 (x <= w
    // holds while 0.5 <= 1 - 2t) and C->A near A. The rest of the boundary
    // lies on planes.
    const std::vector<unsigned int> counts = CodeCounts(r);
    EXPECT_EQ(std::vector<unsigned int>(counts.begin() + 1, counts.end()), (std::vector<unsigned int>{1, 1, 1}));
    for (unsigned int i = 0; i < r.count; ++i) {
        EXPECT_TRUE(r.polygon[i] != a || CodeOf(r.codes, i) == 1u);
        EXPECT_TRUE(r.polygon[i] != b || CodeOf(r.codes, i) == 2u);
    }
}

// ---------------------------------------------------------------------------
// Degenerate cameras: nothing guards the matrices, so the scales and clip
// points may be infinite or NaN. No operation may crash or invoke undefined
// behaviour, and whatever reaches the grid stays on it.

Wm4::Matrix4<float> Filled(float value) {
    Wm4::Matrix4<float> m;
    for (int i = 0; i < 16; ++i) static_cast<float*>(m)[i] = value;
    return m;
}

Wm4::Matrix4<float> IdentityWith(int row, int column, float value) {
    Wm4::Matrix4<float> m(false);
    m[row][column] = value;
    return m;
}

void ExerciseEverything(ctr::DiscreteProjectionSpace& space, const Wm4::Matrix4<float>& worldToClip,
                        const Wm4::Matrix4<float>& clipToWorld) {
    space.setViewProjection(worldToClip, clipToWorld);
    space.updateRatios();
    static const V3 points[] = {V3(0, 0, 0),    V3(0.5f, -0.25f, 0.75f), V3(3, -2, 7),   V3(1e30f, -1e30f, 1e30f),
                                V3(kInf, 0, 0), V3(kNaN, 1, 1),          V3(-1, -1, -1), V3(1, 1, 1)};
    for (const V3& a : points) {
        for (const V3& b : points) {
            const EdgeResult r = ClipEdge(space, a, b);
            if (!IsRejected(r)) {
                ExpectOnGrid(space, r.a);
                ExpectOnGrid(space, r.b);
            }
        }
    }
    for (size_t i = 0; i + 2 < std::size(points); ++i) {
        V4 corner[3];
        for (int k = 0; k < 3; ++k) {
            const V3& p = points[i + static_cast<size_t>(k)];
            corner[k] = V4(p[0], p[1], p[2], 1.0f) * space.getWorldToClip();
        }
        const TriangleResult r = ClipTriangle(space, corner[0], corner[1], corner[2]);
        if (!r.kept) continue;
        ASSERT_LE(r.count, kCapacity);
        for (const V4& p : r.polygon) ExpectOnGrid(space, space.quantizeClipPoint(p));
    }
    for (float scaled : {kNaN, kInf, -kInf, 3e9f, -3e9f, -0.5f})
        ExpectOnGrid(
            space, {space.quantizeScaled(scaled, 0), space.quantizeScaled(scaled, 1), space.quantizeScaled(scaled, 2)});
    (void)space.discreteToWorld(0, space.getGridLimit(1), space.getGridLimit(2));
    (void)space.computeFrustumSizeXY();
}

TEST(ProjectionDegenerate, NoCrashAndOnGrid) {
    const struct {
        const char* name;
        Wm4::Matrix4<float> matrix;
    } cameras[] = {
        {"zero", Wm4::Matrix4<float>(true)},
        {"nan", Filled(kNaN)},
        {"nan w", IdentityWith(3, 3, kNaN)},
        {"infinite", Filled(kInf)},
        {"infinite x", IdentityWith(0, 0, kInf)},
        {"negative infinite w", IdentityWith(3, 3, -kInf)},
        {"huge", Filled(1e38f)},
        {"tiny w", IdentityWith(3, 3, 1e-38f)},
        {"no w", IdentityWith(3, 3, 0.0f)},
    };
    const unsigned int bitSizes[][2] = {{20, 20}, {28, 3}, {2, 55}};
    for (const auto& camera : cameras) {
        for (const auto& bits : bitSizes) {
            SCOPED_TRACE(std::string(camera.name) + " " + std::to_string(bits[0]) + "/" + std::to_string(bits[1]));
            ctr::DiscreteProjectionSpace space;
            if (bits[0] != 20) {
                ASSERT_TRUE(space.setVoxelBitSize(bits[0], bits[1]));
            }
            ExerciseEverything(space, camera.matrix, camera.matrix);
            ExerciseEverything(space, camera.matrix, Wm4::Matrix4<float>(false));
            ExerciseEverything(space, Wm4::Matrix4<float>(false), camera.matrix);
        }
    }

    // A zero clipToWorld gives NaN frustum sizes. NaN >= NaN is false, so y
    // takes the whole range; x gets NaN, which passes the lower bound of 1.
    ctr::DiscreteProjectionSpace space;
    space.setViewProjection(Wm4::Matrix4<float>(false), Wm4::Matrix4<float>(true));
    space.updateRatios();
    EXPECT_TRUE(std::isnan(space.getDiscreteScale()[0]));
    EXPECT_EQ(space.getDiscreteScale()[1], 524287.5f);
    // The identity camera still clips; the NaN x scale quantises x to 0.
    const EdgeResult r = ClipEdge(space, V3(1, 1, 1), V3(-1, -1, -1));
    EXPECT_EQ(r.a, (ctr::BakedVertex{0, 1048575, 1048575}));

    // A zero worldToClip sends every point to (0, 0, 0, 0), which no strict
    // plane test calls outside; its quantisation 0/0 is NaN and gives 0.
    space.setViewProjection(Wm4::Matrix4<float>(true), Wm4::Matrix4<float>(false));
    space.updateRatios();
    const EdgeResult z = ClipEdge(space, V3(1, 2, 3), V3(4, 5, 6));
    EXPECT_EQ(z.tA, 0.0f);
    EXPECT_EQ(z.tB, 1.0f);
    EXPECT_EQ(z.a, (ctr::BakedVertex{0, 0, 0}));
    EXPECT_EQ(z.wA, 0.0f);
}

// ---------------------------------------------------------------------------
// Exact arithmetic

// Truncation toward zero, with NaN to 0 and saturation at and beyond the
// ends of the integer range (where a plain cast is undefined).
TEST(ExactArithmetic, ConversionsSaturate) {
    using ctr::exact::DoubleToInt64;
    using ctr::exact::FloatToInt32;
    constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();
    constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
    EXPECT_EQ(FloatToInt32(kNaN), 0);
    EXPECT_EQ(FloatToInt32(kInf), kMax32);
    EXPECT_EQ(FloatToInt32(-kInf), kMin32);
    // The largest float below 2^31 is 2^31 - 128; 2^31 itself is beyond.
    EXPECT_EQ(FloatToInt32(2147483520.0f), 2147483520);
    EXPECT_EQ(FloatToInt32(2147483648.0f), kMax32);
    // -2^31 is in range; the next float below it, -2^31 - 256, is not.
    EXPECT_EQ(FloatToInt32(-2147483648.0f), kMin32);
    EXPECT_EQ(FloatToInt32(-2147483904.0f), kMin32);
    EXPECT_EQ(FloatToInt32(-1.99f), -1);
    EXPECT_EQ(FloatToInt32(8388607.5f), 8388607);  // 2^23 - 1/2, exact in float

    constexpr int64_t kMax64 = std::numeric_limits<int64_t>::max();
    constexpr int64_t kMin64 = std::numeric_limits<int64_t>::min();
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(DoubleToInt64(std::numeric_limits<double>::quiet_NaN()), 0);
    EXPECT_EQ(DoubleToInt64(inf), kMax64);
    EXPECT_EQ(DoubleToInt64(-inf), kMin64);
    // The largest double below 2^63 is 2^63 - 1024; the next below -2^63 is
    // -2^63 - 2048.
    EXPECT_EQ(DoubleToInt64(9223372036854774784.0), 9223372036854774784LL);
    EXPECT_EQ(DoubleToInt64(9223372036854775808.0), kMax64);
    EXPECT_EQ(DoubleToInt64(-9223372036854775808.0), kMin64);
    EXPECT_EQ(DoubleToInt64(-9223372036854777856.0), kMin64);
    EXPECT_EQ(DoubleToInt64(-2.5), -2);
    EXPECT_EQ(DoubleToInt64(4503599627370495.5), 4503599627370495LL);  // 2^52 - 1/2
}

TEST(ExactArithmetic, FractionLessBeyond64BitProducts) {
    using ctr::exact::FractionLess;
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
    // (M)/(M - 1) = 1 + 1/(M - 1) and (M - 1)/(M - 2) = 1 + 1/(M - 2): the
    // second is larger by about 2^-126, and every cross product is near 2^126.
    EXPECT_TRUE(FractionLess(kMax, kMax - 1, kMax - 1, kMax - 2));
    EXPECT_FALSE(FractionLess(kMax - 1, kMax - 2, kMax, kMax - 1));
    // The same mirrored below zero.
    EXPECT_TRUE(FractionLess(-(kMax - 1), kMax - 2, -kMax, kMax - 1));
    EXPECT_FALSE(FractionLess(-kMax, kMax - 1, -(kMax - 1), kMax - 2));
    // Equal values in different forms are not less either way.
    EXPECT_FALSE(FractionLess(kMax - 1, kMax - 1, 1, 1));
    EXPECT_FALSE(FractionLess(1, 1, kMax - 1, kMax - 1));
    EXPECT_FALSE(FractionLess(kMin, 2, kMin / 2, 1));
    EXPECT_FALSE(FractionLess(kMin / 2, 1, kMin, 2));
    // The extreme numerator: kMin * kMax still fits 128 bits.
    EXPECT_TRUE(FractionLess(kMin, kMax, kMin + 1, kMax));
    EXPECT_TRUE(FractionLess(-1, kMax, 0, 1));
}

}  // namespace
