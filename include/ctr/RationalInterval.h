// An exact interval of an edge parameter.
#ifndef CTR_RATIONALINTERVAL_H
#define CTR_RATIONALINTERVAL_H

#include <cstdint>

namespace ctr {

// [startNumerator/startDenominator, endNumerator/endDenominator], denominators
// positive, fractions not reduced. Parameter 0 is the edge's first end, 1 its
// second. The whole edge is [0/1, 1/1]; an empty interval is written [1/1, 0/1].
// Compare fractions by cross-multiplying in 128 bits, never by dividing.
struct RationalInterval {
    int64_t startNumerator = 0;
    int64_t startDenominator = 1;
    int64_t endNumerator = 1;
    int64_t endDenominator = 1;

    // Identical fields; equal values written with other denominators differ.
    bool operator==(const RationalInterval& other) const {
        return startNumerator == other.startNumerator && startDenominator == other.startDenominator &&
               endNumerator == other.endNumerator && endDenominator == other.endDenominator;
    }
    bool operator!=(const RationalInterval& other) const { return !(*this == other); }
};

}  // namespace ctr

#endif
