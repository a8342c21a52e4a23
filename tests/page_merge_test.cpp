// Lines that land on one line of the page are drawn once: on real views the
// merged pieces ink exactly what the pieces before inked (within the printed
// rounding), visible ink stays visible, and no two pieces left share a
// stretch of a line; and two coincident rims by hand.
#include <cmath>
#include <algorithm>
#include <filesystem>
#include <map>

#include "TestSupport.h"
#include "ctr/drawing/Camera.h"
#include "ctr/drawing/Drawing.h"
#include "ctr/drawing/ModelImport.h"
#include "ctr/drawing/PageMerge.h"
#include "ctr/drawing/Sheet.h"

namespace {

using V3 = Wm4::Vector3<float>;
using SetPointer = qe::qePointer<ctr::LineSegmentSet>;

// A piece on the page and whether it is visible.
struct tInk {
    double a[2], b[2];
    bool visible;
};

std::vector<tInk> PageInk(const contour::ViewLines& lines) {
    std::vector<tInk> ink;
    const auto add = [&](const SetPointer& set, bool visible) {
        if (!set || !set->IBuffer) return;
        const unsigned int* index = set->IBuffer->GetData();
        for (int k = 0; k < set->getSegmentQuantity(); ++k) {
            tInk piece{{0, 0}, {0, 0}, visible};
            for (int e = 0; e < 2; ++e) {
                const Wm4::Vector2<float> p = lines.parameters->worldToSheet(
                    set->World.ApplyForward(set->VBuffer->Position3(static_cast<int>(index[2 * k + e])), true));
                (e == 0 ? piece.a : piece.b)[0] = p[0];
                (e == 0 ? piece.a : piece.b)[1] = p[1];
            }
            ink.push_back(piece);
        }
    };
    for (const SetPointer* set : {&lines.creases, &lines.silhouettes, &lines.intersections}) add(*set, true);
    for (const SetPointer& set : lines.hidden) add(set, false);
    return ink;
}

double Distance(const double* p, const tInk& piece) {
    const double dx = piece.b[0] - piece.a[0], dy = piece.b[1] - piece.a[1];
    const double length2 = dx * dx + dy * dy;
    double t = length2 > 0.0 ? ((p[0] - piece.a[0]) * dx + (p[1] - piece.a[1]) * dy) / length2 : 0.0;
    t = std::clamp(t, 0.0, 1.0);
    return std::hypot(p[0] - piece.a[0] - t * dx, p[1] - piece.a[1] - t * dy);
}

// Every point of from (sampled every 0.05 mm) lies within tolerance of a piece
// of to; a visible point of a visible one when visibleOnly. Brute force over
// a coarse grid of to's pieces.
size_t PointsAway(const std::vector<tInk>& from, const std::vector<tInk>& to, double tolerance, bool visibleOnly) {
    constexpr double kCell = 2.0;
    std::map<std::pair<long, long>, std::vector<size_t>> grid;
    for (size_t i = 0; i < to.size(); ++i) {
        const tInk& p = to[i];
        for (long x = std::lround(std::floor(std::min(p.a[0], p.b[0]) / kCell));
             x <= std::lround(std::floor(std::max(p.a[0], p.b[0]) / kCell)); ++x)
            for (long y = std::lround(std::floor(std::min(p.a[1], p.b[1]) / kCell));
                 y <= std::lround(std::floor(std::max(p.a[1], p.b[1]) / kCell)); ++y)
                grid[{x, y}].push_back(i);
    }
    size_t away = 0;
    for (const tInk& piece : from) {
        if (visibleOnly && !piece.visible) continue;
        const double length = std::hypot(piece.b[0] - piece.a[0], piece.b[1] - piece.a[1]);
        const int steps = std::max(1, static_cast<int>(std::ceil(length / 0.05)));
        for (int s = 0; s <= steps; ++s) {
            const double t = static_cast<double>(s) / steps;
            const double p[2] = {piece.a[0] + t * (piece.b[0] - piece.a[0]), piece.a[1] + t * (piece.b[1] - piece.a[1])};
            bool near = false;
            for (long dx = -1; dx <= 1 && !near; ++dx)
                for (long dy = -1; dy <= 1 && !near; ++dy) {
                    const auto cell = grid.find({std::lround(std::floor(p[0] / kCell)) + dx,
                                                 std::lround(std::floor(p[1] / kCell)) + dy});
                    if (cell == grid.end()) continue;
                    for (const size_t i : cell->second)
                        if ((!visibleOnly || to[i].visible) && Distance(p, to[i]) <= tolerance) {
                            near = true;
                            break;
                        }
                }
            if (!near) ++away;
        }
    }
    return away;
}

// Pairs of pieces on one line within tolerance that share more of it than
// tolerance: both ends of the shorter near the longer's line. Pieces no
// longer than shortest are not counted: a sliver a few thousandths of a
// millimetre long at a corner where two nearly straight lines meet fits
// both, and the merge may have put it on the other.
size_t OverlappingPairs(const std::vector<tInk>& ink, double tolerance, double shortest) {
    size_t pairs = 0;
    for (size_t i = 0; i < ink.size(); ++i)
        for (size_t j = i + 1; j < ink.size(); ++j) {
            const tInk* l = &ink[i];
            const tInk* s = &ink[j];
            double ll = std::hypot(l->b[0] - l->a[0], l->b[1] - l->a[1]);
            double ls = std::hypot(s->b[0] - s->a[0], s->b[1] - s->a[1]);
            if (ll < ls) std::swap(l, s), std::swap(ll, ls);
            if (!(ls > shortest)) continue;
            const double ux = (l->b[0] - l->a[0]) / ll, uy = (l->b[1] - l->a[1]) / ll;
            const auto off = [&](const double* p) { return std::abs((p[0] - l->a[0]) * uy - (p[1] - l->a[1]) * ux); };
            const auto along = [&](const double* p) { return (p[0] - l->a[0]) * ux + (p[1] - l->a[1]) * uy; };
            if (off(s->a) > tolerance || off(s->b) > tolerance) continue;
            const double t0 = along(s->a), t1 = along(s->b);
            if (std::min(ll, std::max(t0, t1)) - std::max(0.0, std::min(t0, t1)) > tolerance) ++pairs;
        }
    return pairs;
}

struct tView {
    const char* model;
    contour::ViewPreset view;
    bool hidden;
    bool keepCommon;
};

// Real views: the same ink before and after (both ways), visible ink kept
// visible, and no stretch of a line drawn twice.
TEST(PageMerge, KeepsTheInkAndDrawsEachLineOnce) {
    const tView views[] = {{"cad/couplingdown.ply", contour::ViewPreset::kFront, false, false},
                           {"cad/couplingdown.ply", contour::ViewPreset::kFront, true, false},
                           {"cad/couplingdown.ply", contour::ViewPreset::kTop, false, true},
                           {"cad-brep/box_holes.obj", contour::ViewPreset::kFront, true, false},
                           {"scenes/two_balls_intersecting.obj", contour::ViewPreset::kIso, true, false},
                           {"cad/fandisk.obj", contour::ViewPreset::kIso, false, false}};
    for (const tView& view : views) {
        if (ctr_test::FindModel(view.model).empty()) continue;
        SCOPED_TRACE(std::string(view.model) + (view.hidden ? " hidden" : "") + (view.keepCommon ? " keep" : ""));
        const contour::ImportedModel model = ctr_test::LoadModel(view.model);
        const std::vector<const qe::qeTriMesh*> meshes = model.meshList();
        contour::DrawingOptions options;
        options.camera.view = view.view;
        options.hiddenLines = view.hidden;
        options.keepCommon = view.keepCommon;
        contour::CameraMatrices camera;
        std::string error;
        ASSERT_TRUE(contour::FrameCamera(meshes, {}, options.camera, options.pageWidthMM, options.pageHeightMM, camera,
                                         error))
            << error;
        contour::ViewLines lines;
        contour::DrawingStats stats;
        ASSERT_TRUE(contour::ComputeView(meshes, {}, options, camera, contour::FitToPage(options), lines, stats, error,
                                         nullptr, nullptr))
            << error;
        const std::vector<tInk> before = PageInk(lines);
        contour::MergeOnPage(lines, options.keepCommon, stats);
        const std::vector<tInk> after = PageInk(lines);
        const double step = contour::PageRoundingMM(*lines.parameters);
        EXPECT_DOUBLE_EQ(step, 0.001);

        // A merged run and a piece it took each lie within twice the merge's
        // reach (2.5 steps) of the line: twice that apart at most.
        const double reach = 10.0 * step;
        EXPECT_EQ(PointsAway(before, after, reach, false), 0u);
        EXPECT_EQ(PointsAway(after, before, reach, false), 0u);
        EXPECT_EQ(PointsAway(before, after, reach, true), 0u);
        const size_t merged = stats.crease.mergedOnPage + stats.silhouette.mergedOnPage +
                              stats.intersection.mergedOnPage + stats.hidden.mergedOnPage;
        EXPECT_GE(before.size(), after.size() + (view.hidden ? 0 : merged));
        if (!view.keepCommon) {
            EXPECT_EQ(OverlappingPairs(after, step, 10.0 * step), 0u);
        }
    }
}

// The sheet's four views, as written: no stretch of a line twice.
TEST(PageMerge, SheetDrawsEachLineOnce) {
    const contour::ImportedModel model = ctr_test::LoadModel("cad/couplingdown.ply");
    contour::DrawingOptions options;
    options.pageWidthMM = 420.0;
    options.pageHeightMM = 297.0;
    contour::SheetOptions sheet;
    contour::DrawingStats stats;
    std::string error;
    const std::string path =
        (std::filesystem::temp_directory_path() / ("page_merge_sheet_" + std::to_string(::getpid()) + ".svg")).string();
    ASSERT_TRUE(contour::DrawSheet(model.meshList(), {}, options, sheet, path, stats, error)) << error;
    std::vector<tInk> ink;
    for (const char* layer : {"creases", "silhouettes", "intersections"})
        for (const ctr_test::SvgPath& svgPath : ctr_test::ParsePaths(ctr_test::ReadFile(path), layer))
            for (size_t i = 1; i < svgPath.size(); ++i)
                if (svgPath[i].letter == 'L')
                    ink.push_back(tInk{{svgPath[i - 1].x, svgPath[i - 1].y}, {svgPath[i].x, svgPath[i].y}, true});
    std::filesystem::remove(path);
    ASSERT_GT(ink.size(), 100u);
    EXPECT_GT(stats.silhouette.mergedOnPage, 0u);
    // Read from the file, as scripts/svg-duplicates.py reads it.
    EXPECT_EQ(OverlappingPairs(ink, 0.001, 0.01), 0u);
}

// The front and back rims of a square bore seen along its axis, as
// silhouettes, the front one again as creases and the back one hidden too:
// one rim is drawn, as silhouettes; with the creases kept, they keep one rim.
TEST(PageMerge, CoincidentRims) {
    ctr::DiscreteProjectionSpace space;
    ctr_test::OrthoCamera(space, V3(0, 0, 10), V3(0, 0, 0), 2.0f, 2.0f);
    const std::vector<V3> square = {V3(-1, -1, 0), V3(1, -1, 0), V3(1, 1, 0), V3(-1, 1, 0)};
    std::vector<V3> rims = square;
    for (const V3& p : square) rims.push_back(V3(p[0], p[1], -3.0f));
    const std::vector<unsigned> front = {0, 1, 1, 2, 2, 3, 3, 0};
    const std::vector<unsigned> both = {0, 1, 1, 2, 2, 3, 3, 0, 5, 4, 6, 5, 7, 6, 4, 7};
    for (const bool keepCommon : {false, true}) {
        contour::ViewLines lines;
        lines.parameters.emplace(space);
        lines.silhouettes = ctr_test::LineSet(rims, both);
        lines.creases = ctr_test::LineSet(square, front);
        // Half of one back edge hidden, the other half drawn: the hidden half
        // goes to the visible rim over it.
        // A hidden line behind the top edge, sticking out on both sides,
        // keeps the two stretches the rim leaves.
        lines.hidden = {ctr_test::LineSet({V3(-1, -1, -3), V3(0, -1, -3)}, {0, 1}),
                        ctr_test::LineSet({V3(-1.5f, 1, -5), V3(1.5f, 1, -5)}, {0, 1})};
        contour::DrawingStats stats;
        contour::MergeOnPage(lines, keepCommon, stats);
        ASSERT_TRUE(lines.silhouettes);
        EXPECT_EQ(lines.silhouettes->getSegmentQuantity(), 4);
        EXPECT_EQ(stats.silhouette.mergedOnPage, 4u);
        EXPECT_FALSE(lines.hidden[0]);
        ASSERT_TRUE(lines.hidden[1]);
        ASSERT_EQ(lines.hidden[1]->getSegmentQuantity(), 2);
        const std::vector<unsigned> ends = ctr_test::Indices(*lines.hidden[1]);
        for (int k = 0; k < 2; ++k) {
            const float x0 = lines.hidden[1]->VBuffer->Position3(static_cast<int>(ends[2 * k]))[0];
            const float x1 = lines.hidden[1]->VBuffer->Position3(static_cast<int>(ends[2 * k + 1]))[0];
            EXPECT_EQ(std::abs(x1 - x0), 0.5f);
            EXPECT_EQ(std::max(std::abs(x0), std::abs(x1)), 1.5f);
        }
        EXPECT_EQ(stats.hidden.mergedOnPage, 1u);
        if (keepCommon) {
            ASSERT_TRUE(lines.creases);
            EXPECT_EQ(lines.creases->getSegmentQuantity(), 4);
            EXPECT_EQ(stats.crease.mergedOnPage, 0u);
        } else {
            EXPECT_FALSE(lines.creases);
            EXPECT_EQ(stats.crease.mergedOnPage, 4u);
        }
        // Each kept edge runs between two corners of the front or back rim.
        for (const unsigned index : ctr_test::Indices(*lines.silhouettes)) EXPECT_LT(index, 8u);
    }
}

}  // namespace
