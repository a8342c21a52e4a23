// Several views on one sheet: the standard scales, views placed at a fixed
// scale, the frame and title block, and the tool's multi-view sheet of a real
// part with its views aligned, apart and rendered.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <tuple>
#include <limits>
#include <map>

#include "Wm4Vector4.h"

#include "TestSupport.h"
#include "ctr/SheetLayout.h"
#include "ctr/SheetWriter.h"
#include "ctr/drawing/Sheet.h"

namespace {

TEST(SheetScale, TheLargestStandardScaleThatFits) {
    const struct {
        double needed;  // model millimetres per sheet millimetre at least
        const char* label;
    } cases[] = {{1e-9, "1000000000:1"}, {3e-7, "2000000:1"}, {0.004, "200:1"},  {0.011, "50:1"},
                 {0.3, "2:1"},           {0.5, "2:1"},         {0.51, "1:1"},    {1.0, "1:1"},
                 {1.001, "1:2"},         {3.0, "1:5"},         {7.0, "1:10"},    {150.0, "1:200"},
                 {999.0, "1:1000"},      {1.5e6, "1:2000000"}, {1e9, "1:1000000000"}};
    for (const auto& c : cases) {
        ctr::SheetScale scale;
        ASSERT_TRUE(ctr::ChooseStandardScale(c.needed, scale)) << c.needed;
        EXPECT_EQ(scale.label(), c.label) << c.needed;
        EXPECT_GE(scale.modelPerSheetMM(), c.needed);
    }
    ctr::SheetScale scale;
    for (const double refused :
         {0.0, -1.0, 1.1e9, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()})
        EXPECT_FALSE(ctr::ChooseStandardScale(refused, scale)) << refused;

    // Forced scales: two positive whole numbers that an int holds.
    ASSERT_TRUE(ctr::ParseSheetScale("5:1", scale));
    EXPECT_EQ(scale.label(), "5:1");
    ASSERT_TRUE(ctr::ParseSheetScale("1:999999999", scale));
    EXPECT_EQ(scale.model, 999999999);
    for (const char* refused : {"1:2.5", "0:1", "1:0", ":2", "1:", "12", "1:2:3", "-1:2", " 1:2", "1:1234567890"})
        EXPECT_FALSE(ctr::ParseSheetScale(refused, scale)) << refused;
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
    title.partNumber = "BR-102";
    title.drawnBy = "A. Drafter";
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
    for (const char* value : {">1:2</text>", ">mm</text>", ">2024-05-31</text>", ">test 1.0</text>", ">BR-102</text>",
                              ">A. Drafter</text>"})
        EXPECT_NE(text.find(value), std::string::npos) << value;

    // A longer title shrinks whole; one too long even for the smallest
    // lettering is cut after a whole character, with an ellipsis.
    const auto titleOf = [&](const std::string& wanted, float& size) {
        ctr::SheetWriter titled;
        titled.setPageSizeInMM(Wm4::Vector2<float>(420.0f, 297.0f));
        titled.addView(ctr::ExportParameters(space), "front");
        ctr::TitleBlock entries = title;
        entries.title = wanted;
        titled.setFrame(10.0f, entries);
        std::ostringstream written;
        EXPECT_TRUE(titled.write(written));
        const std::string all = written.str();
        const size_t label = all.find(">Title</text>");
        const size_t tag = all.find("<text", label);
        size = std::strtof(all.c_str() + all.find("font-size=\"", tag) + 11, nullptr);
        const size_t start = all.find('>', tag) + 1;
        return all.substr(start, all.find("</text>", start) - start);
    };
    float size = 0.0f;
    const std::string medium(40, 'M');
    EXPECT_EQ(titleOf(medium, size), medium);
    EXPECT_LT(size, 5.0f);
    EXPECT_GE(size, 2.5f);
    std::string long_;
    for (int i = 0; i < 40; ++i) long_ += "\xc3\xa9t\xc3\xa9 ";  // two-byte characters
    const std::string cut = titleOf(long_, size);
    EXPECT_EQ(size, 2.5f);
    ASSERT_GT(cut.size(), 3u);
    EXPECT_EQ(cut.substr(cut.size() - 3), "\xe2\x80\xa6");
    EXPECT_EQ(long_.compare(0, cut.size() - 3, cut, 0, cut.size() - 3), 0);
    // 85.8 mm of room at 1.5 mm a character: 56 whole characters and the
    // ellipsis.
    EXPECT_EQ(std::count_if(cut.begin(), cut.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }),
              57);
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

// The points of one view of a sheet, rounded to the file's precision and
// sorted, in view coordinates (relative to the view's box corner).
std::vector<std::pair<long, long>> ViewShape(const tSheet& sheet, const std::string& view) {
    const tBox box = sheet.box(view);
    std::vector<std::pair<long, long>> shape;
    for (const auto& [x, y] : sheet.points.at(view))
        shape.emplace_back(std::lround((x - box.minX) * 100.0), std::lround((y - box.minY) * 100.0));
    std::sort(shape.begin(), shape.end());
    shape.erase(std::unique(shape.begin(), shape.end()), shape.end());
    return shape;
}

TEST_F(SheetTool, FrontSideUpConventionForcedScaleAndPictorialView) {
    // The box with a side hole, turned a quarter at a time about its up
    // axis: the front view shows the same side of it each time.
    std::ifstream source(ctr_test::ModelPath("cad-brep/box_holes.obj"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(source, line);) lines.push_back(line);
    std::vector<std::pair<long, long>> first;
    std::vector<std::string> sides;
    for (int turn = 0; turn < 4; ++turn) {
        const std::string name = "turned" + std::to_string(turn) + ".obj";
        std::ofstream out(folder / name);
        for (const std::string& line : lines) {
            double x, y, z;
            if ((line.rfind("v ", 0) == 0 || line.rfind("vn ", 0) == 0) &&
                std::sscanf(line.c_str() + line.find(' '), "%lf %lf %lf", &x, &y, &z) == 3) {
                for (int i = 0; i < turn; ++i) std::tie(x, z) = std::make_tuple(z, -x);
                out << line.substr(0, line.find(' ')) << ' ' << x << ' ' << y << ' ' << z << '\n';
            } else {
                out << line << '\n';
            }
        }
        out.close();
        ASSERT_EQ(run(name + " --sheet -q -o turned.svg --stats turned.json"), 0) << errors;
        const std::string record = read("turned.json");
        EXPECT_NE(record.find("\"frontChosen\": true"), std::string::npos);
        const size_t front = record.find("\"front\": \"") + 10;
        sides.push_back(record.substr(front, record.find('"', front) - front));
        const std::vector<std::pair<long, long>> shape = ViewShape(readSheet(read("turned.svg")), "front");
        if (turn == 0)
            first = shape;
        else
            EXPECT_EQ(shape, first) << "turn " << turn << " shows " << sides.back();
    }
    // The long side (along x at first) is shown, wherever it is turned.
    for (int turn = 0; turn < 4; ++turn) EXPECT_EQ(sides[turn][1], turn % 2 ? 'x' : 'z') << turn;

    // Up follows the format unless given: z for STL, y for OBJ.
    const auto upOf = [&](const std::string& arguments) {
        EXPECT_EQ(run(arguments + " --sheet -q -o up.svg --stats up.json"), 0) << errors;
        const std::string record = read("up.json");
        const size_t up = record.find("\"up\": [");
        return record.substr(up, record.find(']', up) - up);
    };
    EXPECT_NE(upOf(model("cad/anchor.stl")), upOf(model("cad/joint.obj")));
    EXPECT_EQ(upOf(model("cad/anchor.stl")), upOf(model("cad/joint.obj") + " --up 0,0,1"));
    EXPECT_NE(upOf(model("cad/anchor.stl")), upOf(model("cad/anchor.stl") + " --up 0,1,0"));
    EXPECT_EQ(upOf(model("cad/joint.obj")), upOf(model("cad/anchor.stl") + " --up 0,1,0"));

    // A forced scale: drawn at it when the views fit, a usage error naming
    // the largest that fits when they do not.
    const std::string box = model("cad-brep/box_holes.obj");
    ASSERT_EQ(run(box + " --sheet --scale 1:2 --front +z --units mm -q -o half.svg"), 0) << errors;
    const tSheet half = readSheet(read("half.svg"));
    EXPECT_NE(half.text.find(">mm</text>"), std::string::npos);
    EXPECT_EQ(half.scale, "1:2");
    EXPECT_NEAR(half.box("top").maxX - half.box("top").minX, 50.0, 0.01);
    EXPECT_EQ(ViewShape(half, "front").size(), first.size());
    EXPECT_EQ(run(box + " --sheet --scale 2:1 -q -o double.svg"), 2);
    EXPECT_NE(errors.find("--scale 2:1: the views do not fit"), std::string::npos) << errors;
    EXPECT_NE(errors.find("largest standard scale at which they fit is 1:1"), std::string::npos) << errors;
    EXPECT_FALSE(fs::exists(folder / "double.svg"));
    EXPECT_EQ(run(box + " --sheet --front +y -q -o along.svg"), 2);
    EXPECT_NE(errors.find("runs along the up direction"), std::string::npos) << errors;
    EXPECT_EQ(run(box + " --scale 1:2 -q -o single.svg"), 2);

    // The iso view shows hidden lines only when asked.
    ASSERT_EQ(run(box + " --sheet --hidden -q -o hidden.svg"), 0) << errors;
    EXPECT_NE(read("hidden.svg").find("id=\"hidden-0\""), std::string::npos);
    EXPECT_EQ(read("hidden.svg").find("id=\"hidden-3\""), std::string::npos);
    // Nothing said what the box's unit is.
    EXPECT_NE(read("hidden.svg").find(">mm (assumed)</text>"), std::string::npos);
    ASSERT_EQ(run(box + " --sheet --hidden --iso-hidden -q -o iso.svg"), 0) << errors;
    EXPECT_NE(read("iso.svg").find("id=\"hidden-3\" inkscape:label=\"iso\""), std::string::npos);
}

TEST(SheetFront, MostVisibleThenLeastHiddenThenFirst) {
    using contour::SideScore;
    EXPECT_EQ(contour::ChooseFrontSide({}), -1);
    EXPECT_EQ(contour::ChooseFrontSide({{1.0, 0.0}, {2.0, 9.0}, {1.5, 0.0}}), 1);
    // Mirror sides measure alike up to rounding: the hidden lines decide,
    // and then the order.
    EXPECT_EQ(contour::ChooseFrontSide({{2.0, 3.0}, {2.0 * (1 + 1e-12), 3.0}, {2.0, 1.0}, {2.0, 1.0}}), 2);
    EXPECT_EQ(contour::ChooseFrontSide({{std::nan(""), 0.0}, {0.0, 0.0}}), 1);
}

#endif

}  // namespace
