// The occlusion query of an edge against the baked triangles. Boxes are
// floats, rounded outward from the grid, and only prune; every decision inside
// a leaf is a sign of an exact 64-bit expression, and interval ends are
// compared by 128-bit cross products, so the result does not depend on
// floating-point error.
//
// Notation: a, b are the edge's ends; P0, P1, P2 the triangle's corners in
// counter-clockwise order; N its plane record. For a triangle side P->Q,
// side(X) >= 0 means X is on the triangle's side of the line; for the plane,
// (X - P0) . N < 0 means X is behind the triangle, i.e. hidden by it.

#include <algorithm>
#include <string>

#include "check/Check.h"
#include "check/Validate.h"
#include "ctr/BakedTriangles.h"
#include "exact/Exact.h"
#include "parallel/Chunks.h"

namespace ctr {

namespace {

// Nodes per chunk when leaves are refitted through the executor.
constexpr size_t kRefitChunk = size_t(1) << 14;

BakedVertex lowerCorner(const BakedVertex& a, const BakedVertex& b) {
    return BakedVertex{std::min(a.x, b.x), std::min(a.y, b.y), std::min(a.z, b.z)};
}

BakedVertex upperCorner(const BakedVertex& a, const BakedVertex& b) {
    return BakedVertex{std::max(a.x, b.x), std::max(a.y, b.y), std::max(a.z, b.z)};
}

}  // namespace

struct BakedTriangles::tKernels {
    static BakedVertex clampToGrid(const BakedTriangles& baked, const BakedVertex& vertex);
    static void occlusionWalk(const BakedTriangles& baked, unsigned int node, const BakedVertex& a,
                              const BakedVertex& b, const qe::qeBBox& box, std::vector<RationalInterval>& list);
    static void testTriangleOcclusion(const BakedTriangles& baked, uint32_t triangle, const BakedVertex& a,
                                      const BakedVertex& b, std::vector<RationalInterval>& list);
    static void refitLeaf(const BakedTriangles& baked, qe::qeBVHNode& leaf);
};

BakedVertex BakedTriangles::tKernels::clampToGrid(const BakedTriangles& baked, const BakedVertex& vertex) {
    const BakedVertex& gridLimit = baked.gridLimit;
    return BakedVertex{std::clamp(vertex.x, 0, gridLimit.x), std::clamp(vertex.y, 0, gridLimit.y),
                       std::clamp(vertex.z, 0, gridLimit.z)};
}

void BakedTriangles::computeOcclusionIntervals(const BakedVertex& a, const BakedVertex& b,
                                               std::vector<RationalInterval>& list) const {
    if (planes.empty() || hierarchy.isEmpty()) return;
    const BakedVertex ca = tKernels::clampToGrid(*this, a);
    const BakedVertex cb = tKernels::clampToGrid(*this, b);
    tKernels::occlusionWalk(*this, 0, ca, cb, exact::GridBox(lowerCorner(ca, cb), upperCorner(ca, cb)), list);
}

void BakedTriangles::computeOcclusionIntervalsIter(unsigned int node, const BakedVertex& a, const BakedVertex& b,
                                                   const qe::qeBBox& box, std::vector<RationalInterval>& list) const {
    if (node >= hierarchy.getNodes().size()) return;
    tKernels::occlusionWalk(*this, node, tKernels::clampToGrid(*this, a), tKernels::clampToGrid(*this, b), box, list);
}

void BakedTriangles::tKernels::occlusionWalk(const BakedTriangles& baked, unsigned int node, const BakedVertex& a,
                                             const BakedVertex& b, const qe::qeBBox& box,
                                             std::vector<RationalInterval>& list) {
    const std::vector<qe::qeBVHNode>& nodes = baked.hierarchy.getNodes();
    for (;;) {
        const qe::qeBVHNode& current = nodes[node];
        // The depth test is one-sided and non-strict: a node whose nearest
        // depth is not nearer than the edge's farthest cannot hide it, while
        // nodes wholly in front of the edge must be kept. Node boxes and the
        // query box are rounded outward, so on grids deeper than a float's
        // mantissa a node is pruned only when its integer box would be.
        if (current.box.Min[0] > box.Max[0] || current.box.Max[0] < box.Min[0] || current.box.Min[1] > box.Max[1] ||
            current.box.Max[1] < box.Min[1] || current.box.Min[2] >= box.Max[2])
            return;
        if (!current.isLeaf()) {
            occlusionWalk(baked, current.firstChild(), a, b, box, list);
            node = current.secondChild();
            continue;
        }
        // 32-bit sum on purpose: a leaf whose range wraps holds nothing.
        const uint32_t first = current.firstPrimitive();
        const uint32_t end = first + current.primitiveCount();
        for (uint32_t k = first; k < end; ++k)
            testTriangleOcclusion(baked, baked.hierarchy.getPrimitives()[k], a, b, list);
        return;
    }
}

void BakedTriangles::tKernels::testTriangleOcclusion(const BakedTriangles& baked, uint32_t triangle,
                                                     const BakedVertex& a, const BakedVertex& b,
                                                     std::vector<RationalInterval>& list) {
    const std::vector<BakedVertex>& vertices = baked.vertices;
    const uint32_t* corner = &baked.triangles[3 * static_cast<size_t>(triangle)];
    const BakedVertex* p[3] = {&vertices[corner[0]], &vertices[corner[1]], &vertices[corner[2]]};

    // An edge nowhere behind the plane is hidden nowhere: decided first, as
    // it is the cheapest test and the commonest way out.
    const Wm4::Vector3<int64_t>& normal = baked.planes[triangle];
    const int64_t depthA = exact::PlaneDistance(a, *p[0], normal);
    const int64_t depthB = exact::PlaneDistance(b, *p[0], normal);
    if (depthA >= 0 && depthB >= 0) return;

    // Clip the edge's parameter range to the three half-planes of the
    // triangle's sides.
    exact::Fraction start{0, 1};
    exact::Fraction end{1, 1};
    for (int k = 0; k < 3; ++k) {
        const BakedVertex& from = *p[k];
        const BakedVertex& to = *p[(k + 1) % 3];
        const int64_t sideA = exact::ScreenSide(a, from, to);
        const int64_t sideB = exact::ScreenSide(b, from, to);
        // Both ends outside this side: no part of the edge is inside. Both
        // inside: the side cuts nothing off. The fractions below would come
        // to the same, at the price of 128-bit comparisons.
        if (sideA < 0 && sideB < 0) return;
        if (sideA >= 0 && sideB >= 0) continue;
        const int64_t change = exact::ScreenSideChange(a, b, from, to);
        if (change == 0) {
            if (sideA < 0) return;
            continue;
        }
        const exact::Fraction crossing = exact::ClampToUnit(exact::MakeFraction(sideA, sideA - sideB));
        if (change > 0) {
            if (exact::Less(start, crossing)) start = crossing;
        } else if (exact::Less(crossing, end)) {
            end = crossing;
        }
        // Bounds only tighten, so an empty range stays empty.
        if (!exact::Less(start, end)) return;
    }

    if (depthA < 0 && depthB >= 0) {
        const exact::Fraction crossing = exact::MakeFraction(depthA, depthA - depthB);
        if (exact::Less(crossing, end)) end = crossing;
    } else if (depthA >= 0) {
        const exact::Fraction crossing = exact::MakeFraction(depthA, depthA - depthB);
        if (exact::Less(start, crossing)) start = crossing;
    }
    if (exact::Less(start, end))
        list.push_back(RationalInterval{start.numerator, start.denominator, end.numerator, end.denominator});
}

void BakedTriangles::tKernels::refitLeaf(const BakedTriangles& baked, qe::qeBVHNode& leaf) {
    leaf.box.makeEmpty();
    const uint32_t first = leaf.firstPrimitive();
    const uint32_t end = first + leaf.primitiveCount();
    if (end <= first) return;
    const std::vector<BakedVertex>& vertices = baked.vertices;
    const std::vector<uint32_t>& triangles = baked.triangles;
    const uint32_t* primitives = baked.hierarchy.getPrimitives().data();
    BakedVertex low{INT32_MAX, INT32_MAX, INT32_MAX};
    BakedVertex high{INT32_MIN, INT32_MIN, INT32_MIN};
    for (uint32_t k = first; k < end; ++k) {
        const uint32_t* corner = &triangles[3 * static_cast<size_t>(primitives[k])];
        for (int c = 0; c < 3; ++c) {
            const BakedVertex& v = vertices[corner[c]];
            low = lowerCorner(low, v);
            high = upperCorner(high, v);
        }
    }
    leaf.box = exact::GridBox(low, high);
}

void BakedTriangles::computeBakedBVHBBox(unsigned int node) {
    std::vector<qe::qeBVHNode>& nodes = hierarchy.getNodes();
    if (node >= nodes.size()) return;
    if (node == 0) {
        // The builder places every child after its parent, so one sweep from
        // the back refits children before the nodes that unite them, without
        // recursion. With an executor the leaves, which need no other node,
        // are refitted first in chunks.
        if (executor) {
            ForEachChunk(executor, nodes.size(), kRefitChunk, [&](size_t, size_t begin, size_t end) {
                for (size_t index = begin; index < end; ++index)
                    if (nodes[index].isLeaf()) tKernels::refitLeaf(*this, nodes[index]);
            });
        }
        for (size_t index = nodes.size(); index-- > 0;) {
            qe::qeBVHNode& current = nodes[index];
            if (current.isLeaf()) {
                if (!executor) tKernels::refitLeaf(*this, current);
                continue;
            }
            current.box.makeEmpty();
            current.box.include(nodes[current.firstChild()].box);
            current.box.include(nodes[current.secondChild()].box);
        }
        if (check::IsValidating()) {
            std::string why;
            CTR_ASSERT_MSG(check::ValidateHierarchy(hierarchy, vertices, triangles, &why), why.c_str());
        }
        return;
    }
    qe::qeBVHNode& current = nodes[node];
    if (current.isLeaf()) {
        tKernels::refitLeaf(*this, current);
        return;
    }
    current.box.makeEmpty();
    computeBakedBVHBBox(current.firstChild());
    computeBakedBVHBBox(current.secondChild());
    current.box.include(nodes[current.firstChild()].box);
    current.box.include(nodes[current.secondChild()].box);
}

}  // namespace ctr
