// The parts of an intersection edge that baked triangles hide. Unlike a
// feature edge, an intersection edge does not end on grid points: each end is
// an exact rational point on an edge of one of the producing triangles. The
// signs of linear functions at the ends are therefore found exactly from the
// values at that edge's two corners, while the positions of the cuts come
// from a double-precision step (only where a cut falls, never whether).
//
// Bounds (the bit budget in exact/Exact.h): the plane functions of occluders
// are at most 2^61 in magnitude at grid points and their differences 2^62,
// the screen side functions at most 2^57. A crossing parameter has numerator
// and denominator of at most 2^62, so value * denominator and numerator *
// (difference of values) stay below 2^124 each and their sum fits a signed
// 128-bit integer.

#include <algorithm>

#include "check/Check.h"
#include "exact/Exact.h"
#include "visibility/IntersectionInternal.h"

namespace ctr {

namespace {

using exact::int128;
using tInternal = TrianglesIntersection::tInternal;
using tPointOnEdge = tInternal::tPointOnEdge;

int signOf(int128 value) { return (value > 0) - (value < 0); }

// A linear function's values at the two corners of the edge a record lies on.
struct tCornerValues {
    int64_t atStart;
    int64_t atEnd;
};

// The exact sign of the function at the record's crossing, atStart + t *
// (atEnd - atStart), that is the side of t on which the function changes
// sign along the edge.
int signAtCrossing(const tPointOnEdge& end, const tCornerValues& f) {
    const int startSign = signOf(f.atStart);
    if (startSign == signOf(f.atEnd)) return startSign;
    return signOf(static_cast<int128>(f.atStart) * end.denominator +
                  static_cast<int128>(end.numerator) * (static_cast<int128>(f.atEnd) - f.atStart));
}

// Whether triangles inside a node's box may hide part of an edge inside the
// query box: they must overlap it on screen, and not lie wholly behind it. A
// triangle wholly in front of the edge hides it as well as one that crosses
// its depth, so depth prunes on one side only (smaller z is nearer).
bool mayHide(const qe::qeBBox& node, const qe::qeBBox& query) {
    return node.Min[0] <= query.Max[0] && query.Min[0] <= node.Max[0] && node.Min[1] <= query.Max[1] &&
           query.Min[1] <= node.Max[1] && node.Min[2] <= query.Max[2];
}

// Far beyond any value at a grid point, and small enough that the difference
// of a positive and a negative clamped value fits 64 bits.
constexpr int64_t kValueLimit = (int64_t{1} << 62) - 1;
static_assert(2 * (exact::int128{1} << exact::kMaxVolumeBits) < kValueLimit,
              "values at grid points stay below the limit");

// An estimate of the function at the record's crossing. The truncated offset
// has the sign of the corner difference and at most its magnitude (up to one
// rounding), so the sum lies between the corner values; the clamp only keeps
// later arithmetic defined for records off the grid.
int64_t approximateAtCrossing(const tPointOnEdge& end, const tCornerValues& f) {
    if (end.numerator == end.denominator) return f.atEnd;
    const double difference = static_cast<double>(static_cast<int128>(f.atEnd) - f.atStart);
    const int64_t offset =
        exact::DoubleToInt64(static_cast<double>(end.numerator) / static_cast<double>(end.denominator) * difference);
    return static_cast<int64_t>(
        std::clamp<int128>(static_cast<int128>(f.atStart) + offset, -int128{kValueLimit}, int128{kValueLimit}));
}

// Where the function changes sign between the ends, measured from the first
// end; the caller has established exactly that its signs there are opposite,
// so the estimates are forced to keep those signs and the cut lies strictly
// inside (0, 1).
exact::Fraction cutAt(int firstSign, int64_t firstValue, int64_t secondValue) {
    if (firstSign > 0) {
        const int64_t positive = std::max<int64_t>(firstValue, 1);
        const int64_t negative = std::min<int64_t>(secondValue, -1);
        return exact::Fraction{positive, positive - negative};
    }
    const int64_t positive = std::max<int64_t>(secondValue, 1);
    const int64_t negative = std::min<int64_t>(firstValue, -1);
    return exact::Fraction{-negative, positive - negative};
}

}  // namespace

void tInternal::computeEdgeOcclusion(const tEdge& edge, std::vector<RationalInterval>& list) const {
    if (bvh->isEmpty()) return;
    const BakedVertex& p = edge.first.point;
    const BakedVertex& q = edge.second.point;
    // One grid unit of margin keeps occluders that the rounded-down grid
    // points would just miss.
    const BakedVertex low{std::min(p.x, q.x), std::min(p.y, q.y), std::min(p.z, q.z)};
    const BakedVertex high{std::max(p.x, q.x), std::max(p.y, q.y), std::max(p.z, q.z)};
    computeEdgeOcclusionIter(0, edge, exact::GridBox(low, high, 1), list);
}

void tInternal::computeEdgeOcclusionIter(unsigned int node, const tEdge& edge, const qe::qeBBox& box,
                                         std::vector<RationalInterval>& list) const {
    const std::vector<qe::qeBVHNode>& nodes = bvh->getNodes();
    const std::vector<uint32_t>& primitives = bvh->getPrimitives();
    for (;;) {
        if (node >= nodes.size()) return;
        const qe::qeBVHNode& current = nodes[node];
        if (!mayHide(current.box, box)) return;
        if (!current.isLeaf()) {
            computeEdgeOcclusionIter(current.firstChild(), edge, box, list);
            node = current.secondChild();
            continue;
        }
        const uint32_t first = current.firstPrimitive();
        const uint32_t end = first + current.primitiveCount();
        Wm4::Vector2<long> a, b;
        // The producing triangles are not skipped: the edge lies in their
        // planes, so the depth step rejects them.
        for (uint32_t k = first; k < end; ++k)
            if (computeTriangleEdgeOcclusion(edge, primitives[k], a, b))
                list.push_back(RationalInterval{a[0], a[1], b[0], b[1]});
        return;
    }
}

bool tInternal::computeTriangleEdgeOcclusion(const tEdge& edge, unsigned int triangle, Wm4::Vector2<long>& a,
                                             Wm4::Vector2<long>& b) const {
    const tPointOnEdge& first = edge.first;
    const tPointOnEdge& second = edge.second;
    const std::vector<BakedVertex>& vertices = bakedTriangles->getVertices();
    const uint32_t* corner = &bakedTriangles->getTriangles()[3 * static_cast<size_t>(triangle)];
    const BakedVertex* t[3] = {&vertices[corner[0]], &vertices[corner[1]], &vertices[corner[2]]};
    exact::Fraction from{0, 1};
    exact::Fraction to{1, 1};

    // Narrows [from, to] by the half-space where f < 0; false when the edge
    // lies wholly in f >= 0 (nothing hidden whatever the other tests say).
    const auto narrow = [&](const auto& f) {
        const tCornerValues f1{f(first.edgeStart), f(first.edgeEnd)};
        const tCornerValues f2{f(second.edgeStart), f(second.edgeEnd)};
        const int sign1 = signAtCrossing(first, f1);
        const int sign2 = signAtCrossing(second, f2);
        if (sign1 * sign2 != -1) return sign1 + sign2 < 0;
        const exact::Fraction cut = cutAt(sign1, approximateAtCrossing(first, f1), approximateAtCrossing(second, f2));
        // The exact signs decide whether a piece is hidden, the estimates
        // only where it ends: cutAt keeps them on their sides, so the cut
        // must fall strictly inside the edge.
        CTR_ASSERT(cut.numerator > 0 && cut.numerator < cut.denominator);
        if (sign1 > 0) {
            if (exact::LessNegativeFirst(from, cut)) from = cut;
        } else if (exact::LessNegativeFirst(cut, to)) {
            to = cut;
        }
        return true;
    };

    // Depth: negative behind the occluder's plane.
    const Wm4::Vector3<int64_t>& normal = bakedTriangles->getPlanes()[triangle];
    if (!narrow([&](const BakedVertex& x) { return exact::PlaneDistance(x, *t[0], normal); })) return false;
    // Screen: negative strictly inside, to the left of each counter-clockwise
    // side u -> w.
    for (int k = 0; k < 3; ++k) {
        const BakedVertex& u = *t[k];
        const BakedVertex& w = *t[(k + 1) % 3];
        if (!narrow([&](const BakedVertex& x) { return -exact::ScreenSide(x, u, w); })) return false;
        // Bounds only tighten, so an empty range stays empty.
        if (!exact::LessNegativeFirst(from, to)) return false;
    }
    a = Wm4::Vector2<long>(from.numerator, from.denominator);
    b = Wm4::Vector2<long>(to.numerator, to.denominator);
    return true;
}

}  // namespace ctr
