// From hidden intervals to drawable polylines: the visible pieces of a set,
// welding of equal vertices, chaining, and the straight and circular
// stretches found along the chains.
#include <limits>
#include <set>

#include "TestSupport.h"

namespace {

using ctr_test::Indices;
using ctr_test::LineSet;
using V3 = Wm4::Vector3<float>;
using ctr::LineSegmentSet;
using SetPointer = qe::qePointer<LineSegmentSet>;
using Segments = std::vector<std::pair<V3, V3>>;

Segments Geometry(const LineSegmentSet& set) {
    Segments out;
    const unsigned* indices = set.IBuffer->GetData();
    for (int s = 0; s < set.getSegmentQuantity(); ++s)
        out.emplace_back(set.VBuffer->Position3(static_cast<int>(indices[2 * s])),
                         set.VBuffer->Position3(static_cast<int>(indices[2 * s + 1])));
    return out;
}

ctr::RationalInterval Interval(int64_t sn, int64_t sd, int64_t en, int64_t ed) { return {sn, sd, en, ed}; }

TEST(VisibleSegments, CutsAtTheEndsOfHiddenIntervals) {
    // Segment 0 runs along x over 0..8, segment 1 along y over 0..8 and
    // shares vertex 0, segment 2 is hidden whole and uses vertex 3 alone.
    SetPointer set = LineSet({V3(0, 0, 0), V3(8, 0, 0), V3(0, 8, 0), V3(5, 5, 5)}, {0, 1, 0, 2, 3, 1});
    set->setColor(Wm4::ColorRGBA(1, 0, 0, 1));
    set->World.SetTranslate(V3(1, 2, 3));

    // No hidden lists: the very same buffers, nothing cut.
    SetPointer whole = LineSegmentSet::BakeVisibleSegments(set);
    ASSERT_NE(whole, nullptr);
    EXPECT_EQ(whole->VBuffer, set->VBuffer);
    EXPECT_EQ(whole->IBuffer, set->IBuffer);

    set->occlusionIntervals = {
        {Interval(1, 4, 3, 4)}, {Interval(0, 2, 1, 2), Interval(1, 2, 1, 1)}, {Interval(0, 1, 1, 1)}};
    set->segmentClips = {{0, 1, 1, 1}, {0, 1, 1, 1}, {0, 1, 1, 1}};
    SetPointer baked = LineSegmentSet::BakeVisibleSegments(set);
    ASSERT_NE(baked, nullptr);
    // [1/4, 3/4] leaves two pieces on their own end vertices; [0, 1/2] and
    // [1/2, 1] touch and leave a piece of zero length at the middle.
    EXPECT_EQ(Geometry(*baked),
              (Segments{{V3(0, 0, 0), V3(2, 0, 0)}, {V3(6, 0, 0), V3(8, 0, 0)}, {V3(0, 4, 0), V3(0, 4, 0)}}));
    // Kept source vertices first in their order (vertex 3 is dropped), then
    // the cut vertices as they were made.
    EXPECT_EQ(Indices(*baked), (std::vector<unsigned>{0, 2, 3, 1, 4, 5}));
    EXPECT_EQ(baked->VBuffer->GetVertexQuantity(), 6);
    EXPECT_TRUE(baked->World == set->World);
    EXPECT_EQ(baked->getColor(), set->getColor());
    EXPECT_TRUE(baked->occlusionIntervals.empty());

    // Everything hidden: no set at all.
    set->occlusionIntervals = {{Interval(0, 1, 1, 1)}, {Interval(0, 3, 3, 3)}, {Interval(0, 1, 1, 1)}};
    EXPECT_EQ(LineSegmentSet::BakeVisibleSegments(set), nullptr);
}

TEST(VisibleSegments, ClippedEndsAndPerspectiveCuts) {
    SetPointer set = LineSet({V3(0, 0, 0), V3(8, 0, 0)}, {0, 1});
    // Clipped to [1/4, 1], visible whole within: from a new vertex at 2.
    set->occlusionIntervals = {{}};
    set->segmentClips = {{0.25f, 1.0f, 1.0f, 1.0f}};
    SetPointer baked = LineSegmentSet::BakeVisibleSegments(set);
    ASSERT_NE(baked, nullptr);
    EXPECT_EQ(Geometry(*baked), (Segments{{V3(2, 0, 0), V3(8, 0, 0)}}));
    EXPECT_EQ(Indices(*baked), (std::vector<unsigned>{1, 0}));

    // Depth weights 1 and 3: the middle of the drawn segment lies a quarter
    // of the way along the 3D segment.
    set->occlusionIntervals = {{Interval(1, 2, 1, 1)}};
    set->segmentClips = {{0.0f, 1.0f, 1.0f, 3.0f}};
    baked = LineSegmentSet::BakeVisibleSegments(set);
    ASSERT_NE(baked, nullptr);
    EXPECT_EQ(Geometry(*baked), (Segments{{V3(0, 0, 0), V3(2, 0, 0)}}));
}

// The polylines as vertex sequences, each from its head record through its
// linked stretches.
std::vector<std::vector<unsigned>> Chains(const LineSegmentSet& set,
                                          const std::vector<LineSegmentSet::ArcFeature>& arcs) {
    std::vector<std::vector<unsigned>> chains;
    const std::vector<unsigned> indices = Indices(set);
    for (const auto& head : arcs) {
        if (head.previous) continue;
        chains.push_back({indices[head.begin]});
        for (const LineSegmentSet::ArcFeature* piece = &head; piece; piece = piece->next)
            for (uint32_t i = piece->begin; i < piece->end; i += 2) {
                EXPECT_EQ(indices[i], chains.back().back()) << "consecutive segments share their vertex";
                chains.back().push_back(indices[i + 1]);
            }
    }
    return chains;
}

TEST(Polylines, ChainsThroughVerticesOfDegreeTwo) {
    // A closed square 0-1-2-3 given out of order and partly reversed, a Y
    // junction at 4 with arms to 5, 6 and 7 (the arm to 6 going on to 8),
    // and a lone segment 9-10.
    SetPointer set = LineSet(std::vector<V3>(11, V3(0, 0, 0)), {2, 1, 0, 1, 3, 2, 3, 0, 4, 5, 6, 4, 7, 4, 8, 6, 9, 10});
    for (int v = 0; v < 11; ++v) set->VBuffer->Position3(v) = V3(float(v % 4), float(v / 4), float(v * v % 5));
    std::vector<LineSegmentSet::ArcFeature> arcs;
    SetPointer polylines = LineSegmentSet::BuildPolylines(*set, arcs, false);
    ASSERT_NE(polylines, nullptr);
    EXPECT_EQ(polylines->VBuffer, set->VBuffer);
    std::vector<std::vector<unsigned>> chains = Chains(*polylines, arcs);
    ASSERT_EQ(chains.size(), 5u);
    // The loop comes back to its start; each arm of the Y ends at 4.
    EXPECT_EQ(chains[0].size(), 5u);
    EXPECT_EQ(chains[0].front(), chains[0].back());
    std::multiset<std::vector<unsigned>> rest;
    for (size_t c = 1; c < chains.size(); ++c) {
        if (chains[c].back() == 4u || chains[c].front() > chains[c].back())
            std::reverse(chains[c].begin(), chains[c].end());
        rest.insert(chains[c]);
    }
    EXPECT_EQ(rest, (std::multiset<std::vector<unsigned>>{{4, 5}, {4, 6, 8}, {4, 7}, {9, 10}}));
    // Segments the fit never saw give plain records covering the output.
    uint32_t covered = 0;
    for (const auto& arc : arcs) {
        EXPECT_EQ(arc.begin, covered);
        covered = arc.end;
    }
    EXPECT_EQ(covered, 18u);
}

// n chords of a circle of radius 5 in a tilted plane, from angle 0 to
// spanDegrees; closed when the span is 360 (the last point is the first).
SetPointer Arc(int n, float spanDegrees) {
    std::vector<V3> points;
    for (int i = 0; i <= n; ++i) {
        const double t = (i == n && spanDegrees == 360.0f) ? 0.0 : spanDegrees * 3.14159265358979 / 180.0 * i / n;
        points.emplace_back(float(3 + 5 * std::cos(t)), float(-1 + 4 * std::sin(t)), float(2 + 3 * std::sin(t)));
    }
    std::vector<unsigned> indices;
    for (int i = 0; i < n; ++i)
        indices.insert(indices.end(), {unsigned(i), unsigned(i + 1 == n && spanDegrees == 360.0f ? 0 : i + 1)});
    if (spanDegrees == 360.0f) points.pop_back();
    return LineSet(points, indices);
}

TEST(Polylines, FindsArcsAndLines) {
    std::vector<LineSegmentSet::ArcFeature> arcs;
    // Twelve chords closing a circle: one arc over the whole loop.
    SetPointer loop = Arc(12, 360.0f);
    ASSERT_NE(SetPointer(LineSegmentSet::BuildPolylines(*loop, arcs, true)), nullptr);
    ASSERT_EQ(arcs.size(), 1u);
    EXPECT_EQ(arcs[0].flags, LineSegmentSet::ArcFeature::kArc);
    EXPECT_EQ(arcs[0].end - arcs[0].begin, 24u);

    // Three chords over 20 degrees are too shallow to be called an arc.
    ASSERT_NE(SetPointer(LineSegmentSet::BuildPolylines(*Arc(3, 20.0f), arcs, true)), nullptr);
    for (const auto& arc : arcs) EXPECT_EQ(arc.flags, 0u);

    // Flagged collinear segments are fitted as a line; the flags follow
    // their segments.
    SetPointer line = LineSet({V3(0, 0, 0), V3(1, 1, 1), V3(2, 2, 2), V3(3, 3, 3)}, {1, 2, 0, 1, 2, 3});
    line->segmentFlags = {true, true, true};
    SetPointer polylines = LineSegmentSet::BuildPolylines(*line, arcs, true);
    ASSERT_NE(polylines, nullptr);
    ASSERT_EQ(arcs.size(), 1u);
    EXPECT_EQ(arcs[0].flags, LineSegmentSet::ArcFeature::kLine);
    EXPECT_EQ(polylines->segmentFlags, std::vector<bool>(3, true));
    EXPECT_EQ(polylines->VBuffer->GetVertexQuantity(), 4);
    EXPECT_EQ(Chains(*polylines, arcs).size(), 1u);

    // Nothing to chain.
    EXPECT_EQ(SetPointer(LineSegmentSet::BuildPolylines(*LineSet({V3(0, 0, 0)}, {0}), arcs, true)), nullptr);
}

}  // namespace
