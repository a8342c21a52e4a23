#include "exact/Exact.h"

#include <algorithm>

namespace ctr {
namespace exact {

// Spans are below 2^32 and numerators below 2^63, so the products here stay
// below 2^95.
static_assert(static_cast<uint128>(1) << 32 << 63 < static_cast<uint128>(1) << 127,
              "coordinate span times parameter numerator fits 128 bits");

int32_t FloorAlong(int32_t a, int32_t b, int64_t numerator, int64_t denominator) {
    // From the smaller end the offset is non-negative, so its floor is a plain
    // integer quotient: the largest k with k * denominator <= span * part.
    int32_t base = a;
    int64_t span = int64_t{b} - a;
    int64_t part = numerator;
    if (b < a) {
        base = b;
        span = int64_t{a} - b;
        part = denominator - numerator;
    }
    if (span == 0 || part <= 0 || denominator <= 0) return base;
    if (part >= denominator) return static_cast<int32_t>(int64_t{base} + span);
    const uint128 target = static_cast<uint128>(span) * static_cast<uint64_t>(part);
    const uint128 divisor = static_cast<uint64_t>(denominator);
    const double estimate = static_cast<double>(span) * (static_cast<double>(part) / static_cast<double>(denominator));
    // The estimate is finite, not negative and below 2^32: truncation is its
    // floor, and the fraction is exact.
    int64_t k = static_cast<int64_t>(estimate);
    const double fraction = estimate - static_cast<double>(k);
    if (fraction >= kFloorEstimateError && fraction < 1.0 - kFloorEstimateError)
        return static_cast<int32_t>(int64_t{base} + k);
    // The estimate is off by a unit or two at most; clamping first keeps the
    // correction loops short and the result between the two ends.
    k = std::clamp<int64_t>(k, 0, span);
    while (k < span && static_cast<uint128>(k + 1) * divisor <= target) ++k;
    while (k > 0 && static_cast<uint128>(k) * divisor > target) --k;
    return static_cast<int32_t>(int64_t{base} + k);
}

}  // namespace exact
}  // namespace ctr
