// Sheet parameters and the SVG file: the fit of the view onto the sheet, the
// drawing scale, and the exact text of the files the exporter writes.
#include <cstdio>
#include <locale>

#include "TestSupport.h"
#include "ctr/ExportParameters.h"
#include "ctr/SVGExporter.h"
#include "ctr/SvgText.h"

namespace {

using V2 = Wm4::Vector2<float>;
using V3 = Wm4::Vector3<float>;
using ctr::ExportParameters;
using ctr::LineSegmentSet;
using SetPointer = qe::qePointer<LineSegmentSet>;

// An orthographic camera looking down -z, so that device x and y are world x
// and y divided by the half extents.
ctr::DiscreteProjectionSpace OrthoView(float halfWidth, float halfHeight) {
    ctr::DiscreteProjectionSpace space;
    ctr_test::OrthoCamera(space, V3(0, 0, 10), V3(0, 0, 0), halfWidth, halfHeight);
    return space;
}

TEST(ExportParameters, FitsTheViewAgainstTheLimitingSheetEdge) {
    struct Case {
        float halfWidth, halfHeight, pageWidth, pageHeight, m00, m11;
    };
    const Case cases[] = {
        {2, 1, 100, 100, 50, 25},  // wide view: the width limits
        {1, 2, 100, 100, 25, 50},  // tall view: the height limits
        // Equal quotients take the width branch; the height branch would
        // round m00 to 50.0000038.
        {1, 7, 100, 700, 50, 350},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.halfWidth << ":" << c.halfHeight << " on " << c.pageWidth << "x"
                                        << c.pageHeight);
        ExportParameters parameters(OrthoView(c.halfWidth, c.halfHeight));
        parameters.setPageSizeInMM(V2(c.pageWidth, c.pageHeight));
        parameters.computeBestFitTransform();
        EXPECT_EQ(parameters.getBestFitTransform(), Wm4::Matrix2<float>(c.m00, 0, 0, c.m11));
        EXPECT_EQ(parameters.getPageOffset(), V2(c.pageWidth / 2, c.pageHeight / 2));
    }
    // Built ready to use: a square view on A4 spans y 43.5..253.5.
    const ExportParameters a4(OrthoView(1, 1));
    EXPECT_EQ(a4.getPageSizeInMM(), V2(210, 297));
    EXPECT_EQ(a4.getBestFitTransform(), Wm4::Matrix2<float>(105, 0, 0, 105));
    EXPECT_EQ(a4.getPageOffset(), V2(105, 148.5f));
}

std::string TempPath(const std::string& name) { return ::testing::TempDir() + "ctr_export_" + name + ".svg"; }

const char kHeader[] =
    "<?xml version=\"1.0\"?>\n"
    "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"210mm\" height=\"297mm\" viewBox=\"0 0 210 297\" >\n";

std::string GroupStart(const std::string& rgb, const std::string& width) {
    return "<g fill=\"none\" stroke-linecap=\"round\" stroke-linejoin=\"round\" stroke=\"rgb(" + rgb +
           ")\" stroke-width=\"" + width + "\">\n";
}
const std::string kCreaseGroup = GroupStart("0,0,0", "0.133333");
const std::string kSilhouetteGroup = GroupStart("0,0,0", "0.2");

// On A4 with a square view of [-1, 1]^2 the world point (x, y) is drawn at
// (105 + 105 x, 148.5 - 105 y).
const std::vector<V3> kPoints = {V3(0, 0, 0), V3(0.5f, 0.5f, 0), V3(0.5f, -0.5f, 0), V3(-0.5f, 0.25f, 0)};
const char* const kDrawn[] = {"105,148.5", "157.5,96", "157.5,201", "52.5,122.25"};

// A set without occlusion data: every segment counts as visible.
SetPointer LineSet(const std::vector<unsigned>& indices) { return ctr_test::LineSet(kPoints, indices); }

class SVGExporter : public testing::Test {
protected:
    SVGExporter() { exporter.setExportParameters(ExportParameters(OrthoView(1, 1))); }

    // The text between the header and the end tag of a file holding the one set.
    std::string Streamed(const std::string& name, const std::vector<unsigned>& indices) {
        const std::string path = TempPath(name);
        exporter.setTitle("");
        EXPECT_TRUE(exporter.openFile(path));
        EXPECT_TRUE(exporter.streamLineSegments(*LineSet(indices), "crease"));
        EXPECT_TRUE(exporter.closeFile());
        const std::string text = ctr_test::ReadFile(path);
        std::remove(path.c_str());
        const size_t header = sizeof(kHeader) - 1;
        if (text.compare(0, header, kHeader) != 0 || text.size() < header + 7) return "bad frame: " + text;
        return text.substr(header, text.size() - header - 7);
    }

    ctr::SVGExporter exporter;
};

// One path line through the drawn points, in order.
std::string Path(const std::vector<int>& points) {
    std::string text = "  <path d=\"M" + std::string(kDrawn[points[0]]);
    for (size_t i = 1; i < points.size(); ++i) text += (i == 1 ? " L" : "L") + std::string(kDrawn[points[i]]) + " ";
    return text + "\"/>\n";
}

TEST_F(SVGExporter, PathsFollowSharedVertexIndices) {
    // Chains are walked from their far end: (0,1),(1,2) is drawn 2-1-0.
    EXPECT_EQ(Streamed("chain", {0, 1, 1, 2}),
              kCreaseGroup + "  <path d=\"M157.5,201 L157.5,96 L105,148.5 \"/>\n</g>\n");
    EXPECT_EQ(Streamed("apart", {0, 1, 2, 3}), kCreaseGroup + Path({1, 0}) + Path({3, 2}) + "</g>\n");
    // Three paths meeting at vertex 1: the later two end on it without
    // continuing each other.
    EXPECT_EQ(Streamed("junction", {0, 1, 1, 2, 1, 3}),
              kCreaseGroup + Path({1, 0}) + Path({2, 1}) + Path({3, 1}) + "</g>\n");
    // A closed loop repeats its first point; no close-path command.
    EXPECT_EQ(Streamed("loop", {0, 1, 1, 2, 2, 0}), kCreaseGroup + Path({0, 2, 1, 0}) + "</g>\n");
    // Fewer than two indices: nothing to draw, and no failure.
    EXPECT_EQ(Streamed("single", {0}), "");
}

TEST_F(SVGExporter, StylesColoursAndPlacement) {
    const std::string path = TempPath("styles");
    exporter.setTitle("");
    exporter.setLineStyle("crease", {Wm4::ColorRGB(1.0f, 0.5f, 0.0f), 0.13333333f});
    exporter.setLineStyle("odd", {Wm4::ColorRGB(1.5f, -1.0f, 0.999f), 0.5f});
    EXPECT_EQ(exporter.getLineStyles().size(), 3u);
    EXPECT_EQ(exporter.getLineStyle("missing").width, 1.0f);
    EXPECT_EQ(exporter.getLineStyle("missing").color, Wm4::ColorRGB(0, 0, 0));

    SetPointer moved = LineSet({0, 1});
    moved->World.SetTranslate(V3(0.5f, 0, 0));  // drawn at x + 0.5: 0 -> 157.5, 1 -> 210
    ASSERT_TRUE(exporter.openFile(path));
    EXPECT_TRUE(exporter.streamLineSegments(*moved, "crease"));
    // Truncated, not rounded or clamped; a negative channel wraps around.
    EXPECT_TRUE(exporter.streamLineSegments(*LineSet({2, 3}), "odd"));
    EXPECT_FALSE(exporter.streamLineSegments(*LineSet({0, 1}), "missing"));
    ASSERT_TRUE(exporter.closeFile());
    EXPECT_EQ(ctr_test::ReadFile(path), std::string(kHeader) + GroupStart("255,127,0", "0.133333") +
                                  "  <path d=\"M210,96 L157.5,148.5 \"/>\n</g>\n" +
                                  GroupStart("382,4294967041,254", "0.5") + Path({3, 2}) + "</g>\n</svg>\n");
    std::remove(path.c_str());
}

TEST_F(SVGExporter, FeatureRecordUsesCreaseAndSilhouetteStyles) {
    const std::string path = TempPath("features");
    exporter.setTitle("");
    ctr::GeometricFeatures features;
    features.creaseEdges = LineSet({0, 1});
    features.intersectionEdges = LineSet({2, 3});
    ASSERT_TRUE(exporter.openFile(path));
    EXPECT_TRUE(exporter.streamGeometricFeatures(features));
    ASSERT_TRUE(exporter.closeFile());
    EXPECT_EQ(ctr_test::ReadFile(path), std::string(kHeader) + kCreaseGroup + Path({1, 0}) + "</g>\n" + kSilhouetteGroup +
                                  Path({3, 2}) + "</g>\n</svg>\n");
    EXPECT_EQ(exporter.pathsWritten(), 2u);
    std::remove(path.c_str());
}

TEST_F(SVGExporter, WriteFailuresAreReported) {
    if (!std::ofstream("/dev/full")) GTEST_SKIP() << "no /dev/full";
    EXPECT_FALSE(exporter.openFile("/dev/full"));
    EXPECT_FALSE(exporter.streamLineSegments(*LineSet({0, 1}), "crease"));
    EXPECT_FALSE(exporter.closeFile());
    // A later successful open starts afresh.
    const std::string path = TempPath("after_failure");
    EXPECT_TRUE(exporter.openFile(path));
    EXPECT_TRUE(exporter.closeFile());
    std::remove(path.c_str());
}

TEST(SvgText, EscapesForContentAndForAttributes) {
    // Tabs and line breaks survive in a title; an attribute or a one-line
    // label gets blanks, and its quotes must not end the value.
    const std::string text = "a&<>\"'\t\n\r\x01\x7f\xc3\xa9";
    EXPECT_EQ(ctr::EscapeXmlText(text, ctr::XmlTextContext::kContent), "a&amp;&lt;&gt;\"'\t\n\r \x7f\xc3\xa9");
    EXPECT_EQ(ctr::EscapeXmlText(text, ctr::XmlTextContext::kAttribute), "a&amp;&lt;&gt;&quot;&apos;    \x7f\xc3\xa9");
}

// Decimal comma and digit grouping, as several national locales have.
struct CommaDecimals : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(SVGExporter, IgnoresTheGlobalLocale) {
    struct Restore {
        std::locale previous = std::locale::global(std::locale(std::locale::classic(), new CommaDecimals));
        ~Restore() { std::locale::global(previous); }
    } restore;
    const std::string path = TempPath("locale");
    ExportParameters parameters(OrthoView(1, 1));
    parameters.setPageSizeInMM(V2(1234.5f, 1234567.0f));
    ctr::SVGExporter later;  // made under the new global locale
    later.setExportParameters(parameters);
    later.setTitle("");
    ASSERT_TRUE(later.openFile(path));
    ASSERT_TRUE(later.closeFile());
    EXPECT_EQ(ctr_test::ReadFile(path),
              "<?xml version=\"1.0\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"1234.5mm\" "
              "height=\"1.23457e+06mm\" viewBox=\"0 0 1234.5 1.23457e+06\" >\n</svg>\n");
    std::remove(path.c_str());
}

}  // namespace
