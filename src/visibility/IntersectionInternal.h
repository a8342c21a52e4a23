// The private state of TrianglesIntersection: the search for the lines along
// which baked triangles pass through each other, and the occlusion of those
// lines. Every decision is exact on the integer grid.
#ifndef CTR_VISIBILITY_INTERSECTIONINTERNAL_H
#define CTR_VISIBILITY_INTERSECTIONINTERNAL_H

#include <cstdint>
#include <list>
#include <utility>
#include <vector>

#include "Wm4Vector2.h"
#include "Wm4Vector3.h"
#include "qe/qeBBox.h"
#include "qe/qeGenericBVH.h"
#include "qe/qeProgressNotifierInterface.h"

#include "ctr/BakedTriangles.h"
#include "ctr/BakedVertex.h"
#include "ctr/Executor.h"
#include "ctr/RationalInterval.h"
#include "ctr/TrianglesIntersection.h"

namespace ctr {

// Interval ends travel as (numerator, denominator) pairs of longs.
static_assert(sizeof(long) == sizeof(int64_t), "interval ends are 64-bit numerators and denominators");

class TrianglesIntersection::tInternal {
public:
    // The triangle whose partners are being sought.
    struct tTriangleData {
        BakedVertex vertices[3];
        Wm4::Vector3<int64_t> normal;
        uint32_t index;
    };

    // Where an edge of one triangle crosses the other triangle's plane: at
    // parameter numerator / denominator (0 < t <= 1, denominator > 0) from
    // edgeStart towards edgeEnd. point is that crossing rounded down onto the
    // grid, coordinate by coordinate.
    struct tPointOnEdge {
        BakedVertex edgeStart;
        BakedVertex edgeEnd;
        BakedVertex point;
        int64_t numerator;
        int64_t denominator;
    };

    // The same crossing before it is put on the grid.
    struct tCrossing {
        const BakedVertex* edgeStart;
        const BakedVertex* edgeEnd;
        int64_t numerator;
        int64_t denominator;
    };

    using tEdge = std::pair<tPointOnEdge, tPointOnEdge>;
    using tEdgeList = std::list<tEdge>;

    // An edge found for the pair (first, partner), first < partner; rank is
    // the partner's place in the depth-first order of the hierarchy's leaves,
    // the order in which a search from the first triangle meets it.
    struct tHit {
        uint32_t first;
        uint32_t rank;
        tEdge edge;
    };

    explicit tInternal(const BakedTriangles& triangles)
        : bakedTriangles(&triangles), bvh(&triangles.getHierarchy()), progressNotifier(nullptr) {}

    // Appends every intersection edge of the cluster, in search order (by
    // first triangle, then as findTriangleIntersections meets the partners);
    // stops early (keeping what it found) when the notifier asks to cancel.
    void findIntersectionEdges(tEdgeList& edges) const;
    // Every edge of the cluster, sorted by first triangle and rank: the
    // hierarchy is walked against itself once per pair of nodes, in tasks
    // run through the executor when there is one.
    void findAllHits(std::vector<tHit>& hits) const;
    // Appends the edges of one triangle with every triangle of higher number.
    void findTriangleIntersections(unsigned int triangle, tEdgeList& edges) const;
    void triangleIntersectionIter(unsigned int node, const tTriangleData& triangle, const qe::qeBBox& box,
                                  tEdgeList& edges) const;
    // True, with the end points of the common segment, when the two triangles
    // cross each other along a segment.
    bool testTriangleIntersection(const tTriangleData& first, unsigned int second, tPointOnEdge& start,
                                  tPointOnEdge& end) const;
    static bool testTrianglePair(const tTriangleData& first, const tTriangleData& other, tPointOnEdge& start,
                                 tPointOnEdge& end);
    // True when double estimates of the crossings of two triangles with each
    // other's planes (slots 0 and 1 the first triangle's, 2 and 3 the
    // other's) prove that the comparison of their floored screen points finds
    // no common segment; false when they prove nothing.
    static bool crossingsApart(const tCrossing (&slot)[4]);

    // Appends, unsorted, one hidden interval of the edge's parameter per
    // triangle that hides part of it.
    void computeEdgeOcclusion(const tEdge& edge, std::vector<RationalInterval>& list) const;
    void computeEdgeOcclusionIter(unsigned int node, const tEdge& edge, const qe::qeBBox& box,
                                  std::vector<RationalInterval>& list) const;
    // True, with the hidden part [a, b] (numerator, denominator each), when
    // the triangle hides a part of the edge of positive length.
    bool computeTriangleEdgeOcclusion(const tEdge& edge, unsigned int triangle, Wm4::Vector2<long>& a,
                                      Wm4::Vector2<long>& b) const;

    tTriangleData getTriangleData(unsigned int triangle) const;

    const BakedTriangles* bakedTriangles;
    const qe::qeGenericBVH* bvh;
    qe::qeProgressNotifierInterface* progressNotifier;
    Executor* executor = nullptr;
};

}  // namespace ctr

#endif
