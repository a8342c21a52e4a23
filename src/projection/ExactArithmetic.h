// The exact-arithmetic kit of the visibility code: the one defined conversion
// from floating point to grid integers, the bit budget that keeps every
// product of grid coordinates inside 64 bits, and 128-bit fraction
// comparisons. Names say what is exact: nothing in this header rounds except
// the two conversions, whose out-of-range results are defined here.
#ifndef CTR_EXACTARITHMETIC_H
#define CTR_EXACTARITHMETIC_H

#include <cstdint>
#include <limits>

#include "Wm4Vector3.h"

#include "ctr/BakedVertex.h"

namespace ctr {
namespace exact {

__extension__ typedef __int128 int128;
__extension__ typedef unsigned __int128 uint128;

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

// Bit budget. The projection space accepts xyBits + xyBits + zBits <= 59, and
// a grid coordinate of an axis with b bits lies in [0, 2^b] (the float scale
// may round up to 2^b itself; depth saturates at 2^31 - 1). With coordinate
// differences bounded by 2^xy and 2^z:
//   screen cross products (side values)      |.| <= 2 * 2^(2xy)       <= 2^57
//   plane record components                  |N| <= 2 * 2^(xy+z) or 2 * 2^(2xy)
//   plane distances (X - P0) . N             |.| <= 3 * 2^(2xy+z+1)   <  2^62
//   differences of two plane distances       |.| <= 6 * 2^60          <  2^63
// so every one fits a signed 64-bit integer, and every product of two of them
// fits 128 bits.
constexpr unsigned kMaxBudgetBits = 59;
constexpr unsigned kMaxXYBits = (kMaxBudgetBits - 2) / 2;
constexpr uint128 kInt64Limit = static_cast<uint128>(1) << 63;
static_assert(kMaxXYBits == 28, "xy bits are capped by the budget with the smallest depth");
static_assert(2 * (static_cast<uint128>(1) << (2 * kMaxXYBits)) < kInt64Limit, "side values fit 64 bits");
static_assert(2 * 3 * (static_cast<uint128>(1) << (kMaxBudgetBits + 1)) < kInt64Limit,
              "differences of plane distances fit 64 bits");

// a/b < c/d for positive denominators, exactly.
inline bool FractionLess(int64_t a, int64_t b, int64_t c, int64_t d) {
    return static_cast<int128>(a) * d < static_cast<int128>(c) * b;
}

// Grid predicates. Arguments are grid points, so the bounds above hold.

// Twice the signed screen area of a, b, c: positive when they run
// counter-clockwise in x, y.
inline int64_t ScreenArea2(const BakedVertex& a, const BakedVertex& b, const BakedVertex& c) {
    return (int64_t{b.x} - a.x) * (int64_t{c.y} - a.y) - (int64_t{c.x} - a.x) * (int64_t{b.y} - a.y);
}

// The plane record (c - a) x (b - a) of a triangle a, b, c; its z is
// -ScreenArea2, so it is negative for a counter-clockwise triangle.
inline Wm4::Vector3<int64_t> PlaneRecord(const BakedVertex& a, const BakedVertex& b, const BakedVertex& c) {
    const int64_t ux = int64_t{c.x} - a.x, uy = int64_t{c.y} - a.y, uz = int64_t{c.z} - a.z;
    const int64_t vx = int64_t{b.x} - a.x, vy = int64_t{b.y} - a.y, vz = int64_t{b.z} - a.z;
    return Wm4::Vector3<int64_t>(uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx);
}

// (x - p0) . n: negative when x lies behind the plane through p0 with record n.
inline int64_t PlaneDistance(const BakedVertex& x, const BakedVertex& p0, const Wm4::Vector3<int64_t>& n) {
    return (int64_t{x.x} - p0.x) * n[0] + (int64_t{x.y} - p0.y) * n[1] + (int64_t{x.z} - p0.z) * n[2];
}

}  // namespace exact
}  // namespace ctr

#endif
