// Line segment sets: crease and outline extraction, fusing, the merge of
// hidden intervals and the occlusion pass, the last checked on a real model
// against testing every triangle.
#include <array>
#include <climits>
#include <limits>
#include <random>

#include "Wm4Math.h"

#include "OcclusionReference.h"
#include "TestSupport.h"
#include "generator/GeneratorInternal.h"
#include "visibility/IntervalMerge.h"

namespace {

using V3 = Wm4::Vector3<float>;
using RI = ctr::RationalInterval;
using ctr::LineSegmentSet;
using ctr_test::Int128;
using Segment = std::pair<unsigned, unsigned>;
using SetPointer = qe::qePointer<LineSegmentSet>;
using Ends = std::array<float, 6>;
using ClipRecord = std::array<float, 4>;

const bool kNotCancelled = false;
const qe::qeCancelInterfaceProxyReadOnly kNeverCancel(kNotCancelled);
const RI kWhole{0, 1, 1, 1};

std::vector<Segment> Segments(const LineSegmentSet& set) {
    std::vector<Segment> out;
    for (int s = 0; s < set.getSegmentQuantity(); ++s)
        out.emplace_back(set.IBuffer->GetData()[2 * s], set.IBuffer->GetData()[2 * s + 1]);
    return out;
}

// The end positions of segment s, for checks that must not depend on which
// copy of a split vertex was taken.
Ends EndsOf(const LineSegmentSet& set, int s) {
    const V3& a = set.VBuffer->Position3(static_cast<int>(set.IBuffer->GetData()[2 * s]));
    const V3& b = set.VBuffer->Position3(static_cast<int>(set.IBuffer->GetData()[2 * s + 1]));
    return {a[0], a[1], a[2], b[0], b[1], b[2]};
}

SetPointer Creases(const qe::qeTriMesh& mesh, float angleDegrees = 5.0f) {
    return LineSegmentSet::GetCreaseEdgesFromMesh(mesh.VBuffer, mesh.IBuffer, kNeverCancel, angleDegrees, true);
}

// The unit cube, two triangles per face, each face with its own four
// vertices carrying the face normal. The last triangle may be given twice.
qe::qePointer<qe::qeTriMesh> Box(bool repeatLast = false) {
    auto box = ctr_test::MakeSplitBox(V3(0, 0, 0), V3(1, 1, 1));
    if (repeatLast) {
        qe::qeIndexBuffer& indices = *box->IBuffer;
        indices.resizeIndexBuffer(39);
        std::copy(indices.GetData() + 33, indices.GetData() + 36, indices.GetData() + 36);
    }
    return box;
}

TEST(CreaseEdges, BoxEmitsBothCopiesOfSplitEdgesAndNothingForSharedOnes) {
    SetPointer set = Creases(*Box());
    ASSERT_NE(set, nullptr);
    ASSERT_EQ(set->getSegmentQuantity(), 24);
    EXPECT_EQ(set->segmentFlags, std::vector<bool>(24, true));
    const std::vector<Segment> segments = Segments(*set);
    std::vector<Ends> ends;
    for (int s = 0; s < 24; ++s) {
        const Ends e = EndsOf(*set, s);
        ends.push_back(e);
        // Canonical, and a cube edge rather than a face diagonal; records come
        // in pairs: one edge, the two faces' own vertices.
        EXPECT_TRUE(std::lexicographical_compare(e.begin(), e.begin() + 3, e.begin() + 3, e.end())) << s;
        EXPECT_EQ(std::fabs(e[3] - e[0]) + std::fabs(e[4] - e[1]) + std::fabs(e[5] - e[2]), 1.0f) << s;
        EXPECT_TRUE(s % 2 == 0 || (ends[s - 1] == e && segments[s - 1] != segments[s])) << s;
    }
    EXPECT_TRUE(std::is_sorted(ends.begin(), ends.end()));

    // A repeated triangle (the last face's, whose neighbours come first in
    // each run) adds copies equal to records already emitted: none is kept.
    set = Creases(*Box(true));
    EXPECT_TRUE(set && set->getSegmentQuantity() == 24);

    // A tetrahedron with shared corners: each edge is two copies of one index
    // pair, whose normals cannot differ.
    const std::vector<V3> tips{V3(1, 1, 1), V3(1, -1, -1), V3(-1, 1, -1), V3(-1, -1, 1)};
    const auto shared = ctr_test::MakeMesh(tips, {0, 1, 2, 0, 3, 1, 0, 2, 3, 1, 3, 2}, tips);
    std::vector<ctr::CreaseEdgeInfo> infos;
    EXPECT_TRUE(ctr::ComputeCreaseEdgeInfo(infos, shared->VBuffer, shared->IBuffer, 5.0f, kNeverCancel));
    EXPECT_TRUE(infos.empty());
    EXPECT_EQ(Creases(*shared), nullptr);
}

std::vector<RI> Merged(std::vector<RI> list) {
    ctr::SortAndMergeIntervals(list);
    return list;
}

TEST(IntervalMerge, MergesTouchingOverlappingAndNestedIntervals) {
    EXPECT_EQ(Merged({}), std::vector<RI>{});
    EXPECT_EQ(Merged({{0, 1, 1, 4}, {1, 4, 1, 2}}), (std::vector<RI>{{0, 1, 1, 2}}));
    EXPECT_EQ(Merged({{1, 3, 1, 2}, {0, 1, 1, 4}}), (std::vector<RI>{{0, 1, 1, 4}, {1, 3, 1, 2}}));
    EXPECT_EQ(Merged({{1, 4, 1, 2}, {0, 1, 1, 1}, {1, 8, 5, 8}}), (std::vector<RI>{{0, 1, 1, 1}}));
    // Equal values written with other denominators touch; an equal end keeps
    // the fields it had.
    EXPECT_EQ(Merged({{1, 4, 3, 4}, {0, 1, 2, 8}}), (std::vector<RI>{{0, 1, 3, 4}}));
    EXPECT_EQ(Merged({{0, 1, 1, 2}, {2, 8, 4, 8}}), (std::vector<RI>{{0, 1, 1, 2}}));
    // A gap of about 2^-61 near 1/2: doubles do not see it and 64-bit
    // products wrap the wrong way; exact 128-bit products keep it.
    const int64_t p60 = int64_t(1) << 60, d = (int64_t(1) << 61) + 4;
    EXPECT_EQ(Merged({{p60 + 2, d, 1, 1}, {0, 1, p60 + 1, d}}),
              (std::vector<RI>{{0, 1, p60 + 1, d}, {p60 + 2, d, 1, 1}}));

    // Longer lists than the insertion sort takes: 40 disjoint intervals in
    // mixed denominators, then 40 touching ones, each given in reverse.
    std::vector<RI> disjoint, touching;
    for (int64_t k = 39; k >= 0; --k) {
        disjoint.push_back(k % 2 ? RI{2 * k, 100, 2 * k + 1, 100} : RI{4 * k, 200, 4 * k + 2, 200});
        touching.push_back({k, 40, k + 1, 40});
    }
    EXPECT_EQ(Merged(disjoint), std::vector<RI>(disjoint.rbegin(), disjoint.rend()));
    EXPECT_EQ(Merged(touching), (std::vector<RI>{{0, 40, 40, 40}}));
}

struct SquareScene {
    qe::qePointer<qe::qeTriMesh> square = ctr_test::MakeMesh(
        {V3(-0.5f, -0.5f, 0), V3(0.5f, -0.5f, 0), V3(0.5f, 0.5f, 0), V3(-0.5f, 0.5f, 0)}, {0, 1, 2, 0, 2, 3});
    ctr::GeometricFeaturesGenerator generator;
    SquareScene() { generator.setSingleExportCluster({square}, nullptr); }
};

// A triangle's sides belong to it: segments behind the square that lie
// exactly on its border on screen (as the back edges of a box seen head-on
// do) are hidden, not drawn over the front edges.
TEST(FeatureOcclusion, SegmentsAlongAnOccludersBorderAreHidden) {
    SquareScene scene;
    const SetPointer set =
        ctr_test::LineSet({V3(-0.5f, -0.5f, 0.5f), V3(0.5f, -0.5f, 0.5f), V3(-0.5f, 0.5f, 0.5f)}, {0, 1, 0, 2});
    scene.generator.computeOcclusion(*set, 0);
    ASSERT_EQ(set->occlusionIntervals.size(), 2u);
    for (const std::vector<RI>& hidden : set->occlusionIntervals)
        EXPECT_EQ(ctr_test::Canonical(hidden, true), std::vector<RI>{kWhole});
}

// Sorted and merged by value, written independently of the library's merge.
std::vector<RI> ReferenceMerge(const std::vector<RI>& list) {
    const auto less = [](int64_t n1, int64_t d1, int64_t n2, int64_t d2) { return Int128(n1) * d2 < Int128(n2) * d1; };
    std::vector<RI> merged;
    for (const RI& r : ctr_test::Canonical(list, true)) {
        RI* last = merged.empty() ? nullptr : &merged.back();
        if (!last || less(last->endNumerator, last->endDenominator, r.startNumerator, r.startDenominator))
            merged.push_back(r);
        else if (less(last->endNumerator, last->endDenominator, r.endNumerator, r.endDenominator))
            *last = {last->startNumerator, last->startDenominator, r.endNumerator, r.endDenominator};
    }
    return merged;
}

// Crease edges of a model seen in perspective, with an occluder through its
// middle: every segment's stored intervals must be those that testing every
// triangle gives for the segment clipped the same way.
void CheckAgainstEveryTriangle(const char* model, const V3& toEye) {
    SCOPED_TRACE(model);
    const contour::ImportedModel imported = ctr_test::LoadModel(model);
    ASSERT_TRUE(imported.hasNormals);
    ctr::DiscreteProjectionSpace space;
    ctr_test::FrameMeshes(space, imported.meshList(), toEye * 2.5f, true, 40.0f, 1.3f);
    const auto [center, radius] = ctr_test::MeshBounds(imported.meshList());
    const V3 eye = center + toEye * (2.5f * radius);

    // Eight upright strips through the middle, across the view: segments
    // passing behind them collect several intervals each.
    V3 forward = center - eye;
    forward.Normalize();
    V3 right = forward.Cross(V3(0, 1, 0));
    right.Normalize();
    const V3 up = right.Cross(forward) * (2.0f * radius);
    right *= 0.125f * radius;
    std::vector<V3> corners;
    std::vector<unsigned> strips;
    for (unsigned k = 0; k < 8; ++k) {
        const V3 left = center + right * (2.0f * float(k) - 8.0f);
        corners.insert(corners.end(), {left - up, left + right - up, left + right + up, left + up});
        strips.insert(strips.end(), {4 * k, 4 * k + 1, 4 * k + 2, 4 * k, 4 * k + 2, 4 * k + 3});
    }
    const auto wall = ctr_test::MakeMesh(corners, strips);
    const std::vector<const qe::qeTriMesh*> occluders{wall};

    ctr::GeometricFeaturesGenerator generator;
    generator.setProjectionSpace(space);
    generator.setSingleExportCluster(imported.meshList(), &occluders);
    const ctr::GeometricFeaturesGenerator::tInternal& internal = generator.getInternal();
    const SetPointer set = internal.computeCreaseEdges(0);
    ASSERT_NE(set, nullptr);
    generator.computeOcclusion(*set, 0);
    const size_t segmentCount = static_cast<size_t>(set->getSegmentQuantity());
    ASSERT_EQ(set->occlusionIntervals.size(), segmentCount);
    ASSERT_EQ(set->segmentClips.size(), segmentCount);

    size_t visible = 0, partly = 0, wholly = 0;
    const unsigned* indices = set->IBuffer->GetData();
    for (size_t i = 0; i < segmentCount; ++i) {
        const V3 a = set->World.ApplyForward(set->VBuffer->Position3(static_cast<int>(indices[2 * i])), true);
        const V3 b = set->World.ApplyForward(set->VBuffer->Position3(static_cast<int>(indices[2 * i + 1])), true);
        ctr::BakedVertex bakedA, bakedB;
        float wA = 0.0f, wB = 0.0f;
        const std::pair<float, float> t = internal.projectionSpace.clipEdgeWorld(a, b, bakedA, bakedB, wA, wB);
        const auto& clip = set->segmentClips[i];
        EXPECT_EQ((ClipRecord{clip.tStart, clip.tEnd, clip.wStart, clip.wEnd}), (ClipRecord{t.first, t.second, wA, wB})) << "segment " << i;
        std::vector<RI> expected{kWhole};
        if (t.first < t.second && (bakedA.x != bakedB.x || bakedA.y != bakedB.y)) {
            expected = ctr_test::BruteForce(internal.bakedTriangles[0], bakedA, bakedB);
            for (const RI& r : ctr_test::BruteForce(internal.occluderTriangles[0], bakedA, bakedB))
                expected.push_back(r);
            expected = ReferenceMerge(expected);
        }
        ASSERT_EQ(ctr_test::Canonical(set->occlusionIntervals[i], true), expected) << "segment " << i;
        (expected.empty() ? visible : expected == std::vector<RI>{kWhole} ? wholly : partly) += 1;
    }
    // The comparison must have met every kind of segment.
    EXPECT_TRUE(visible > 0 && partly > 0 && wholly > 0) << visible << " " << partly << " " << wholly;
}

TEST(FeatureOcclusion, MatchesEveryTriangleReferenceOnRealModels) {
    CheckAgainstEveryTriangle("cad-brep/box_holes.obj", V3(0.5f, 0.6f, 0.7f));
    CheckAgainstEveryTriangle("cad/couplingdown.ply", V3(-0.6f, 0.4f, 0.7f));
}

// Against a plain pairwise search: a's segments go that b holds with equal
// end values, in either direction, with -0 equal to +0 and a NaN end equal
// to nothing. Positions come from a small pool, so that matches, signed
// zeros, infinities, NaN and indices past the buffer all occur often.
TEST(CommonSegments, MatchPairwiseSearchOnRandomSets) {
    const float inf = std::numeric_limits<float>::infinity();
    const float pool[] = {0.0f, -0.0f, 1.0f, std::nextafter(1.0f, 2.0f), -inf, std::nanf("")};
    std::mt19937 random(7);
    const auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    const auto randomSet = [&](int positions, int segments) {
        std::vector<V3> points;
        for (int i = 0; i < positions; ++i) points.emplace_back(pool[pick(6)], pool[pick(3)], pool[pick(2)]);
        std::vector<unsigned> indices;
        for (int i = 0; i < 2 * segments; ++i) indices.push_back(static_cast<unsigned>(pick(positions + 1)));
        return ctr_test::LineSet(points, indices);
    };
    const auto valueEqual = [](const V3& p, const V3& q) { return p[0] == q[0] && p[1] == q[1] && p[2] == q[2]; };
    for (int round = 0; round < 200; ++round) {
        const SetPointer a = randomSet(8, 1 + pick(40));
        const SetPointer b = randomSet(8, pick(40));
        const auto position = [](const LineSegmentSet& set, unsigned index, V3& out) {
            if (index >= static_cast<unsigned>(set.VBuffer->GetVertexQuantity())) return false;
            out = set.VBuffer->Position3(static_cast<int>(index));
            return true;
        };
        bool bHasKey = false;
        std::vector<Segment> expected;
        const std::vector<Segment> segmentsA = Segments(*a), segmentsB = Segments(*b);
        for (const Segment& t : segmentsB) {
            V3 p, q;
            bHasKey = bHasKey || (position(*b, t.first, p) && position(*b, t.second, q));
        }
        for (const Segment& s : segmentsA) {
            V3 p, q, u, v;
            bool common = false;
            if (position(*a, s.first, p) && position(*a, s.second, q))
                for (const Segment& t : segmentsB)
                    if (position(*b, t.first, u) && position(*b, t.second, v))
                        common = common || (valueEqual(p, u) && valueEqual(q, v)) || (valueEqual(p, v) && valueEqual(q, u));
            if (!common || !bHasKey) expected.push_back(s);
        }
        LineSegmentSet::RemoveCommonSegments(a, b);
        EXPECT_EQ(a->IBuffer ? Segments(*a) : std::vector<Segment>(), expected) << round;
    }
}

}  // namespace
