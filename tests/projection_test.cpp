// The camera, clipping and quantisation of the discrete projection space, and
// the float-to-integer conversions and fraction comparison beneath it.
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <tuple>
#include <utility>

#include "TestSupport.h"
#include "exact/Exact.h"

namespace {

using V3 = Wm4::Vector3<float>;
using V4 = Wm4::Vector4<float>;
using Polygon = std::vector<V4>;
using ctr::BakedVertex;

constexpr unsigned int kCapacity = ctr::DiscreteProjectionSpace::kMaxClipVertices;

// Grid coordinates must stay in [0, getGridLimit(axis)] whatever the camera.
void ExpectOnGrid(const ctr::DiscreteProjectionSpace& space, const BakedVertex& v) {
    const int32_t c[3] = {v.x, v.y, v.z};
    for (int axis = 0; axis < 3; ++axis)
        EXPECT_TRUE(c[axis] >= 0 && c[axis] <= space.getGridLimit(axis)) << "axis " << axis << ": " << c[axis];
}

// What clipEdgeWorld returns and writes; the defaults are sentinels that no
// call produces.
struct EdgeResult {
    float tA = -7.0f, tB = -7.0f;
    BakedVertex a{-7, -7, -7}, b{-7, -7, -7};
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
    std::tie(r.tA, r.tB) = space.clipEdgeWorld(a, b, r.a, r.b, r.wA, r.wB);
    return r;
}

bool IsRejected(const EdgeResult& r) { return r.tA == 1.0f && r.tB == 0.0f; }

// clipTriangle on two heap buffers of exactly kCapacity vertices, so that the
// address sanitizer sees any overrun.
struct TriangleResult {
    bool kept = false;
    unsigned int count = 99, codes = 99;
    Polygon polygon;
};

TriangleResult ClipTriangle(const ctr::DiscreteProjectionSpace& space, const V4& a, const V4& b, const V4& c) {
    Polygon first(kCapacity, a), second(kCapacity);
    first[1] = b;
    first[2] = c;
    V4* polygon = first.data();
    V4* scratch = second.data();
    TriangleResult r;
    r.kept = space.clipTriangle(polygon, scratch, r.count, r.codes);
    if (r.kept && r.count <= kCapacity) r.polygon.assign(polygon, polygon + r.count);
    return r;
}

TEST(ProjectionSpace, VoxelBitSizes) {
    // The bound is zBits + 2 * xyBits <= 59, with more than one bit per axis.
    // The last two refused pairs sum to 2^32 + 2 and 2^32 + 9, which wrap to
    // small values in 32 bits.
    ctr::DiscreteProjectionSpace space;
    const V3 defaultScale = space.getDiscreteScale();
    const unsigned int refused[][2] = {{20, 20}, {1, 30}, {30, 1}, {0, 2}, {29, 2}, {0x80000000u, 2}, {5, 0xFFFFFFFFu}};
    for (const auto& bits : refused) {
        EXPECT_FALSE(space.setVoxelBitSize(bits[0], bits[1])) << bits[0] << "/" << bits[1];
        EXPECT_TRUE(space.getXYBitSize() == 20u && space.getZBitSize() == 20u);
        EXPECT_EQ(space.getDiscreteScale(), defaultScale);
    }
    EXPECT_TRUE(space.setVoxelBitSize(20, 19));
    EXPECT_EQ(space.getDiscreteScale()[2], 524287.0f / 2.0f);

    // 2^28 - 1 rounds to the float 2^28, so the upper face quantises to 2^28
    // itself, one past the nominal range; the grid limit admits it.
    ctr::DiscreteProjectionSpace wide;
    ASSERT_TRUE(wide.setVoxelBitSize(28, 3));
    EXPECT_EQ(wide.getDiscreteScale(), V3(134217728.0f, 134217728.0f, 3.5f));
    EXPECT_EQ(wide.getGridLimit(0), 268435456);
    EXPECT_EQ(wide.quantizeClipPoint(V4(1, -1, 1, 1)), (BakedVertex{268435456, 0, 7}));

    // 55 depth bits pass the budget but not a 32-bit grid: the upper face
    // (2^31 as a float) is clamped to 2^31 - 1 instead of overflowing.
    ctr::DiscreteProjectionSpace deep;
    ASSERT_TRUE(deep.setVoxelBitSize(2, 55));
    EXPECT_EQ(deep.getGridLimit(2), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(deep.quantizeClipPoint(V4(1, 1, 1, 1)), (BakedVertex{3, 3, std::numeric_limits<int32_t>::max()}));
}

// With the default identity camera a world point is its own clip point with
// w = 1; the coordinates below make every float step exact.
TEST(ProjectionClipEdge, RejectionAndCutsMeasuredOnTheGivenEdge) {
    const ctr::DiscreteProjectionSpace space;
    // Rejected edges leave the outputs untouched: both ends beyond max x; an
    // edge on x + y = 3, whose piece left by the cut at max x lies beyond max
    // y; both ends beyond far.
    EdgeResult untouched;
    std::tie(untouched.tA, untouched.tB) = std::make_pair(1.0f, 0.0f);
    for (const auto& [a, b] : {std::make_pair(V3(2, 0, 0), V3(3, 0.5f, 0)), std::make_pair(V3(3, 0, 0), V3(0, 3, 0)),
                               std::make_pair(V3(0, 0, 1.5f), V3(0.5f, 0.5f, 4))})
        EXPECT_EQ(ClipEdge(space, a, b), untouched);

    // An end exactly on a plane is inside: no cut.
    EXPECT_EQ(ClipEdge(space, V3(1, 0.5f, 0), V3(-0.5f, 0, -1)),
              (EdgeResult{0, 1, {1048575, 786431, 524287}, {262143, 524287, 0}, 1, 1}));
    // x = -9 + 16t, y = -16 + 32t enters through min x at t = 1/2 and leaves
    // through max y at t = 17/32, before max x (t = 5/8). Each cut, taken from
    // the midpoint of the current piece, lands on s = 0 or s = -1/4: exact.
    // Reversed, the same points come out swapped, at 1 - t.
    EXPECT_EQ(ClipEdge(space, V3(-9, -16, 0.5f), V3(7, 16, 0.5f)),
              (EdgeResult{0.5f, 17.0f / 32.0f, {0, 524287, 786431}, {262143, 1048575, 786431}, 1, 1}));
    EXPECT_EQ(ClipEdge(space, V3(7, 16, 0.5f), V3(-9, -16, 0.5f)),
              (EdgeResult{15.0f / 32.0f, 0.5f, {262143, 1048575, 786431}, {0, 524287, 786431}, 1, 1}));
}

// Random edges before a perspective camera, so that w varies strongly along
// them. At 28 bits the grid is finer than float resolution, so equal grid
// points mean bit-equal NDC values.
TEST(ProjectionClipEdge, RandomEdges) {
    ctr::DiscreteProjectionSpace space;
    ASSERT_TRUE(space.setVoxelBitSize(28, 3));
    ctr_test::PerspectiveCamera(space, V3(0, 0, 0), V3(0, 0, -1), 60.0f, 1.0f, 0.5f, 20.0f);
    std::mt19937 random(5);
    std::uniform_real_distribution<float> lateral(-6.0f, 6.0f), depth(-25.0f, 2.0f);
    size_t cut = 0;
    for (int trial = 0; trial < 3000; ++trial) {
        const V3 a(lateral(random), lateral(random), depth(random));
        const V3 b(lateral(random), lateral(random), depth(random));
        const EdgeResult r = ClipEdge(space, a, b), reversed = ClipEdge(space, b, a);
        ASSERT_EQ(IsRejected(r), IsRejected(reversed));
        if (IsRejected(r)) continue;
        cut += r.tA != 0.0f || r.tB != 1.0f;
        ExpectOnGrid(space, r.a);
        ExpectOnGrid(space, r.b);
        EXPECT_LE(r.tA, r.tB);
        // Cuts are taken from the midpoint of the current piece, so they do not
        // depend on which end is inside: reversal swaps the ends bit for bit.
        EXPECT_EQ(std::tie(reversed.a, reversed.b, reversed.wA, reversed.wB), std::tie(r.b, r.a, r.wB, r.wA));
        // Clip space is an affine image of world space, so the parameters
        // apply to the world edge up to float rounding (a 20-bit unit is 256).
        for (const auto& [t, expected] : {std::make_pair(r.tA, r.a), std::make_pair(r.tB, r.b)}) {
            const V3 p = a + (b - a) * t;
            const BakedVertex q = space.quantizeClipPoint(V4(p[0], p[1], p[2], 1.0f) * space.getWorldToClip());
            EXPECT_NEAR(q.x, expected.x, 4 * 256);
            EXPECT_NEAR(q.y, expected.y, 4 * 256);
        }
        if (HasFailure()) return;
    }
    EXPECT_GT(cut, 300u);
}

// Triangle clipping, in homogeneous clip coordinates.
TEST(ProjectionClipTriangle, InsideOneCornerOutAndRejection) {
    const ctr::DiscreteProjectionSpace space;
    // Corners on planes are inside: untouched, codes 1 | 2 << 2 | 3 << 4.
    const V4 a(0, 0, 0, 1);
    TriangleResult r = ClipTriangle(space, a, V4(1, 0, 0, 1), V4(0, -1, 1, 1));
    EXPECT_TRUE(r.kept);
    EXPECT_EQ(r.codes, 57u);
    EXPECT_EQ(r.polygon, (Polygon{a, V4(1, 0, 0, 1), V4(0, -1, 1, 1)}));

    // B beyond max x: A is kept (code 1); A->B ends on x = 1 (code 2); the
    // cut of B->C lies on the plane (code 0); C ends B->C (code 3).
    const V4 beyond(2, 0, 0, 1), top(0, 1, 0, 1);
    r = ClipTriangle(space, a, beyond, top);
    EXPECT_TRUE(r.kept);
    EXPECT_EQ(r.codes, 201u);
    EXPECT_EQ(r.polygon, (Polygon{a, V4(1, 0, 0, 1), V4(1, 0.5f, 0, 1), top}));

    // Rejected: all corners beyond max x; a triangle in x + y >= 3, with no
    // plane that has all three corners beyond it; every corner behind the
    // viewer (w < 0) with coordinates that an affine test would call inside.
    const V4 rejected[][3] = {{V4(2, 0, 0, 1), V4(3, 0, 0, 1), V4(2, 1, 0, 1)},
                              {V4(3, 0, 0, 1), V4(0, 3, 0, 1), V4(3, 3, 0, 1)},
                              {V4(0, 0, 0, -1), V4(0.5f, 0, 0, -1), V4(0, 0.5f, 0, -1)}};
    for (const auto& t : rejected) EXPECT_FALSE(ClipTriangle(space, t[0], t[1], t[2]).kept);
}

// Baking skips the clipper for triangles whose corners are inside every
// plane, so the per-point plane bits must agree with what the clipper does:
// no bits on any corner means the triangle comes back untouched, and a bit
// names a plane the point really lies beyond. Points are placed on and
// around the faces, where rounding could make the two disagree.
TEST(ProjectionClipTriangle, OutsidePlaneBitsAgreeWithTheClipper) {
    ctr::DiscreteProjectionSpace space;
    space.setDomain(Wm4::Vector3<float>(-1.0f, -1.0f, 0.0f), Wm4::Vector3<float>(1.0f, 1.0f, 1.0f));
    space.updateRatios();
    std::mt19937 random(11);
    std::uniform_int_distribution<int> pick(0, 6);
    std::uniform_real_distribution<float> inside(-1.0f, 1.0f), weight(0.3f, 3.0f);
    const float near[7] = {-1.0f,   1.0f,    0.0f, std::nextafter(1.0f, 2.0f), std::nextafter(-1.0f, -2.0f),
                           1.0e-8f, -1.0e-8f};
    const auto point = [&]() {
        const float w = weight(random);
        V4 p;
        for (int axis = 0; axis < 3; ++axis) {
            const int k = pick(random);
            const float u = k == 6 ? inside(random) : near[k];
            p[axis] = (axis == 2 && u < 0.0f && k == 6 ? -u : u) * w;
        }
        p[3] = pick(random) == 0 ? -w : w;
        return p;
    };
    unsigned int untouched = 0, clipped = 0;
    for (int trial = 0; trial < 20000; ++trial) {
        const V4 corner[3] = {point(), point(), point()};
        unsigned int any = 0;
        for (const V4& c : corner) {
            const unsigned int bits = space.computeOutsidePlanes(c);
            for (int plane = 0; plane < 6; ++plane) {
                const int axis = plane / 2;
                const float bound = plane % 2 ? space.getDomainMax()[axis] : space.getDomainMin()[axis];
                const bool beyond = plane % 2 ? c[axis] > bound * c[3] : bound * c[3] > c[axis];
                ASSERT_EQ(((bits >> plane) & 1u) != 0, beyond);
            }
            any |= bits;
        }
        const TriangleResult r = ClipTriangle(space, corner[0], corner[1], corner[2]);
        if (any != 0) {
            ++clipped;
            continue;
        }
        ++untouched;
        ASSERT_TRUE(r.kept && r.count == 3u && r.codes == 57u);
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < 4; ++k) {
                const float kept = r.polygon[c][k], given = corner[c][k];
                ASSERT_EQ(std::memcmp(&kept, &given, sizeof(float)), 0);
            }
    }
    EXPECT_GT(untouched, 100u);
    EXPECT_GT(clipped, 100u);
}

}  // namespace
