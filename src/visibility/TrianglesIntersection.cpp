// The search for intersecting triangle pairs over the hierarchy, and the
// exact test of one pair.
//
// Bounds (see the bit budget in ExactArithmetic.h): grid coordinates differ by
// at most 2^31, so the plane distances below are those of PlaneDistance
// (|d| < 2^62) and a difference of two of them stays below 2^63. A crossing
// parameter is therefore a 64-bit fraction, and the floor of a crossing needs
// products of at most 2^32 * 2^63 < 2^128.

#include "ctr/TrianglesIntersection.h"

#include <algorithm>

#include "projection/ExactArithmetic.h"
#include "visibility/IntersectionInternal.h"

namespace ctr {

namespace {

using exact::uint128;
using tPointOnEdge = TrianglesIntersection::tInternal::tPointOnEdge;

static_assert(static_cast<uint128>(1) << 32 << 63 < static_cast<uint128>(1) << 127,
              "coordinate span times parameter numerator fits 128 bits");

uint64_t magnitude(int64_t value) {
    // Negating in unsigned arithmetic is defined for every value.
    return value < 0 ? 0u - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
}

// Exact parallelism of two plane records. Only records whose component signs
// agree, or are all opposite, can be parallel under this test; others are
// left to the plane-side tests, which reject parallel planes anyway.
bool areParallel(const Wm4::Vector3<int64_t>& na, const Wm4::Vector3<int64_t>& nb) {
    unsigned patternA = 0, patternB = 0;
    for (int axis = 0; axis < 3; ++axis) {
        patternA |= static_cast<unsigned>(na[axis] < 0) << axis;
        patternB |= static_cast<unsigned>(nb[axis] < 0) << axis;
    }
    if (patternA != patternB && patternA != (patternB ^ 7u)) return false;
    for (int axis = 0; axis < 3; ++axis) {
        const int next = (axis + 1) % 3;
        if (static_cast<uint128>(magnitude(na[axis])) * magnitude(nb[next]) !=
            static_cast<uint128>(magnitude(na[next])) * magnitude(nb[axis]))
            return false;
    }
    return true;
}

bool straddles(const int64_t (&distance)[3]) {
    const bool below = distance[0] < 0 || distance[1] < 0 || distance[2] < 0;
    const bool above = distance[0] > 0 || distance[1] > 0 || distance[2] > 0;
    return below && above;
}

// The two points where the boundary of a triangle that straddles a plane
// crosses it. An edge starting on the plane is skipped: its start is the end
// (t = 1) of the edge before it, so each crossing is produced once.
void findCrossings(const BakedVertex (&corner)[3], const int64_t (&distance)[3], tPointOnEdge* out) {
    int found = 0;
    for (int k = 0; k < 3 && found < 2; ++k) {
        const int next = (k + 1) % 3;
        const int64_t da = distance[k];
        const int64_t db = distance[next];
        if (da == 0 || (db != 0 && (db < 0) == (da < 0))) continue;
        tPointOnEdge& crossing = out[found++];
        crossing.edgeStart = corner[k];
        crossing.edgeEnd = corner[next];
        if (da - db >= 1) {
            crossing.numerator = da;
            crossing.denominator = da - db;
        } else {
            crossing.numerator = -da;
            crossing.denominator = db - da;
        }
        const BakedVertex& a = crossing.edgeStart;
        const BakedVertex& b = crossing.edgeEnd;
        crossing.point = BakedVertex{FloorAlongSegment(a.x, b.x, crossing.numerator, crossing.denominator),
                                     FloorAlongSegment(a.y, b.y, crossing.numerator, crossing.denominator),
                                     FloorAlongSegment(a.z, b.z, crossing.numerator, crossing.denominator)};
    }
}

}  // namespace

int32_t FloorAlongSegment(int32_t a, int32_t b, int64_t numerator, int64_t denominator) {
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
    int64_t k = exact::DoubleToInt64(static_cast<double>(span) *
                                     (static_cast<double>(part) / static_cast<double>(denominator)));
    // The estimate is off by a unit or two at most; clamping first keeps the
    // correction loops short and the result between the two ends.
    k = std::clamp<int64_t>(k, 0, span);
    while (k < span && static_cast<uint128>(k + 1) * divisor <= target) ++k;
    while (k > 0 && static_cast<uint128>(k) * divisor > target) --k;
    return static_cast<int32_t>(int64_t{base} + k);
}

TrianglesIntersection::TrianglesIntersection(const BakedTriangles& triangles)
    : internal(std::make_unique<tInternal>(triangles)) {}

TrianglesIntersection::~TrianglesIntersection() = default;

void TrianglesIntersection::setProgressNotifier(qe::qeProgressNotifierInterface* notifier) {
    internal->progressNotifier = notifier;
}

TrianglesIntersection::tInternal::tTriangleData TrianglesIntersection::tInternal::getTriangleData(
    unsigned int triangle) const {
    const std::vector<BakedVertex>& vertices = bakedTriangles->getVertices();
    const uint32_t* corner = &bakedTriangles->getTriangles()[3 * static_cast<size_t>(triangle)];
    tTriangleData data;
    for (int c = 0; c < 3; ++c) data.vertices[c] = vertices[corner[c]];
    data.normal = bakedTriangles->getPlanes()[triangle];
    data.index = triangle;
    return data;
}

void TrianglesIntersection::tInternal::findIntersectionEdges(tEdgeList& edges) const {
    const uint32_t count = bakedTriangles->getTriangleQuantity();
    for (uint32_t i = 0; i < count; ++i) {
        if (progressNotifier) {
            progressNotifier->advanceProgress(1.0);
            if (progressNotifier->shouldCancel()) return;
        }
        findTriangleIntersections(i, edges);
    }
}

void TrianglesIntersection::tInternal::findTriangleIntersections(unsigned int triangle, tEdgeList& edges) const {
    if (triangle >= bakedTriangles->getTriangleQuantity() || bvh->isEmpty()) return;
    const tTriangleData data = getTriangleData(triangle);
    const BakedVertex(&v)[3] = data.vertices;
    const qe::qeBBox box(Wm4::Vector3<float>(static_cast<float>(std::min({v[0].x, v[1].x, v[2].x})),
                                             static_cast<float>(std::min({v[0].y, v[1].y, v[2].y})),
                                             static_cast<float>(std::min({v[0].z, v[1].z, v[2].z}))),
                         Wm4::Vector3<float>(static_cast<float>(std::max({v[0].x, v[1].x, v[2].x})),
                                             static_cast<float>(std::max({v[0].y, v[1].y, v[2].y})),
                                             static_cast<float>(std::max({v[0].z, v[1].z, v[2].z}))));
    triangleIntersectionIter(0, data, box, edges);
}

void TrianglesIntersection::tInternal::triangleIntersectionIter(unsigned int node, const tTriangleData& triangle,
                                                                const qe::qeBBox& box, tEdgeList& edges) const {
    const std::vector<qe::qeBVHNode>& nodes = bvh->getNodes();
    const std::vector<uint32_t>& primitives = bvh->getPrimitives();
    for (;;) {
        if (node >= nodes.size()) return;
        const qe::qeBVHNode& current = nodes[node];
        if (!current.box.overlaps(box)) return;
        if (!current.isLeaf()) {
            triangleIntersectionIter(current.firstChild(), triangle, box, edges);
            node = current.secondChild();
            continue;
        }
        const uint32_t first = current.firstPrimitive();
        const uint32_t end = first + current.primitiveCount();
        for (uint32_t k = first; k < end; ++k) {
            const uint32_t other = primitives[k];
            // Partners of higher number only: each pair once, never a
            // triangle with itself.
            if (other <= triangle.index) continue;
            tPointOnEdge start{};
            tPointOnEdge finish{};
            if (testTriangleIntersection(triangle, other, start, finish)) edges.emplace_back(start, finish);
        }
        return;
    }
}

bool TrianglesIntersection::tInternal::testTriangleIntersection(const tTriangleData& first, unsigned int second,
                                                                tPointOnEdge& start, tPointOnEdge& end) const {
    const tTriangleData other = getTriangleData(second);
    if (areParallel(first.normal, other.normal)) return false;

    // Slots 0 and 1 hold the first triangle's crossings, 2 and 3 the other's.
    tPointOnEdge slot[4];
    int64_t distance[3];
    for (int k = 0; k < 3; ++k) distance[k] = exact::PlaneDistance(first.vertices[k], other.vertices[0], other.normal);
    // Touching the other plane with a vertex or an edge is not crossing it.
    if (!straddles(distance)) return false;
    findCrossings(first.vertices, distance, slot);
    for (int k = 0; k < 3; ++k) distance[k] = exact::PlaneDistance(other.vertices[k], first.vertices[0], first.normal);
    if (!straddles(distance)) return false;
    findCrossings(other.vertices, distance, slot + 2);

    // Both crossing segments lie on the line where the planes meet; they are
    // compared along the screen axis on which the four points spread most.
    int64_t spread[2];
    for (int axis = 0; axis < 2; ++axis) {
        const auto coordinate = [&](int s) { return axis == 0 ? slot[s].point.x : slot[s].point.y; };
        int32_t low = coordinate(0), high = coordinate(0);
        for (int s = 1; s < 4; ++s) {
            low = std::min(low, coordinate(s));
            high = std::max(high, coordinate(s));
        }
        spread[axis] = int64_t{high} - low;
    }
    if (spread[0] == 0 && spread[1] == 0) return false;
    const bool alongX = spread[0] > spread[1];
    const auto coordinate = [&](int s) { return alongX ? slot[s].point.x : slot[s].point.y; };

    const int lowA = coordinate(1) < coordinate(0) ? 1 : 0;
    const int highA = 1 - lowA;
    const int lowB = coordinate(3) < coordinate(2) ? 3 : 2;
    const int highB = 5 - lowB;
    int from = lowA;
    if (coordinate(lowB) >= coordinate(from)) from = lowB;
    int to = highA;
    if (coordinate(highB) < coordinate(to)) to = highB;
    if (!(coordinate(from) < coordinate(to))) {
        std::swap(from, to);
        // Ends from different triangles in the wrong order: the segments are
        // disjoint or meet in one coordinate. Ends from one triangle: its
        // segment is degenerate on the axis and inside the other's range.
        if ((from < 2) != (to < 2)) return false;
    }
    start = slot[from];
    end = slot[to];
    return true;
}

}  // namespace ctr
