// Position order of mesh edges: the canonical direction of an edge and the
// sort key that brings geometrically identical edges together.
#ifndef CTR_LINES_EDGEORDER_H
#define CTR_LINES_EDGEORDER_H

#include <cmath>
#include <cstdint>
#include <cstring>

#include "Wm4Vector3.h"
#include "qe/qeVertexBuffer.h"

namespace ctr {
namespace edges {

// -1, 0 or 1 as float comparison orders a and b, refined so that values
// compare equal only when their bits are: -0 comes just before +0, and NaN
// after every number, NaNs ordered by their bits. Edges are grouped by
// bit-identical positions; were -0 and +0 equal here, a copy of an edge at
// -0 could sort between two copies at +0 and split their group.
inline int CompareFloat(float a, float b) {
    if (a < b) return -1;
    if (b < a) return 1;
    uint32_t aBits;
    uint32_t bBits;
    std::memcpy(&aBits, &a, sizeof aBits);
    std::memcpy(&bBits, &b, sizeof bBits);
    if (aBits == bBits) return 0;
    if (a == b) return std::signbit(a) ? -1 : 1;  // -0 against +0
    const bool aNaN = std::isnan(a);
    const bool bNaN = std::isnan(b);
    if (aNaN != bNaN) return aNaN ? 1 : -1;
    return aBits < bBits ? -1 : 1;
}

// An unsigned key whose integer order is the order of CompareFloat: a
// bijection of the 2^32 bit patterns, so equal keys mean equal bits.
// Numbers with the sign bit clear go above those with it set (+0 just after
// -0), NaNs with the sign bit clear just above +inf, and NaNs with it set,
// whose bits are already the largest, keep them.
inline uint32_t FloatOrderKey(float f) {
    uint32_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    if (bits < 0x80000000u) return bits + 0x7F800001u;   // +0 .. +inf, then the NaNs without sign
    if (bits <= 0xFF800000u) return 0xFF800000u - bits;  // -inf .. -0, larger magnitude first
    return bits;                                         // NaNs with the sign bit
}

// -1, 0 or 1 as float comparison orders a and b by value (-0 and +0 alike),
// with NaN after every number and all NaNs alike: a strict weak order for
// sorts and searches that match positions by float equality. NaN still
// equals nothing under ==, so callers that weld or match compare that way.
inline int CompareValue(float a, float b) {
    if (a < b) return -1;
    if (b < a) return 1;
    return static_cast<int>(std::isnan(a)) - static_cast<int>(std::isnan(b));
}

// Lexicographic (x, y, z) order of positions by value, as CompareValue.
inline int ComparePositionValue(const Wm4::Vector3<float>& p, const Wm4::Vector3<float>& q) {
    for (int axis = 0; axis < 3; ++axis) {
        const int order = CompareValue(p[axis], q[axis]);
        if (order != 0) return order;
    }
    return 0;
}

inline int ComparePosition(const Wm4::Vector3<float>& p, const Wm4::Vector3<float>& q) {
    for (int axis = 0; axis < 3; ++axis) {
        const int order = CompareFloat(p[axis], q[axis]);
        if (order != 0) return order;
    }
    return 0;
}

inline bool BitIdentical(const Wm4::Vector3<float>& p, const Wm4::Vector3<float>& q) {
    return std::memcmp(static_cast<const float*>(p), static_cast<const float*>(q), 3 * sizeof(float)) == 0;
}

// Orders the ends of an edge in place: smaller position first, equal
// positions by the smaller index as a signed 32-bit number.
inline void MakeCanonical(const qe::qeVertexBuffer& vertices, uint32_t& a, uint32_t& b) {
    const int order = ComparePosition(vertices.Position3(static_cast<int>(a)), vertices.Position3(static_cast<int>(b)));
    if (order > 0 || (order == 0 && static_cast<int32_t>(b) < static_cast<int32_t>(a))) {
        const uint32_t first = b;
        b = a;
        a = first;
    }
}

// Sort key of canonical edges (a1, b1) and (a2, b2): both start positions,
// then both end positions, then the indices.
inline bool EdgeLess(const qe::qeVertexBuffer& vertices, uint32_t a1, uint32_t b1, uint32_t a2, uint32_t b2) {
    if (a1 == a2 && b1 == b2) return false;
    int order = ComparePosition(vertices.Position3(static_cast<int>(a1)), vertices.Position3(static_cast<int>(a2)));
    if (order == 0)
        order = ComparePosition(vertices.Position3(static_cast<int>(b1)), vertices.Position3(static_cast<int>(b2)));
    if (order != 0) return order < 0;
    return a1 != a2 ? a1 < a2 : b1 < b2;
}

}  // namespace edges
}  // namespace ctr

#endif
