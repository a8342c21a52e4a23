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

// The floor of a + (b - a) * numerator / denominator, for 0 <= numerator /
// denominator <= 1, exactly: the crossing of a segment with a plane put on
// the grid. Defined (between a and b) for any other arguments too.
// A double estimate from the smaller end, corrected by 128-bit comparisons.
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
