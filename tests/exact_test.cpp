// The exact layer against references computed another way: determinants
// expanded in 128 bits, fractions compared by continued division, floors by
// 128-bit division, float rounding by long double. Inputs are random grid
// points of the largest accepted grids and the default one, and the cases
// where a predicate is most easily wrong: collinear and coplanar points,
// corners of the grid box, fractions that differ in the last of 126 bits.
#include "exact/Exact.h"

#include <limits>
#include <random>

#include "TestSupport.h"

namespace {

using ctr::BakedVertex;
using ctr::exact::Fraction;
using ctr::exact::int128;

constexpr int64_t kMax64 = std::numeric_limits<int64_t>::max(), kMin64 = std::numeric_limits<int64_t>::min();

// Grid ranges of the default 20/20 grid and of the accepted extremes (depth
// saturates at 2^31 - 1).
struct Grid {
    int64_t xy, z;
};
constexpr Grid kGrids[] = {{1 << 20, 1 << 20}, {1 << 28, 8}, {1 << 12, INT32_MAX}, {4, INT32_MAX}};

BakedVertex RandomPoint(std::mt19937_64& random, const Grid& grid) {
    std::uniform_int_distribution<int64_t> xy(0, grid.xy), z(0, grid.z);
    return BakedVertex{static_cast<int32_t>(xy(random)), static_cast<int32_t>(xy(random)),
                       static_cast<int32_t>(z(random))};
}

// A corner of the grid box: where the products are largest.
BakedVertex RandomCorner(std::mt19937_64& random, const Grid& grid) {
    const auto pick = [&](int64_t range) { return static_cast<int32_t>(random() % 2 ? range : 0); };
    return BakedVertex{pick(grid.xy), pick(grid.xy), pick(grid.z)};
}

int128 Det3(int128 a, int128 b, int128 c, int128 d, int128 e, int128 f, int128 g, int128 h, int128 i) {
    return a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
}

// Rows are the differences x - p0, p2 - p0, p1 - p0: the plane distance as
// one determinant, not through the plane record.
int128 ReferenceDistance(const BakedVertex& x, const BakedVertex& p0, const BakedVertex& p1, const BakedVertex& p2) {
    const auto d = [&](const BakedVertex& v, int axis) {
        return int128{axis == 0 ? v.x : axis == 1 ? v.y : v.z} - (axis == 0 ? p0.x : axis == 1 ? p0.y : p0.z);
    };
    return Det3(d(x, 0), d(x, 1), d(x, 2), d(p2, 0), d(p2, 1), d(p2, 2), d(p1, 0), d(p1, 1), d(p1, 2));
}

int128 ReferenceArea2(const BakedVertex& a, const BakedVertex& b, const BakedVertex& c) {
    return Det3(a.x, a.y, 1, b.x, b.y, 1, c.x, c.y, 1);
}

TEST(ExactPredicates, AgreeWithDeterminantsOnRandomAndCornerPoints) {
    std::mt19937_64 random(11);
    for (const Grid& grid : kGrids) {
        // The bounds the bit budget claims, checked where they are reached.
        const int128 volume = int128{grid.xy} * grid.xy * grid.z;
        int128 largestDistance = 0, largestChange = 0;
        for (int i = 0; i < 20000; ++i) {
            const auto point = i % 2 ? RandomPoint : RandomCorner;
            const BakedVertex p0 = point(random, grid), p1 = point(random, grid), p2 = point(random, grid);
            const BakedVertex a = point(random, grid), b = point(random, grid);
            ASSERT_EQ(ctr::exact::ScreenArea2(p0, p1, p2), ReferenceArea2(p0, p1, p2));
            ASSERT_EQ(ctr::exact::ScreenSide(a, p0, p1), ReferenceArea2(p0, p1, a));
            const int64_t change = ctr::exact::ScreenSideChange(a, b, p0, p1);
            ASSERT_EQ(change, ReferenceArea2(p0, p1, b) - ReferenceArea2(p0, p1, a));
            const Wm4::Vector3<int64_t> n = ctr::exact::PlaneRecord(p0, p1, p2);
            ASSERT_EQ(n[2], -ctr::exact::ScreenArea2(p0, p1, p2));
            const int64_t distance = ctr::exact::PlaneDistance(a, p0, n);
            ASSERT_EQ(distance, ReferenceDistance(a, p0, p1, p2));
            // The corners of the triangle are on its plane.
            for (const BakedVertex* corner : {&p0, &p1, &p2}) ASSERT_EQ(ctr::exact::PlaneDistance(*corner, p0, n), 0);
            const int128 difference = int128{distance} - ctr::exact::PlaneDistance(b, p0, n);
            largestDistance = std::max(largestDistance, distance < 0 ? -int128{distance} : int128{distance});
            largestChange = std::max(largestChange, difference < 0 ? -difference : difference);
        }
        EXPECT_LE(largestDistance, 2 * volume);
        EXPECT_LE(largestChange, 4 * volume);
        EXPECT_GT(largestDistance, volume / 2) << "the corners reach the bound's order";
    }
}

// a/b < c/d for positive denominators, by continued division: the integer
// parts first, then the reciprocals of the remainders in the other order.
bool ReferenceLess(int128 a, int128 b, int128 c, int128 d) {
    for (;;) {
        int128 qa = a / b, ra = a % b, qc = c / d, rc = c % d;
        if (ra < 0) ra += b, --qa;
        if (rc < 0) rc += d, --qc;
        if (qa != qc) return qa < qc;
        if (ra == 0 || rc == 0) return ra == 0 && rc != 0;
        // a/b < c/d  <=>  b/ra > d/rc
        const int128 na = d, nb = rc, nc = b, nd = ra;
        a = na, b = nb, c = nc, d = nd;
    }
}

TEST(ExactFractions, OrdersAgreeWithContinuedDivision) {
    std::mt19937_64 random(13);
    const auto check = [](const Fraction& p, const Fraction& q) {
        const bool less = ReferenceLess(p.numerator, p.denominator, q.numerator, q.denominator);
        ASSERT_EQ(ctr::exact::Less(p, q), less)
            << p.numerator << "/" << p.denominator << " " << q.numerator << "/" << q.denominator;
        ASSERT_EQ(ctr::exact::LessNegativeFirst(p, q), p.numerator < 0 || less);
        if (p.numerator >= 0 && q.numerator >= 0) {
            ASSERT_EQ(ctr::exact::UnsignedCrossLess(p.numerator, p.denominator, q.numerator, q.denominator), less);
        }
    };
    // Neighbours near the ends of the range, whose cross products are near
    // 2^126 and differ by one; also mirrored below zero and equal values in
    // other forms.
    const Fraction hard[][2] = {{{kMax64, kMax64 - 1}, {kMax64 - 1, kMax64 - 2}},
                                {{-(kMax64 - 1), kMax64 - 2}, {-kMax64, kMax64 - 1}},
                                {{kMin64, kMax64}, {kMin64 + 1, kMax64}},
                                {{-1, kMax64}, {0, 1}},
                                {{kMax64 - 1, kMax64 - 1}, {1, 1}},
                                {{kMin64, 2}, {kMin64 / 2, 1}},
                                {{0, 7}, {0, 1}}};
    for (const auto& pair : hard) {
        check(pair[0], pair[1]);
        check(pair[1], pair[0]);
    }
    std::uniform_int_distribution<int64_t> any(kMin64, kMax64), positive(1, kMax64), small(1, 1000);
    for (int i = 0; i < 100000; ++i) {
        Fraction p{any(random), positive(random)}, q;
        switch (i % 3) {
            case 0:
                q = Fraction{any(random), positive(random)};
                break;
            case 1:  // about half the terms: equal or nearly equal values
                q = Fraction{p.numerator / 2, p.denominator / 2 + (i % 2)};
                break;
            default:  // small terms: many equal values
                p = Fraction{static_cast<int64_t>(random() % 2001) - 1000, small(random)};
                q = Fraction{static_cast<int64_t>(random() % 2001) - 1000, small(random)};
        }
        if (q.denominator <= 0) q.denominator = 1;
        check(p, q);
    }
}

TEST(ExactFractions, MakeAndClamp) {
    for (const auto& [n, d] : {std::pair<int64_t, int64_t>{3, -4}, {-3, -4}, {0, -1}, {kMax64, -kMax64}}) {
        const Fraction f = ctr::exact::MakeFraction(n, d);
        EXPECT_GT(f.denominator, 0);
        EXPECT_EQ(int128{f.numerator} * d, int128{n} * f.denominator);
    }
    const auto clamped = [](int64_t n, int64_t d) {
        const Fraction f = ctr::exact::ClampToUnit(Fraction{n, d});
        return std::pair{f.numerator, f.denominator};
    };
    using Pair = std::pair<int64_t, int64_t>;
    EXPECT_EQ(clamped(-1, 5), Pair(0, 1));
    EXPECT_EQ(clamped(6, 5), Pair(1, 1));
    EXPECT_EQ(clamped(5, 5), Pair(5, 5));
    EXPECT_EQ(clamped(0, 5), Pair(0, 5));
}

// floor(a + (b - a) n / d) by 128-bit floor division.
int64_t ReferenceFloor(int64_t a, int64_t b, int64_t n, int64_t d) {
    const int128 product = int128{b - a} * n;
    int128 quotient = product / d;
    if (product % d != 0 && product < 0) --quotient;
    return static_cast<int64_t>(a + quotient);
}

TEST(ExactFractions, FloorAlongMatchesFloorDivision) {
    std::mt19937_64 random(14);
    std::uniform_int_distribution<int32_t> coordinate(0, INT32_MAX);
    std::uniform_int_distribution<int64_t> denominator(1, int64_t{1} << 62);
    for (int i = 0; i < 100000; ++i) {
        const int32_t a = coordinate(random);
        const int32_t b = i % 5 == 0 ? static_cast<int32_t>(std::clamp<int64_t>(
                                           int64_t{a} + static_cast<int64_t>(random() % 3) - 1, 0, INT32_MAX))
                                     : coordinate(random);
        int64_t d = i % 4 == 0 ? static_cast<int64_t>(random() % 1000) + 1 : denominator(random);
        // Ends, their neighbours and the middle, where a double estimate is
        // most easily one unit off.
        int64_t n = static_cast<int64_t>(random() % static_cast<uint64_t>(d + 1));
        if (i % 7 == 0) n = std::min<int64_t>(d, 1 + static_cast<int64_t>(random() % 2));
        if (i % 7 == 1) n = std::max<int64_t>(0, d - 1);
        if (i % 7 == 2 && d % 2 == 0) n = d / 2;
        ASSERT_EQ(ctr::exact::FloorAlong(a, b, n, d), ReferenceFloor(a, b, n, d))
            << a << " " << b << " " << n << "/" << d;
    }
    // Arguments outside 0 <= n/d <= 1 stay between the ends.
    EXPECT_EQ(ctr::exact::FloorAlong(10, 20, -3, 4), 10);
    EXPECT_EQ(ctr::exact::FloorAlong(10, 20, 9, 4), 20);
    EXPECT_EQ(ctr::exact::FloorAlong(10, 20, 1, 0), 10);
}

// Every accepted split of the bit budget (xy bits 1 .. 28, depth taking the
// rest of 59, saturating at 2^31 - 1) and the default 20/20 grid.
std::vector<Grid> AcceptedGrids() {
    std::vector<Grid> grids{{1 << 20, 1 << 20}};
    for (int xy = 1; xy <= 28; ++xy) {
        const int z = 59 - 2 * xy;
        grids.push_back(Grid{int64_t{1} << xy, z >= 31 ? INT32_MAX : int64_t{1} << z});
    }
    return grids;
}

// The filters against their integer versions: FloorAlong (filtered) against
// floor division, and the crossing estimate's static bound, on the segments
// and parameters of every accepted grid: random, between corners of the grid
// box, and at near-ties, where span * n / d lies within a few 1/m of an
// integer k (d = span m, n = k m + delta).
TEST(ExactFilters, AgreeWithIntegerVersionsOnEveryGrid) {
    std::mt19937_64 random(16);
    const auto draw = [&](int64_t low, int64_t high) {
        return std::uniform_int_distribution<int64_t>(low, high)(random);
    };
    for (const Grid& grid : AcceptedGrids()) {
        SCOPED_TRACE(testing::Message() << "grid " << grid.xy << " x " << grid.z);
        const int64_t distanceLimit = int64_t{1} << 62;
        int ties = 0;
        for (int i = 0; i < 6000; ++i) {
            const int64_t range = i % 2 ? grid.xy : grid.z;
            int64_t a = draw(0, range), b = draw(0, range);
            if (i % 5 == 1) a = random() % 2 ? range : 0, b = range - a;
            int64_t n, d;
            const int64_t span = std::max<int64_t>(1, b > a ? b - a : a - b);
            if (i % 3 == 0) {
                d = draw(1, distanceLimit);
                n = draw(0, d);
            } else {
                const int64_t m = draw(1, distanceLimit / span);
                const int64_t k = draw(0, span - 1);
                d = span * m;
                n = std::clamp<int64_t>(k * m + draw(-3, 3), 0, d);
                ++ties;
            }
            const int64_t floor = ReferenceFloor(a, b, n, d);
            ASSERT_EQ(ctr::exact::FloorAlong(static_cast<int32_t>(a), static_cast<int32_t>(b), n, d), floor)
                << a << " " << b << " " << n << "/" << d;
            // The estimate within its bound: the exact point lies between the
            // floors of estimate -+ bound (long double holds these sums).
            const long double estimate = ctr::exact::AlongEstimate(static_cast<int32_t>(a), static_cast<int32_t>(b),
                                                                   ctr::exact::AlongQuotient(n, d));
            const long double bound = ctr::exact::kAlongEstimateError;
            ASSERT_LE(std::floor(estimate - bound), floor) << a << " " << b << " " << n << "/" << d;
            ASSERT_GE(std::floor(estimate + bound), floor) << a << " " << b << " " << n << "/" << d;
            if (n == d || a == b) {
                ASSERT_EQ(estimate, static_cast<long double>(n == d ? b : a));
            }
        }
        EXPECT_GT(ties, 3000);
    }
}

TEST(ExactConversions, OutwardRoundingBracketsTheInteger) {
    std::mt19937_64 random(15);
    std::vector<int64_t> values = {0,
                                   1,
                                   -1,
                                   (1 << 24) + 1,
                                   -(1 << 24) - 1,
                                   INT32_MAX,
                                   int64_t{INT32_MAX} + 1,
                                   int64_t{INT32_MIN} - 1,
                                   (int64_t{1} << 53) - 1,
                                   -(int64_t{1} << 53)};
    for (int shift = 20; shift < 53; ++shift)
        for (int64_t offset = -3; offset <= 3; ++offset) values.push_back((int64_t{1} << shift) + offset);
    for (int i = 0; i < 20000; ++i) values.push_back(static_cast<int64_t>(random() >> (11 + i % 40)) - (1 << 20));
    for (const int64_t v : values) {
        const float low = ctr::exact::FloatAtMost(v), high = ctr::exact::FloatAtLeast(v);
        const long double exact = static_cast<long double>(v);
        // The nearest floats on each side: at or beyond v, and the next one
        // inwards already past it.
        ASSERT_LE(static_cast<long double>(low), exact) << v;
        ASSERT_GT(static_cast<long double>(std::nextafter(low, std::numeric_limits<float>::infinity())), exact) << v;
        ASSERT_GE(static_cast<long double>(high), exact) << v;
        ASSERT_LT(static_cast<long double>(std::nextafter(high, -std::numeric_limits<float>::infinity())), exact) << v;
        if (v >= -(1 << 24) && v <= (1 << 24)) {
            ASSERT_TRUE(low == high && low == static_cast<float>(v)) << v;
        }
    }
}

}  // namespace
