// Paths of the layered sheet: arcs written as SVG arc commands where they are
// circles on the page, and pieces that meet end to end chained into one path
// (dashed hidden lines above all), every piece drawn once.
#include <map>
#include <utility>

#include "TestSupport.h"
#include "ctr/ExportParameters.h"
#include "ctr/SheetLines.h"
#include "ctr/SheetWriter.h"
#include "export/PathWriting.h"

namespace {

using V3 = Wm4::Vector3<float>;
using SetPointer = qe::qePointer<ctr::LineSegmentSet>;

using ctr_test::ParsePaths;
using tCommand = ctr_test::SvgCommand;
using tPath = ctr_test::SvgPath;

struct tPoint {
    double x, y;
};
tPoint At(const tCommand& c) { return {c.x, c.y}; }

double DistanceToSegment(const tPoint& p, const tPoint& a, const tPoint& b) {
    const double dx = b.x - a.x, dy = b.y - a.y, length = dx * dx + dy * dy;
    const double t = length > 0.0 ? std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / length, 0.0, 1.0) : 0.0;
    return std::hypot(p.x - a.x - t * dx, p.y - a.y - t * dy);
}

// Compares an arc path with the segment path it replaces: the same start,
// every command ending on one of the segment path's points as written, in
// order, at least one arc, and points sampled along every arc (its centre
// found as a renderer finds it, from the end points, radius and flags) no
// farther from the segments than allowed. Returns the arc commands seen.
size_t ExpectArcsFollowSegments(const tPath& arcs, const tPath& segments, const std::string& what) {
    if (arcs.empty() || segments.empty() || arcs.front().end != segments.front().end) {
        ADD_FAILURE() << what << ": paths start apart";
        return 0;
    }
    size_t at = 0, count = 0;
    for (size_t c = 1; c < arcs.size(); ++c) {
        const size_t from = at;
        for (++at; at < segments.size() && segments[at].end != arcs[c].end;) ++at;
        if (at == segments.size() || (arcs[c].letter == 'L' && at != from + 1)) {
            ADD_FAILURE() << what << ": command " << c << " ends on no point of the segments that follow";
            return count;
        }
        if (arcs[c].letter != 'A') continue;
        ++count;
        const tPoint p = At(arcs[c - 1]), q = At(arcs[c]);
        const double half = 0.5 * std::hypot(q.x - p.x, q.y - p.y);
        const double r = std::max(arcs[c].radius, half);
        const double h = std::sqrt(std::max(r * r - half * half, 0.0));
        const tPoint mid{0.5 * (p.x + q.x), 0.5 * (p.y + q.y)};
        const tPoint normal{-(q.y - p.y) / (2.0 * half), (q.x - p.x) / (2.0 * half)};
        // The centre from which the short way from p to q turns as the flag says.
        tPoint centre{mid.x + h * normal.x, mid.y + h * normal.y};
        const auto cross = [&](const tPoint& o) { return (p.x - o.x) * (q.y - o.y) - (p.y - o.y) * (q.x - o.x); };
        if ((cross(centre) > 0.0) != (arcs[c].sweep == 1)) centre = tPoint{mid.x - h * normal.x, mid.y - h * normal.y};
        const double start = std::atan2(p.y - centre.y, p.x - centre.x);
        const double sweep =
            std::atan2(cross(centre), (p.x - centre.x) * (q.x - centre.x) + (p.y - centre.y) * (q.y - centre.y));
        double worst = 0.0;
        for (int k = 0; k <= 32; ++k) {
            const double angle = start + sweep * k / 32.0;
            const tPoint sample{centre.x + r * std::cos(angle), centre.y + r * std::sin(angle)};
            double nearest = 1e30;
            for (size_t s = from; s < at; ++s)
                nearest = std::min(
                    nearest, DistanceToSegment(sample, At(segments[s]), At(segments[s + 1])));
            worst = std::max(worst, nearest);
        }
        EXPECT_LE(worst, ctr::kArcDeviationMM + 2e-3) << what << ": arc " << c;
    }
    EXPECT_EQ(at + 1, segments.size()) << what << ": the arcs stop short";
    return count;
}

// A circle of radius 1 around the origin in the plane z = 0, as `count`
// chords; each chord with vertices of its own when `pieces`.
SetPointer Circle(int count, bool pieces) {
    std::vector<V3> ring, points;
    std::vector<unsigned> indices;
    for (int k = 0; k < count; ++k) {
        const double angle = 2.0 * 3.14159265358979323846 * k / count;
        ring.emplace_back(static_cast<float>(std::cos(angle)), static_cast<float>(std::sin(angle)), 0.0f);
    }
    for (unsigned k = 0; k < static_cast<unsigned>(count); ++k) {
        const unsigned next = (k + 1) % static_cast<unsigned>(count);
        if (pieces) points.insert(points.end(), {ring[k], ring[next]});
        indices.insert(indices.end(), {pieces ? 2 * k : k, pieces ? 2 * k + 1 : next});
    }
    return ctr_test::LineSet(pieces ? points : ring, indices);
}

std::string Sheet(const ctr::DiscreteProjectionSpace& space, const ctr::LineSegmentSet& set, bool arcs) {
    ctr::ExportParameters parameters(space);
    parameters.computeBestFitTransform();
    ctr::SheetWriter sheet;
    sheet.setWriteArcs(arcs);
    sheet.addView(parameters);
    EXPECT_TRUE(sheet.addLines(ctr::SheetLayer::kSilhouettes, set));
    std::ostringstream out;
    EXPECT_TRUE(sheet.write(out));
    return out.str();
}

// A circle seen face on, from either side (the page's y flip turns the
// sweep), becomes arcs through the chords' own end points; seen at a slant
// it is an ellipse and stays segments, and so does a regular hexagon, whose
// corners lie on a circle but whose sides stray too far from it.
TEST(SheetArcs, CirclesFaceOnOnlyAndOnTheSegmentPoints) {
    struct tCase {
        int chords;
        V3 eye;
        bool round;
    } cases[] = {{120, V3(0.0f, 0.0f, 5.0f), true},
                 {120, V3(0.0f, 0.0f, -5.0f), true},
                 {120, V3(0.0f, 3.0f, 4.0f), false},
                 {6, V3(0.0f, 0.0f, 5.0f), false}};
    for (const tCase& c : cases) {
        for (const bool pieces : {false, true}) {
            const std::string what = std::to_string(c.chords) + " chords from z " + std::to_string(c.eye.Z()) +
                                     (pieces ? ", pieces" : ", shared vertices");
            ctr::DiscreteProjectionSpace space;
            ctr_test::OrthoCamera(space, c.eye, V3(0.0f, 0.0f, 0.0f), 1.2f, 1.2f, 1.0f, 10.0f);
            const SetPointer circle = Circle(c.chords, pieces);
            const std::vector<tPath> segments = ParsePaths(Sheet(space, *circle, false), "");
            const std::vector<tPath> arcs = ParsePaths(Sheet(space, *circle, true), "");
            // Pieces with vertices of their own chain into one loop, too.
            ASSERT_EQ(segments.size(), 1u) << what;
            ASSERT_EQ(arcs.size(), 1u) << what;
            EXPECT_EQ(segments[0].size(), static_cast<size_t>(c.chords + 1)) << what;
            EXPECT_EQ(segments[0].front().end, segments[0].back().end) << what;
            if (!c.round) {
                EXPECT_EQ(arcs[0].size(), segments[0].size()) << what;
                continue;
            }
            // A full turn in arcs under half a turn each.
            EXPECT_EQ(ExpectArcsFollowSegments(arcs[0], segments[0], what), 3u) << what;
            EXPECT_EQ(arcs[0].size(), 4u) << what;
        }
    }
}

// The printed end points of the pieces of a set on the page.
std::map<std::pair<std::string, std::string>, int> PieceCounts(const ctr::LineSegmentSet& set,
                                                               const ctr::ExportParameters& parameters) {
    std::map<std::pair<std::string, std::string>, int> counts;
    const auto print = [&](unsigned int index) {
        const Wm4::Vector2<float> p = ctr::ProjectToSheet(parameters, set, index);
        std::ostringstream out;
        out << p[0] << ',' << p[1];
        return out.str();
    };
    for (int k = 0; k < set.getSegmentQuantity(); ++k) {
        std::string a = print(set.IBuffer->GetData()[2 * k]), b = print(set.IBuffer->GetData()[2 * k + 1]);
        if (b < a) std::swap(a, b);
        ++counts[{a, b}];
    }
    return counts;
}

// The page circle test on its own: three segments at least, every point on
// the circle, turning one way, and no command of half a turn or more.
TEST(SheetArcs, PageCircleTest) {
    const auto on = [](const std::vector<double>& degrees) {
        std::vector<Wm4::Vector2<float>> points;
        for (const double d : degrees)
            points.emplace_back(static_cast<float>(100.0 + 20.0 * std::cos(d * 3.14159265358979323846 / 180.0)),
                                static_cast<float>(100.0 + 20.0 * std::sin(d * 3.14159265358979323846 / 180.0)));
        return points;
    };
    float radius = 0.0f;
    std::vector<ctr::PageArc> arcs;
    EXPECT_TRUE(ctr::FitPageArcs(on({0, 10, 20, 30}), radius, arcs));
    EXPECT_NEAR(radius, 20.0f, 1e-3f);
    ASSERT_EQ(arcs.size(), 1u);
    EXPECT_EQ(arcs[0].end, 3u);
    EXPECT_EQ(arcs[0].sweep, 1);
    // 200 degrees in steps of 10: split before a half turn.
    std::vector<double> wide;
    for (int d = 0; d <= 200; d += 10) wide.push_back(d);
    EXPECT_TRUE(ctr::FitPageArcs(on(wide), radius, arcs));
    ASSERT_EQ(arcs.size(), 2u);
    EXPECT_EQ(arcs[0].end, 16u);                                    // 160 degrees, under 0.9 of a half turn
    EXPECT_FALSE(ctr::FitPageArcs(on({0, 10, 20}), radius, arcs));  // two segments
    EXPECT_FALSE(ctr::FitPageArcs(on({0, 10, 5, 30}), radius, arcs));  // turns back
}

// A line that ends on another leaves the other one path, as the exporter
// chains it; two ends alone at one place join.
TEST(SheetArcs, EndsJoinOnlyWhereTwoMeet) {
    // 0-1-2 shares vertex 1; 3-4 ends on 1's position; 5-6 starts where 2 is.
    const SetPointer set = ctr_test::LineSet(
        {V3(0, 0, 0), V3(1, 0, 0), V3(2, 0, 0), V3(1, 0, 0), V3(1, 1, 0), V3(2, 0, 0), V3(3, 1, 0)},
        {0, 1, 1, 2, 3, 4, 5, 6});
    ctr::DiscreteProjectionSpace space;
    ctr_test::OrthoCamera(space, V3(1.5f, 0.5f, 5.0f), V3(1.5f, 0.5f, 0.0f), 2.0f, 2.0f, 1.0f, 10.0f);
    std::vector<size_t> lengths;
    for (const tPath& path : ParsePaths(Sheet(space, *set, false))) lengths.push_back(path.size());
    std::sort(lengths.begin(), lengths.end());
    EXPECT_EQ(lengths, (std::vector<size_t>{2, 4}));
}

// The hidden holes of a box seen from a corner: the pieces, each with
// vertices of its own, chain into far fewer paths, and every piece is drawn
// once.
TEST(SheetArcs, HiddenPiecesChainAndAreEachDrawnOnce) {
    const contour::ImportedModel model = ctr_test::LoadModel("cad-brep/box_holes.obj");
    ctr::DiscreteProjectionSpace space;
    ctr_test::FrameMeshes(space, model.meshList(), V3(2.0f, 2.0f, 2.0f), false);
    ctr_test::DrawnFeatures computed = ctr_test::ComputeFeatures(space, model.meshList());
    ctr::GeometricFeatures& features = computed.features;
    const SetPointer& hiddenIntersections = computed.hiddenIntersections;
    // Every face of the model has vertices of its own, so each edge comes
    // twice; drawn once, as the tool draws it.
    ctr::LineSegmentSet::RemoveDuplicateSegments(features.creaseEdges);
    ctr::LineSegmentSet::RemoveDuplicateSegments(features.silhouetteEdges);
    ctr::ExportParameters parameters(space);
    parameters.computeBestFitTransform();

    std::map<std::pair<std::string, std::string>, int> expected;
    size_t pieces = 0;
    for (const ctr::LineSegmentSet* set :
         {features.creaseEdges.get(), features.silhouetteEdges.get(), static_cast<ctr::LineSegmentSet*>(nullptr)}) {
        const SetPointer hidden = set ? SetPointer(ctr::BakeHiddenSegments(set)) : hiddenIntersections;
        if (!hidden) continue;
        pieces += static_cast<size_t>(hidden->getSegmentQuantity());
        for (const auto& [piece, count] : PieceCounts(*hidden, parameters)) expected[piece] += count;
    }
    ASSERT_GT(pieces, 200u);

    ctr::SheetWriter sheet;
    sheet.setLayerEnabled(ctr::SheetLayer::kHidden, true);
    sheet.addView(parameters);
    ASSERT_TRUE(sheet.addFeatures(features, hiddenIntersections));
    std::ostringstream out;
    ASSERT_TRUE(sheet.write(out));
    const std::vector<tPath> paths = ParsePaths(out.str(), "hidden");
    std::map<std::pair<std::string, std::string>, int> drawn;
    for (const tPath& path : paths)
        for (size_t c = 1; c < path.size(); ++c) {
            ASSERT_EQ(path[c].letter, 'L');
            const auto ends = std::minmax(path[c - 1].end, path[c].end);
            ++drawn[{ends.first, ends.second}];
        }
    EXPECT_LT(paths.size() * 5, pieces) << paths.size() << " paths for " << pieces << " pieces";
    EXPECT_EQ(drawn, expected);
}

#ifdef CONTOUR_TOOL
// The tool on a box with holes seen from the top, where the holes are round:
// --arcs writes them as arcs on the very points the segments have, in a
// smaller file; --layers alone keeps segments.
using ArcsTool = ctr_test::ToolTest;
TEST_F(ArcsTool, WritesTheRoundHolesAsArcs) {
    const auto draw = [&](const std::string& option) {
        EXPECT_EQ(run(model("cad-brep/box_holes.obj") + " --view top -q " + option + " -o box.svg"), 0) << errors;
        return read("box.svg");
    };
    const std::string layered = draw("--layers"), arcs = draw("--arcs");
    EXPECT_LT(arcs.size() * 2, layered.size());
    size_t arcCommands = 0;
    for (const char* layer : {"creases", "silhouettes", "intersections"}) {
        const std::vector<tPath> segments = ParsePaths(layered, layer), withArcs = ParsePaths(arcs, layer);
        ASSERT_EQ(segments.size(), withArcs.size()) << layer;
        for (size_t p = 0; p < segments.size(); ++p) {
            for (const tCommand& command : segments[p]) EXPECT_NE(command.letter, 'A');
            arcCommands += ExpectArcsFollowSegments(withArcs[p], segments[p], layer + std::to_string(p));
        }
    }
    // Five holes, the large one with a counterbore: six circles.
    EXPECT_GE(arcCommands, 12u);
}
#endif

}  // namespace
