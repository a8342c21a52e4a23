// The exact layer: every integer predicate and exact order that a hidden-line
// decision rests on, the conversions from floating point that feed them, and
// the bit budget that keeps their products inside 64 bits. Nothing here
// rounds except the conversions, whose results are defined for every input.
//
// Bit budget. A grid coordinate of an axis with b bits lies in [0, R] with
// R = 2^b (the float scale may round 2^b - 1 up to 2^b; depth coordinates
// saturate at 2^31 - 1). The projection space accepts 2 xy + z <= 59, and its
// default 20/20 grid has 60 bits, one more than it accepts: counting bits per
// factor would not fit there, so the bounds are taken from the areas and the
// volume of the grid box, V = Rx Ry Rz <= 2^60.
//   - A screen cross product of three grid points (a side value, a doubled
//     area) is twice the area of a triangle inside the screen rectangle, at
//     most Rx Ry; with a fourth point (the change of a side along an edge)
//     it is a difference of two such, at most 2 Rx Ry <= 2^57, as xy <= 28.
//   - A plane record component is a doubled triangle area over two axes,
//     at most Ri Rj.
//   - A plane distance (X - P0) . N is the determinant of X - P0, P2 - P0 and
//     P1 - P0: six times the volume of the tetrahedron X, P0, P1, P2. Its
//     corners lie in the grid box, and a tetrahedron inside a box fills at
//     most a third of it, so |.| <= 2 V <= 2^61. The difference of two plane
//     distances, (A - B) . N, is at most 4 V <= 2^62.
// So every value is a signed 64-bit integer, every product of two of them
// fits 128 bits, and a plane distance times a 64-bit denominator plus another
// such product stays a signed 128-bit integer.
#ifndef CTR_EXACT_EXACT_H
#define CTR_EXACT_EXACT_H

#include <cmath>
#include <cstdint>
#include <limits>

#include "Wm4Vector3.h"
#include "qe/qeBBox.h"

#include "ctr/BakedVertex.h"

namespace ctr {
namespace exact {

__extension__ typedef __int128 int128;
__extension__ typedef unsigned __int128 uint128;

// ---------------------------------------------------------------------------
// Bit budget

// What setVoxelBitSize accepts for 2 xy + z.
constexpr unsigned kMaxBudgetBits = 59;
// The default 20/20 grid, which is larger than anything accepted.
constexpr unsigned kMaxVolumeBits = 60;
constexpr unsigned kMaxXYBits = (kMaxBudgetBits - 2) / 2;
constexpr uint128 kInt64Limit = static_cast<uint128>(1) << 63;
static_assert(kMaxXYBits == 28, "xy bits are capped by the budget with the smallest depth");
static_assert(kMaxBudgetBits < kMaxVolumeBits, "every accepted grid is smaller than the default one");
static_assert(2 * (static_cast<uint128>(1) << (2 * kMaxXYBits)) < kInt64Limit, "screen cross products fit 64 bits");
static_assert(4 * (static_cast<uint128>(1) << kMaxVolumeBits) < kInt64Limit,
              "plane distances and their differences fit 64 bits");
static_assert(2 * (2 * (static_cast<uint128>(1) << kMaxVolumeBits)) * kInt64Limit < (static_cast<uint128>(1) << 127),
              "two plane distances times 64-bit denominators sum to a signed 128-bit integer");

// ---------------------------------------------------------------------------
// Conversions

// Truncation toward zero, defined for every float: NaN gives 0, values at or
// beyond the int32 range saturate to its ends. C++ leaves these cases
// undefined, and a degenerate camera produces all of them.
inline int32_t FloatToInt32(float value) {
    if (!(value == value)) return 0;
    if (value >= 2147483648.0f) return std::numeric_limits<int32_t>::max();
    if (value < -2147483648.0f) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(value);
}

// The same rule for doubles to 64-bit integers.
inline int64_t DoubleToInt64(double value) {
    if (!(value == value)) return 0;
    if (value >= 9223372036854775808.0) return std::numeric_limits<int64_t>::max();
    if (value < -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(value);
}

// The largest float not above value, and the smallest not below it, for
// |value| <= 2^53. Boxes of grid coordinates are rounded outward with these,
// so that a float comparison of two boxes never separates what the integer
// coordinates join; up to 2^24 both are the plain conversion.
inline float FloatAtMost(int64_t value) {
    const float nearest = static_cast<float>(value);
    return static_cast<double>(nearest) > static_cast<double>(value)
               ? std::nextafter(nearest, -std::numeric_limits<float>::infinity())
               : nearest;
}

inline float FloatAtLeast(int64_t value) {
    const float nearest = static_cast<float>(value);
    return static_cast<double>(nearest) < static_cast<double>(value)
               ? std::nextafter(nearest, std::numeric_limits<float>::infinity())
               : nearest;
}

// The float box of the grid box [low - margin, high + margin], rounded
// outward: a float test that finds two such boxes apart, or one wholly beyond
// the other in depth, makes the same finding of the integer boxes.
inline qe::qeBBox GridBox(const BakedVertex& low, const BakedVertex& high, int64_t margin = 0) {
    return qe::qeBBox(
        Wm4::Vector3<float>(FloatAtMost(low.x - margin), FloatAtMost(low.y - margin), FloatAtMost(low.z - margin)),
        Wm4::Vector3<float>(FloatAtLeast(high.x + margin), FloatAtLeast(high.y + margin),
                            FloatAtLeast(high.z + margin)));
}

// ---------------------------------------------------------------------------
// Fractions and their orders

// numerator / denominator; every function below expects a positive
// denominator unless it says otherwise.
struct Fraction {
    int64_t numerator;
    int64_t denominator;
};

// numerator / denominator with the sign moved to the numerator; denominator != 0.
inline Fraction MakeFraction(int64_t numerator, int64_t denominator) {
    return denominator < 0 ? Fraction{-numerator, -denominator} : Fraction{numerator, denominator};
}

// a/b < c/d, exactly, for positive denominators.
inline bool Less(int64_t a, int64_t b, int64_t c, int64_t d) {
    return static_cast<int128>(a) * d < static_cast<int128>(c) * b;
}
inline bool Less(const Fraction& p, const Fraction& q) {
    return Less(p.numerator, p.denominator, q.numerator, q.denominator);
}

// The order of intersection-edge cuts: a negative numerator counts as smaller
// than anything, whatever the second operand, so no product with a negative
// value ever decides; otherwise the exact order.
inline bool LessNegativeFirst(const Fraction& p, const Fraction& q) {
    if (p.numerator < 0) return true;
    return Less(p, q);
}

// The order of hidden intervals when they are sorted and merged: cross
// products taken as unsigned 128-bit numbers. For non-negative numerators and
// positive denominators it is the exact order; for anything else (a host's
// own list) it is still defined, the products wrapping, and merely
// meaningless. The merge puts negative numerators first before it asks.
inline bool UnsignedCrossLess(int64_t a, int64_t b, int64_t c, int64_t d) {
    return static_cast<uint128>(a) * static_cast<uint128>(d) < static_cast<uint128>(c) * static_cast<uint128>(b);
}

// A crossing parameter clamped to the edge: a negative numerator gives 0/1,
// one above its denominator 1/1.
inline Fraction ClampToUnit(const Fraction& t) {
    if (t.numerator < 0) return Fraction{0, 1};
    if (t.numerator > t.denominator) return Fraction{1, 1};
    return t;
}

// ---------------------------------------------------------------------------
// Predicates on grid points. Arguments are grid points, so the bounds of the
// budget above hold.

// Twice the signed screen area of a, b, c: positive when they run
// counter-clockwise in x, y.
inline int64_t ScreenArea2(const BakedVertex& a, const BakedVertex& b, const BakedVertex& c) {
    return (int64_t{b.x} - a.x) * (int64_t{c.y} - a.y) - (int64_t{c.x} - a.x) * (int64_t{b.y} - a.y);
}

// The side of x with respect to the line p -> q on screen: positive to its
// left, the inside of a counter-clockwise triangle, zero on the line. Written
// as the occlusion query of feature edges takes it; equal to
// ScreenArea2(p, q, x).
inline int64_t ScreenSide(const BakedVertex& x, const BakedVertex& p, const BakedVertex& q) {
    return (int64_t{x.y} - p.y) * (int64_t{q.x} - p.x) + (int64_t{x.x} - p.x) * (int64_t{p.y} - q.y);
}

// The change of ScreenSide(., p, q) from a to b.
inline int64_t ScreenSideChange(const BakedVertex& a, const BakedVertex& b, const BakedVertex& p,
                                const BakedVertex& q) {
    return (int64_t{b.y} - a.y) * (int64_t{q.x} - p.x) + (int64_t{b.x} - a.x) * (int64_t{p.y} - q.y);
}

// The plane record (c - a) x (b - a) of a triangle a, b, c; its z is
// -ScreenArea2, so it is negative for a counter-clockwise triangle.
inline Wm4::Vector3<int64_t> PlaneRecord(const BakedVertex& a, const BakedVertex& b, const BakedVertex& c) {
    const int64_t ux = int64_t{c.x} - a.x, uy = int64_t{c.y} - a.y, uz = int64_t{c.z} - a.z;
    const int64_t vx = int64_t{b.x} - a.x, vy = int64_t{b.y} - a.y, vz = int64_t{b.z} - a.z;
    return Wm4::Vector3<int64_t>(uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx);
}

// (x - p0) . n: negative when x lies behind the plane through p0 with record
// n, that is farther from the viewer.
inline int64_t PlaneDistance(const BakedVertex& x, const BakedVertex& p0, const Wm4::Vector3<int64_t>& n) {
    return (int64_t{x.x} - p0.x) * n[0] + (int64_t{x.y} - p0.y) * n[1] + (int64_t{x.z} - p0.z) * n[2];
}

// ---------------------------------------------------------------------------
// Filters. A double evaluation decides where it lies farther from a tie than
// its error bound; nearer, the integer path does. The bounds are static:
// derived here from the ranges of the arguments, in units of the double's
// unit roundoff u = 2^-53, with gamma(k) = k u / (1 - k u) the relative error
// of a product or quotient of k rounded factors. A filter never changes a
// decision, so none of this is a tolerance.

constexpr double kUnitRoundoff = 0x1p-53;
constexpr double Gamma(int k) { return k * kUnitRoundoff / (1.0 - k * kUnitRoundoff); }

// Where a grid segment meets a plane, in double: a + (b - a) q with the
// parameter's quotient q = n / d, taken once for every coordinate of the
// crossing. For int32 ends and 0 <= n <= d, d > 0: n, d and their quotient
// round three times, q = t (1 + e3) with |e3| <= gamma(3); b - a is exact
// (below 2^33); the product rounds once more, so it is (b - a) t (1 + e4)
// with |e4| <= gamma(4), and the sum once, relatively to its own size, at
// most 2^31 plus the product's error. With |b - a| t <= 2^32:
//   |estimate - exact| <= gamma(4) 2^32 + u (2^31 + gamma(4) 2^32).
// When n = d the quotient is 1 exactly and the estimate is b itself; when
// a = b it is a: exact in both cases.
constexpr double kAlongEstimateError = 0x1p-18;
static_assert(Gamma(4) * 0x1p32 + kUnitRoundoff * (0x1p31 + Gamma(4) * 0x1p32) <= kAlongEstimateError,
              "the bound covers the estimate of a crossing coordinate");
inline double AlongQuotient(int64_t numerator, int64_t denominator) {
    return static_cast<double>(numerator) / static_cast<double>(denominator);
}
inline double AlongEstimate(int32_t a, int32_t b, double quotient) {
    return static_cast<double>(a) + (static_cast<double>(b) - static_cast<double>(a)) * quotient;
}

// FloorAlong's estimate of the offset from the smaller end, span (part / d)
// for 0 < part < d and span < 2^32: three roundings in the quotient and one
// in the product, so |estimate - exact| <= gamma(4) 2^32. Its floor k is the
// exact floor when the estimate's fraction, estimate - k (exact: the estimate
// lies within [k, 2k) or is below 1), is at least the bound away from both
// k and k + 1.
constexpr double kFloorEstimateError = 0x1p-18;
static_assert(Gamma(4) * 0x1p32 <= kFloorEstimateError, "the bound covers FloorAlong's estimate");
static_assert(1.0 - kFloorEstimateError < 1.0, "the upper margin is representable");

// The floor of a + (b - a) * numerator / denominator, for 0 <= numerator /
// denominator <= 1, exactly: the crossing of a segment with a plane put on
// the grid. Defined (between a and b) for any other arguments too.
// A double estimate from the smaller end, taken when it is clear of the
// integers by its error bound, otherwise corrected by 128-bit comparisons.
int32_t FloorAlong(int32_t a, int32_t b, int64_t numerator, int64_t denominator);

// The same for each coordinate of a grid segment.
inline BakedVertex FloorAlong(const BakedVertex& a, const BakedVertex& b, const Fraction& t) {
    return BakedVertex{FloorAlong(a.x, b.x, t.numerator, t.denominator),
                       FloorAlong(a.y, b.y, t.numerator, t.denominator),
                       FloorAlong(a.z, b.z, t.numerator, t.denominator)};
}

}  // namespace exact
}  // namespace ctr

#endif
