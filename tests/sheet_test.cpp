// Hidden lines and the layered sheet: the hidden pieces of every segment are
// exactly what its visible pieces leave of the part in view, on real models
// and on a random scene whose triangles cut each other; and the tool's
// layered file is well formed, marks its Inkscape layers and renders.
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>

#include "TestSupport.h"
#include "ctr/ExportParameters.h"
#include "ctr/SheetLines.h"
#include "ctr/SheetWriter.h"
#include "ctr/TrianglesIntersection.h"
#include "ctr/drawing/HostDrawing.h"
#include "ctr/drawing/Sheet.h"
#include "ctr/drawing/ThreadPool.h"
#include "exact/Exact.h"
#include "visibility/IntersectionInternal.h"
#include "visibility/IntersectionPieces.h"
#include "visibility/IntervalMerge.h"
#include "visibility/SegmentPieces.h"

namespace {

using V3 = Wm4::Vector3<float>;
using SetPointer = qe::qePointer<ctr::LineSegmentSet>;

bool SameBits(const V3& a, const V3& b) { return std::memcmp(&a, &b, sizeof(V3)) == 0; }

// The pieces of a set, each as its two end positions in model space.
std::vector<std::pair<V3, V3>> Pieces(const ctr::LineSegmentSet* set) {
    std::vector<std::pair<V3, V3>> pieces;
    if (!set) return pieces;
    const unsigned int* index = set->IBuffer->GetData();
    for (int k = 0; k < set->getSegmentQuantity(); ++k)
        pieces.emplace_back(set->VBuffer->Position3(static_cast<int>(index[2 * k])),
                            set->VBuffer->Position3(static_cast<int>(index[2 * k + 1])));
    return pieces;
}

// Segment k of source alone, with its hidden intervals and clip record.
SetPointer SegmentAlone(const ctr::LineSegmentSet& source, int k) {
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    SetPointer one = new ctr::LineSegmentSet;
    one->VBuffer = new qe::qeVertexBuffer(attributes, 2);
    one->IBuffer = new qe::qeIndexBuffer(2, qe::qeIndexBuffer::IBT_LINE_LIST);
    for (int end = 0; end < 2; ++end) {
        const unsigned int index = source.IBuffer->GetData()[2 * k + end];
        one->VBuffer->Position3(end) = source.VBuffer->Position3(static_cast<int>(index));
        one->IBuffer->GetData()[end] = static_cast<unsigned int>(end);
    }
    one->occlusionIntervals = {source.occlusionIntervals[static_cast<size_t>(k)]};
    one->segmentClips = {source.segmentClips[static_cast<size_t>(k)]};
    return one;
}

// a/b < c/d for the ends of pieces (positive denominators).
bool Before(const ctr::tPieceEnd& p, const ctr::tPieceEnd& q) {
    return ctr::exact::Less(p.numerator, p.denominator, q.numerator, q.denominator);
}

// Per segment in view: its pieces, visible and hidden, tile the range in view
// exactly (each starts where the one before ends, kinds alternate, none is
// empty); and the baked pieces of both kinds, taken along the segment, meet
// on bit-identical points and add up to its length in view. Returns the
// number of hidden pieces seen.
size_t ExpectComplement(const ctr::LineSegmentSet& set, const std::string& what) {
    size_t hiddenPieces = 0;
    size_t failures = 0;
    const auto fail = [&](int k) {
        return failures++ < 3 ? ::testing::AssertionFailure() << what << " segment " << k
                              : ::testing::AssertionFailure();
    };
    for (int k = 0; k < set.getSegmentQuantity(); ++k) {
        const ctr::LineSegmentSet::tSegmentClip& clip = set.segmentClips[static_cast<size_t>(k)];
        if (!(clip.tStart < clip.tEnd)) continue;
        std::vector<std::pair<bool, std::pair<ctr::tPieceEnd, ctr::tPieceEnd>>> parts;
        ctr::ForEachSegmentPiece(&set.occlusionIntervals[static_cast<size_t>(k)],
                                 [&](bool hidden, const ctr::tPieceEnd& from, const ctr::tPieceEnd& to) {
                                     parts.push_back({hidden, {from, to}});
                                 });
        bool tiled = parts.front().second.first.kind == ctr::tPieceEnd::kSegmentStart &&
                     parts.back().second.second.kind == ctr::tPieceEnd::kSegmentEnd;
        for (size_t i = 0; i < parts.size(); ++i) {
            const auto& [from, to] = parts[i].second;
            tiled = tiled && Before(from, to);
            if (i == 0) continue;
            const ctr::tPieceEnd& previous = parts[i - 1].second.second;
            tiled = tiled && parts[i - 1].first != parts[i].first && previous.kind == from.kind &&
                    previous.numerator == from.numerator && previous.denominator == from.denominator;
        }
        if (!tiled) ADD_FAILURE() << fail(k).message() << ": the pieces do not tile [0, 1]";

        // The baked pieces of this segment alone, ordered along it.
        const SetPointer one = SegmentAlone(set, k);
        const SetPointer visible = ctr::LineSegmentSet::BakeVisibleSegments(one);
        const SetPointer hidden = ctr::BakeHiddenSegments(one);
        const ctr::SegmentCutter cutter(one->VBuffer->Position3(0), one->VBuffer->Position3(1), clip);
        const V3 start = cutter.clippedStart(), direction = cutter.clippedEnd() - start;
        std::vector<std::pair<double, std::pair<V3, V3>>> along;
        for (const auto& piece : Pieces(visible)) along.push_back({(piece.first - start).Dot(direction), piece});
        const size_t visibleCount = along.size();
        for (const auto& piece : Pieces(hidden)) along.push_back({(piece.first - start).Dot(direction), piece});
        hiddenPieces += along.size() - visibleCount;
        std::stable_sort(along.begin(), along.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
        double length = 0.0;
        bool joined = along.size() == parts.size();
        for (size_t i = 0; i < along.size(); ++i) {
            length += (along[i].second.second - along[i].second.first).Length();
            if (i > 0) joined = joined && SameBits(along[i - 1].second.second, along[i].second.first);
        }
        if (!joined) ADD_FAILURE() << fail(k).message() << ": the baked pieces do not meet end to end";
        const double inView = direction.Length();
        if (!(std::abs(length - inView) <= 1e-5 * inView + 1e-6))
            ADD_FAILURE() << fail(k).message() << ": pieces " << length << " long, " << inView << " in view";
    }
    EXPECT_EQ(failures, 0u) << what;
    return hiddenPieces;
}

TEST(HiddenLines, CompleteTheVisiblePiecesOnRealModels) {
    for (const char* file :
         {"cad/anchor.stl", "cad/joint.obj", "scenes/two_balls_intersecting.obj", "organic/spot.obj"})
        for (const bool perspective : {false, true}) {
            const std::string what = std::string(file) + (perspective ? " perspective" : " orthographic");
            const contour::ImportedModel model = ctr_test::LoadModel(file);
            ctr::DiscreteProjectionSpace space;
            ctr_test::FrameMeshes(space, model.meshList(), V3(2.5f, 2.0f, 3.25f), perspective);
            const ctr::GeometricFeatures features = ctr_test::ComputeFeatures(space, model.meshList()).features;
            size_t hidden = 0;
            for (const SetPointer& set : {features.creaseEdges, features.silhouetteEdges})
                if (set) hidden += ExpectComplement(*set, what);
            // Seen from outside, some of every closed model is behind the rest.
            EXPECT_GT(hidden, 0u) << what;
        }
}

// A visible and a hidden piece that meet share their end point bit for bit;
// the visible pieces are those computeIntersectionEdges gives without asking
// for the hidden ones.
TEST(HiddenLines, IntersectionPiecesTileEveryEdge) {
    std::mt19937 random(5);
    std::uniform_real_distribution<float> coordinate(-1.0f, 1.0f);
    std::vector<V3> corners;
    for (int t = 0; t < 80; ++t) {
        const V3 centre(coordinate(random), coordinate(random), coordinate(random));
        for (int c = 0; c < 3; ++c)
            corners.push_back(centre + V3(coordinate(random), coordinate(random), coordinate(random)) * 0.6f);
    }
    std::vector<unsigned int> indices(corners.size());
    for (unsigned int i = 0; i < indices.size(); ++i) indices[i] = i;
    const qe::qePointer<qe::qeTriMesh> mesh = ctr_test::MakeMesh(corners, indices);
    ctr::DiscreteProjectionSpace space;
    ctr_test::PerspectiveCamera(space, V3(2.0f, 1.5f, 3.0f), V3(0, 0, 0), 60.0f, 1.0f, 0.5f, 10.0f);
    ctr::BakedTriangles baked;
    baked.setProjectionSpace(&space);
    baked.setMeshes({mesh});
    baked.initialize();

    const ctr::TrianglesIntersection intersection(baked);
    ctr::TrianglesIntersection::tInternal::tEdgeList edges;
    intersection.getInternal().findIntersectionEdges(edges);
    ASSERT_GT(edges.size(), 20u);
    size_t hiddenIntervals = 0;
    for (const auto& edge : edges) {
        std::vector<ctr::RationalInterval> hidden;
        intersection.getInternal().computeEdgeOcclusion(edge, hidden);
        ctr::SortAndMergeIntervals(hidden);
        hiddenIntervals += hidden.size();
        ctr::exact::Fraction reached{0, 1};
        bool lastHidden = false, tiled = true;
        size_t count = 0;
        ctr::ForEachIntersectionPiece(
            hidden, true, [&](bool isHidden, const ctr::exact::Fraction& from, const ctr::exact::Fraction& to) {
                tiled = tiled && !ctr::exact::Less(from, reached) && !ctr::exact::Less(reached, from) &&
                        ctr::exact::Less(from, to) && (count++ == 0 || isHidden != lastHidden);
                reached = to;
                lastHidden = isHidden;
            });
        EXPECT_TRUE(tiled && !ctr::exact::Less(reached, ctr::exact::Fraction{1, 1}) &&
                    !ctr::exact::Less(ctr::exact::Fraction{1, 1}, reached));
    }
    ASSERT_GT(hiddenIntervals, 0u);

    SetPointer hidden;
    const SetPointer visible = intersection.computeIntersectionEdges(&hidden);
    const SetPointer alone = intersection.computeIntersectionEdges();
    ASSERT_TRUE(visible && alone && hidden);
    const auto visiblePieces = Pieces(visible), alonePieces = Pieces(alone);
    ASSERT_EQ(visiblePieces.size(), alonePieces.size());
    for (size_t i = 0; i < visiblePieces.size(); ++i)
        EXPECT_TRUE(SameBits(visiblePieces[i].first, alonePieces[i].first) &&
                    SameBits(visiblePieces[i].second, alonePieces[i].second));
}

#ifdef CONTOUR_TOOL
// The tool's layered file: the single-view file is left to the other tests.
using SheetTool = ctr_test::ToolTest;
TEST_F(SheetTool, WritesInkscapeLayers) {
    ASSERT_EQ(run(model("cad/joint.obj") + " --hidden --perspective -q -o joint.svg --stats joint.json"), 0) << errors;
    const std::string text = read("joint.svg");

    // Elements nest and close properly: a small check of the structure, with
    // every start tag's name matched by its end tag.
    std::vector<std::string> open;
    size_t groups = 0, paths = 0;
    bool nested = true;
    for (size_t at = text.find('<'); at != std::string::npos && nested; at = text.find('<', at + 1)) {
        const size_t close = text.find('>', at);
        ASSERT_NE(close, std::string::npos);
        const std::string tag = text.substr(at + 1, close - at - 1);
        const std::string name = tag.substr(0, tag.find_first_of(" />"));
        if (tag[0] == '?') continue;
        if (tag[0] == '/') {
            nested = !open.empty() && open.back() == tag.substr(1);
            if (nested) open.pop_back();
        } else if (tag.back() != '/') {
            open.push_back(name);
        }
        groups += name == "g";
        paths += name == "path";
        if (name == "g" && open.size() == 2) {
            EXPECT_NE(tag.find(" inkscape:groupmode=\"layer\""), std::string::npos) << tag;
            EXPECT_NE(tag.find(" inkscape:label=\""), std::string::npos) << tag;
            EXPECT_NE(tag.find(" stroke-width=\""), std::string::npos) << tag;
        }
    }
    EXPECT_TRUE(nested && open.empty()) << "unbalanced elements";
    EXPECT_EQ(groups, 4u);
    EXPECT_GT(paths, 10u);
    EXPECT_NE(text.find("xmlns:inkscape=\"http://www.inkscape.org/namespaces/inkscape\""), std::string::npos);
    // Silhouettes 0.2 mm wide, so hidden lines 0.1 mm with 1.2 mm dashes and
    // 0.3 mm gaps; hidden lines are drawn first, under the others.
    const size_t hiddenLayer =
        text.find("<g id=\"hidden\" inkscape:groupmode=\"layer\" inkscape:label=\"Hidden lines\"");
    EXPECT_LT(hiddenLayer, text.find("<g id=\"creases\""));
    EXPECT_NE(text.find("stroke-width=\"0.1\" stroke-linecap=\"butt\" stroke-linejoin=\"round\" "
                        "stroke-dasharray=\"1.2 0.3\">\n  <path"),
              std::string::npos);
    EXPECT_NE(read("joint.json").find("\"hidden\": {\n      \"pieces\": "), std::string::npos);
}
#endif

// Asks to stop at its n-th question; counts where the questions come from.
class StopAfter : public contour::DrawingMonitor {
public:
    explicit StopAfter(int n) : m_left(n) {}
    void phaseStarted(const char*) override {}
    bool shouldCancel() override {
        offThread = offThread || std::this_thread::get_id() != m_owner;
        return --m_left < 0;
    }
    void setTotalProgress(double) override {}
    void advanceProgress(double) override {}
    bool offThread = false;

private:
    int m_left;
    std::thread::id m_owner = std::this_thread::get_id();
};

// A sheet's views computed one after another, side by side on two threads,
// and with three threads (sides side by side, the other two views with the
// pool inside) make the same file; a request to stop ends a sheet computed
// side by side, and the host's monitor is only ever asked on its own thread.
TEST(SheetViews, SameSheetComputedInAnyOrderAndStoppable) {
    const contour::ImportedModel model = ctr_test::LoadModel("cad/joint.obj");
    contour::DrawingOptions options;
    options.pageWidthMM = 420.0;
    options.pageHeightMM = 297.0;
    options.hiddenLines = true;
    contour::SheetOptions sheet;
    sheet.date = "2000-01-01";
    const std::string path =
        (std::filesystem::temp_directory_path() / ("sheet_views_" + std::to_string(::getpid()) + ".svg")).string();
    std::string files[3];
    contour::ThreadPool two(2), three(3);
    ctr::Executor* executors[3] = {nullptr, &two, &three};
    for (int i = 0; i < 3; ++i) {
        contour::DrawingStats stats;
        std::string error;
        ASSERT_TRUE(contour::DrawSheet(model.meshList(), {}, options, sheet, path, stats, error, executors[i]))
            << error;
        files[i] = ctr_test::ReadFile(path);
    }
    std::filesystem::remove(path);
    EXPECT_GT(files[0].size(), 1000u);
    EXPECT_EQ(files[0], files[1]);
    EXPECT_EQ(files[0], files[2]);

    // How often the starting thread asks depends on how many views it took
    // itself; it asks at least once per batch of views, and there are two.
    for (const int questions : {0, 1}) {
        StopAfter stop(questions);
        contour::DrawingStats stats;
        std::string error;
        EXPECT_FALSE(contour::DrawSheet(model.meshList(), {}, options, sheet, path, stats, error, &two, &stop));
        EXPECT_TRUE(stats.cancelled) << questions;
        EXPECT_FALSE(stop.offThread);
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

// A prepared model draws what the host drawing draws from the same inputs,
// byte for byte, for a view and a sheet drawn on two threads at once: in the
// unit it was prepared in (centimetres: a sheet's scale shows it) and with
// the file's conventions (an STL's up is z). Another unit is refused.
TEST(PreparedDrawing, DrawsAsTheHostDrawingOnTwoThreads) {
    std::vector<contour::HostInput> models{{"anchor.stl", ctr_test::LoadModel("cad/anchor.stl")}};
    contour::DrawingRequest requests[2];
    for (contour::DrawingRequest& request : requests) {
        request.units = contour::LengthUnit::kCentimetre;
        request.threads = 1;
        request.drawing.hiddenLines = true;
    }
    requests[0].drawing.camera.azimuthElevation = {{30.0, 20.0}};
    requests[1].sheet = true;
    requests[1].sheetOptions.date = "2000-01-01";
    const contour::PreparedDrawing prepared(models, {}, contour::LengthUnit::kCentimetre, 2, 0.0);
    contour::HostDrawing expected[2], drawn[2];
    contour::JobOutcome outcomes[2];
    std::string errors[2];
    std::thread other([&] { outcomes[1] = prepared.Draw(requests[1], drawn[1], errors[1]); });
    outcomes[0] = prepared.Draw(requests[0], drawn[0], errors[0]);
    other.join();
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(outcomes[i], contour::JobOutcome::kDrawn) << errors[i];
        ASSERT_EQ(contour::DrawHostModels(requests[i], models, {}, 0.0, expected[i], errors[i]),
                  contour::JobOutcome::kDrawn);
        EXPECT_EQ(drawn[i].svg, expected[i].svg) << i;
    }

    requests[0].units.reset();
    EXPECT_EQ(prepared.Draw(requests[0], drawn[0], errors[0]), contour::JobOutcome::kFailed);
    EXPECT_TRUE(drawn[0].stats.optionRefused && drawn[0].svg.empty());
    EXPECT_NE(errors[0].find("units"), std::string::npos) << errors[0];
}

}  // namespace
