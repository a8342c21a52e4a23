// Several views on one sheet: the standard scales, views placed at a fixed
// scale, the frame and title block, and the tool's multi-view sheet of a real
// part with its views aligned, apart and rendered.
#include <cstdio>
#include <limits>
#include <map>

#include "Wm4Vector4.h"

#include "TestSupport.h"
#include "ctr/SheetLayout.h"
#include "ctr/SheetWriter.h"

namespace {

TEST(SheetScale, TheLargestStandardScaleThatFits) {
    const struct {
        double needed;  // model millimetres per sheet millimetre at least
        const char* label;
    } cases[] = {{0.004, "100:1"}, {0.011, "50:1"},  {0.3, "2:1"},      {0.5, "2:1"},
                 {0.51, "1:1"},    {1.0, "1:1"},     {1.001, "1:2"},    {3.0, "1:5"},
                 {7.0, "1:10"},    {150.0, "1:200"}, {999.0, "1:1000"}, {1e6, "1:1000000"}};
    for (const auto& c : cases) {
        ctr::SheetScale scale;
        ASSERT_TRUE(ctr::ChooseStandardScale(c.needed, scale)) << c.needed;
        EXPECT_EQ(scale.label(), c.label) << c.needed;
        EXPECT_GE(scale.modelPerSheetMM(), c.needed);
    }
    ctr::SheetScale scale;
    for (const double refused :
         {0.0, -1.0, 1.5e6, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()})
        EXPECT_FALSE(ctr::ChooseStandardScale(refused, scale)) << refused;
}

TEST(SheetScale, FrameAndTitleBlockLayer) {
    const ctr::SheetRect block = ctr::TitleBlockRect(Wm4::Vector2<float>(420.0f, 297.0f), 10.0f);
    EXPECT_EQ(block.x + block.width, 410.0f);
    EXPECT_EQ(block.y, 10.0f);
    EXPECT_LE(block.width, 180.0f);
    // A narrow page gives the block the frame's width, never more.
    EXPECT_EQ(ctr::TitleBlockRect(Wm4::Vector2<float>(100.0f, 80.0f), 10.0f).width, 80.0f);

    ctr::DiscreteProjectionSpace space;
    ctr_test::OrthoCamera(space, Wm4::Vector3<float>(0.0f, 0.0f, 50.0f), Wm4::Vector3<float>(0.0f, 0.0f, 0.0f), 10.0f,
                          10.0f);
    ctr::SheetWriter writer;
    writer.setPageSizeInMM(Wm4::Vector2<float>(420.0f, 297.0f));
    writer.addView(ctr::ExportParameters(space), "front <1>");
    ctr::TitleBlock title;
    title.title = "Bracket <A> & \"B\"";
    title.scale = "1:2";
    title.projection = ctr::ProjectionMethod::kFirstAngle;
    title.date = "2024-05-31";
    title.software = "test 1.0";
    writer.setFrame(10.0f, title);
    std::ostringstream out;
    ASSERT_TRUE(writer.write(out));
    const std::string text = out.str();
    const size_t layer = text.find("<g id=\"sheet\" inkscape:groupmode=\"layer\" inkscape:label=\"Sheet\"");
    ASSERT_NE(layer, std::string::npos);
    EXPECT_LT(layer, text.find("<g id=\"creases\""));
    EXPECT_NE(text.find(">Bracket &lt;A&gt; &amp; &quot;B&quot;</text>"), std::string::npos);
    for (const char* value : {">1:2</text>", ">mm</text>", ">2024-05-31</text>", ">test 1.0</text>"})
        EXPECT_NE(text.find(value), std::string::npos) << value;
    // The frame 10 mm in, the block in its bottom-right corner (y down).
    EXPECT_NE(text.find("<rect x=\"10\" y=\"10\" width=\"400\" height=\"277\""), std::string::npos);
    EXPECT_NE(text.find("<rect x=\"240\" y=\"257\" width=\"170\" height=\"30\""), std::string::npos);
    // First angle: the circles of the symbol right of the cone.
    const size_t cone = text.find(" Z\"", layer);
    const size_t circle = text.find("<circle cx=\"", layer);
    ASSERT_NE(cone, std::string::npos);
    ASSERT_NE(circle, std::string::npos);
    EXPECT_GT(std::strtof(text.c_str() + circle + 12, nullptr),
              std::strtof(text.c_str() + text.rfind("<path d=\"M", cone) + 10, nullptr));
}

#ifdef CONTOUR_TOOL
namespace fs = std::filesystem;

struct tBox {
    double minX = std::numeric_limits<double>::infinity(), minY = minX, maxX = -minX, maxY = -minX;
    void add(double x, double y) {
        minX = std::min(minX, x), maxX = std::max(maxX, x);
        minY = std::min(minY, y), maxY = std::max(maxY, y);
    }
    bool apart(const tBox& o) const { return maxX < o.minX || o.maxX < minX || maxY < o.minY || o.maxY < minY; }
};

// A sheet as the tool wrote it: the points of each view's paths (every
// layer), the rectangles of the frame layer and the text of its title block.
struct tSheet {
    std::string text;
    std::map<std::string, std::vector<std::pair<double, double>>> points;
    std::vector<tBox> rects;  // frame, title block
    std::string scale;
    tBox box(const std::string& view) const {
        tBox b;
        for (const auto& [x, y] : points.at(view)) b.add(x, y);
        return b;
    }
};

tSheet readSheet(const std::string& text) {
    tSheet sheet;
    sheet.text = text;
    for (size_t at = text.find("<g id=\""); at != std::string::npos; at = text.find("<g id=\"", at + 1)) {
        const size_t label = text.find("inkscape:label=\"", at) + 16;
        if (text.find("inkscape:groupmode", at) < text.find('>', at)) continue;  // a layer
        auto& points = sheet.points[text.substr(label, text.find('"', label) - label)];
        for (const auto& path : ctr_test::ParsePaths(text.substr(at, text.find("</g>", at) - at)))
            for (const auto& command : path) points.emplace_back(command.x, command.y);
    }
    for (size_t at = text.find("<rect x=\""); at != std::string::npos; at = text.find("<rect x=\"", at + 1)) {
        double x, y, w, h;
        if (std::sscanf(text.c_str() + at, "<rect x=\"%lf\" y=\"%lf\" width=\"%lf\" height=\"%lf\"", &x, &y, &w, &h) ==
            4) {
            tBox r;
            r.add(x, y);
            r.add(x + w, y + h);
            sheet.rects.push_back(r);
        }
    }
    const size_t scale = text.find(">", text.find("<text", text.find(">Scale</text>") + 1)) + 1;
    sheet.scale = text.substr(scale, text.find('<', scale) - scale);
    return sheet;
}

// Two numbers as the file prints them (six significant digits) that stand
// for the same value.
constexpr double kPrinted = 1.1e-3;

// Every coordinate of one view has its equal in the other view.
void ExpectShared(const tSheet& sheet, const std::string& from, const std::string& to, bool xAxis) {
    std::vector<double> targets;
    for (const auto& [x, y] : sheet.points.at(to)) targets.push_back(xAxis ? x : y);
    std::sort(targets.begin(), targets.end());
    size_t unmatched = 0;
    for (const auto& [x, y] : sheet.points.at(from)) {
        const double value = xAxis ? x : y;
        const auto near = std::lower_bound(targets.begin(), targets.end(), value - kPrinted);
        if (near == targets.end() || *near > value + kPrinted) ++unmatched;
    }
    EXPECT_EQ(unmatched, 0u) << from << " and " << to << " share " << (xAxis ? "x" : "y");
}

using SheetTool = ctr_test::ToolTest;

TEST_F(SheetTool, BoxWithHolesViewsAlignedApartAndRendered) {
    const std::string box = model("cad-brep/box_holes.obj");
    ASSERT_EQ(run(box + " --sheet --hidden -q -o third.svg"), 0) << errors;
    const tSheet sheet = readSheet(read("third.svg"));
    for (const char* view : {"front", "top", "right", "iso"}) ASSERT_GT(sheet.points.count(view), 0u) << view;
    EXPECT_EQ(sheet.points.count("left"), 0u);

    // The top view shares the front view's x, the side view its y: hidden
    // hole outlines of the front view included.
    ExpectShared(sheet, "front", "top", true);
    ExpectShared(sheet, "front", "right", false);
    const tBox front = sheet.box("front"), top = sheet.box("top"), side = sheet.box("right"), iso = sheet.box("iso");
    EXPECT_NEAR(front.minX, top.minX, kPrinted);
    EXPECT_NEAR(front.maxX, top.maxX, kPrinted);
    EXPECT_NEAR(front.minY, side.minY, kPrinted);
    EXPECT_NEAR(front.maxY, side.maxY, kPrinted);
    // Third angle (y down the page): top above front, right view right of it.
    EXPECT_LT(top.maxY, front.minY);
    EXPECT_GT(side.minX, front.maxX);
    EXPECT_GT(iso.minX, top.maxX);
    EXPECT_LT(iso.maxY, side.minY);

    // 100 x 20 x 60 mm: the front and iso views (113 mm wide) take 213 mm
    // of the frame's 400 at 1:1, too many at 2:1. The box is drawn true to
    // that scale.
    EXPECT_EQ(sheet.scale, "1:1");
    EXPECT_NEAR(front.maxX - front.minX, 100.0, 0.01);
    EXPECT_NEAR(top.maxY - top.minY, 60.0, 0.01);
    ASSERT_EQ(sheet.rects.size(), 2u);
    const tBox& frame = sheet.rects[0];
    const tBox& block = sheet.rects[1];
    const std::vector<tBox> views = {front, top, side, iso};
    for (size_t i = 0; i < views.size(); ++i) {
        EXPECT_TRUE(views[i].minX > frame.minX && views[i].maxX < frame.maxX && views[i].minY > frame.minY &&
                    views[i].maxY < frame.maxY)
            << "view " << i << " leaves the frame";
        // The title block's strip runs the width of the frame (y down the page).
        EXPECT_LT(views[i].maxY, block.minY) << "view " << i << " runs into the title block's strip";
        for (size_t j = i + 1; j < views.size(); ++j) EXPECT_TRUE(views[i].apart(views[j])) << i << " and " << j;
    }
    EXPECT_NE(sheet.text.find(">2024-05-31</text>"), std::string::npos);
    // A sheet without --page is A3 landscape.
    EXPECT_NE(sheet.text.find("width=\"420mm\" height=\"297mm\""), std::string::npos);
    // Layers: the sheet's own, then hidden lines under the visible kinds.
    size_t layers = 0;
    for (size_t at = sheet.text.find("inkscape:groupmode=\"layer\""); at != std::string::npos;
         at = sheet.text.find("inkscape:groupmode=\"layer\"", at + 1))
        ++layers;
    EXPECT_EQ(layers, 5u);
    EXPECT_LT(sheet.text.find("inkscape:label=\"Sheet\""), sheet.text.find("inkscape:label=\"Hidden lines\""));

    // First angle: the top view moves below the front view, and the view
    // from the left takes the place right of it.
    ASSERT_EQ(run(box + " --sheet --projection first -q -o first.svg"), 0) << errors;
    const tSheet first = readSheet(read("first.svg"));
    ASSERT_GT(first.points.count("left"), 0u);
    EXPECT_EQ(first.points.count("right"), 0u);
    const tBox front1 = first.box("front"), top1 = first.box("top"), side1 = first.box("left");
    EXPECT_GT(top1.minY, front1.maxY);
    EXPECT_GT(side1.minX, front1.maxX);
    EXPECT_NEAR(front1.minX, top1.minX, kPrinted);
    EXPECT_NEAR(front1.maxY, side1.maxY, kPrinted);
    ExpectShared(first, "front", "top", true);
    EXPECT_EQ(first.scale, "1:1");

    if (std::system("command -v rsvg-convert >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "rsvg-convert is not installed (scripts/install-deps.sh installs librsvg2-bin); not rendered";
    const std::string png = (folder / "third.png").string();
    EXPECT_EQ(std::system(("rsvg-convert -w 600 -o '" + png + "' '" + (folder / "third.svg").string() + "'").c_str()),
              0);
    EXPECT_GT(fs::file_size(png), 1000u);
}

#endif

}  // namespace
