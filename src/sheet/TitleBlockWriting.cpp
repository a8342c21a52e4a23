#include "sheet/TitleBlockWriting.h"

#include <algorithm>

#include "export/SvgDocument.h"

namespace ctr {

namespace {

// Line widths of the 0.5 mm group of ISO 128: the frame wide, the cells of
// the block narrow, centre lines of the symbol narrower still.
constexpr float kFrameWidthMM = 0.5f;
constexpr float kCellWidthMM = 0.25f;
constexpr float kCentreLineWidthMM = 0.18f;
// Lettering heights of ISO 3098: labels, values and the title.
constexpr float kLabelHeightMM = 2.5f;
constexpr float kValueHeightMM = 3.5f;
constexpr float kTitleHeightMM = 5.0f;
// A rough advance of sans-serif capitals and digits per unit of height, to
// shrink a title that would overrun its cell (a viewer's font may differ).
constexpr float kAdvancePerHeight = 0.6f;
const Wm4::ColorRGB kBlack(0.0f, 0.0f, 0.0f);

// The smallest lettering a title is shrunk to before it is cut short.
constexpr float kSmallestTitleHeightMM = 2.5f;

// The cells of the two rows, as fractions of the block's width.
struct tCell {
    const char* label;
    float share;
};
constexpr tCell kUpperCells[] = {{"Title", 0.54f}, {"Part number", 0.26f}, {"Drawn by", 0.2f}};
constexpr tCell kCells[] = {
    {"Scale", 0.14f}, {"Projection", 0.2f}, {"Units", 0.14f}, {"Date", 0.2f}, {"Software", 0.32f}};

// Characters as a reader counts them: UTF-8 continuation bytes add none.
size_t CharacterCount(const std::string& text) {
    size_t count = 0;
    for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return count;
}

// The text as it fits room millimetres at the lettering height: whole when
// it does, otherwise cut after a whole character and ended with an
// ellipsis.
std::string FitText(const std::string& text, float room, float height) {
    // The height was chosen as room over the count: allow for its rounding.
    const size_t fits = static_cast<size_t>(std::max(0.0f, room / (kAdvancePerHeight * height) + 1e-3f));
    if (CharacterCount(text) <= fits) return text;
    if (fits == 0) return std::string();
    size_t kept = 0, end = 0;
    while (end < text.size() && kept + 1 < fits) {
        ++end;
        while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) ++end;
        ++kept;
    }
    return text.substr(0, end) + "\u2026";
}

// The page in SVG coordinates: x to the right, y down from the top edge.
// Points and boxes are given in sheet coordinates (y up).
class tPage {
public:
    tPage(std::ostream& out, float height) : m_out(out), m_height(height) {}

    void rect(const SheetRect& r, float width) {
        StartTag(m_out, "rect", 2)
            .attribute("x", r.x)
            .attribute("y", m_height - r.y - r.height)
            .attribute("width", r.width)
            .attribute("height", r.height)
            .attribute("stroke-width", width)
            .empty();
    }

    void line(float x0, float y0, float x1, float y1, float width, const char* dash = nullptr) {
        m_data.move(point(x0, y0));
        m_data.line(point(x1, y1));
        StartTag path(m_out, "path", 2);
        path.attribute("d", m_data.take()).attribute("stroke-width", width);
        if (dash) path.attribute("stroke-dasharray", dash);
        path.empty();
    }

    void circle(float cx, float cy, float radius, float width) {
        StartTag(m_out, "circle", 2)
            .attribute("cx", cx)
            .attribute("cy", m_height - cy)
            .attribute("r", radius)
            .attribute("stroke-width", width)
            .empty();
    }

    void polygon(const float (*points)[2], int count, float width) {
        for (int i = 0; i < count; ++i) {
            if (i == 0)
                m_data.move(point(points[i][0], points[i][1]));
            else
                m_data.line(point(points[i][0], points[i][1]));
        }
        m_data.close();
        StartTag(m_out, "path", 2).attribute("d", m_data.take()).attribute("stroke-width", width).empty();
    }

    // Text with its baseline starting at (x, y); filled, not stroked.
    void text(float x, float y, float height, const std::string& content, const char* anchor = nullptr) {
        StartTag tag(m_out, "text", 2);
        tag.attribute("x", x).attribute("y", m_height - y).attribute("font-size", height);
        if (anchor) tag.attribute("text-anchor", anchor);
        tag.attribute("fill", kBlack).attribute("stroke", "none").text(content);
    }

private:
    Wm4::Vector2<float> point(float x, float y) const { return Wm4::Vector2<float>(x, m_height - y); }

    std::ostream& m_out;
    float m_height;
    PathData m_data;
};

// The truncated cone of ISO 128-30 in a box: a cone lying along x seen from
// the front (a trapezoid, small end on the left) and from its small end (two
// circles). The circles show the view from the left, so they stand where the
// method puts that view: right of the trapezoid in first angle, left of it in
// third angle.
void WriteProjectionSymbol(tPage& page, const SheetRect& box, ProjectionMethod method) {
    const float large = std::min(box.height, box.width / 2.6f);  // diameter of the large end
    const float small = 0.5f * large;
    const float length = large;
    const float gap = 0.6f * large;
    const float left = box.x + 0.5f * (box.width - (length + gap + large));
    const float axis = box.y + 0.5f * box.height;
    const bool first = method == ProjectionMethod::kFirstAngle;
    const float coneLeft = first ? left : left + large + gap;
    const float circleX = first ? left + length + gap + 0.5f * large : left + 0.5f * large;
    const float cone[4][2] = {{coneLeft, axis - 0.5f * small},
                              {coneLeft + length, axis - 0.5f * large},
                              {coneLeft + length, axis + 0.5f * large},
                              {coneLeft, axis + 0.5f * small}};
    page.polygon(cone, 4, kCellWidthMM);
    page.circle(circleX, axis, 0.5f * large, kCellWidthMM);
    page.circle(circleX, axis, 0.5f * small, kCellWidthMM);
    // Centre lines, long dash and dot, a little beyond the outlines.
    const float over = 0.15f * large;
    const char* chain = "3 0.6 0.3 0.6";
    page.line(coneLeft - over, axis, coneLeft + length + over, axis, kCentreLineWidthMM, chain);
    page.line(circleX - 0.5f * large - over, axis, circleX + 0.5f * large + over, axis, kCentreLineWidthMM, chain);
    page.line(circleX, axis - 0.5f * large - over, circleX, axis + 0.5f * large + over, kCentreLineWidthMM, chain);
}

}  // namespace

void WriteFrameLayer(std::ostream& out, const Wm4::Vector2<float>& pageSizeInMM, float marginMM,
                     const TitleBlock& block) {
    StartTag(out, "g")
        .attribute("id", "sheet")
        .attribute("inkscape:groupmode", "layer")
        .attribute("inkscape:label", "Sheet")
        .attribute("fill", "none")
        .attribute("stroke", kBlack)
        .attribute("stroke-linecap", "round")
        .attribute("stroke-linejoin", "round")
        .attribute("font-family", "sans-serif")
        .open();
    tPage page(out, pageSizeInMM[1]);
    page.rect(SheetFrameRect(pageSizeInMM, marginMM), kFrameWidthMM);
    const SheetRect box = TitleBlockRect(pageSizeInMM, marginMM);
    page.rect(box, kFrameWidthMM);
    const float rowHeight = 0.5f * box.height;
    const float pad = 0.2f * rowHeight;
    page.line(box.x, box.y + rowHeight, box.x + box.width, box.y + rowHeight, kCellWidthMM);

    // Upper row: the title, shrunk (down to the smallest lettering) and only
    // then cut to fit, the part number and who drew it.
    float x = box.x;
    for (const tCell& cell : kUpperCells) {
        const float width = cell.share * box.width;
        if (x > box.x) page.line(x, box.y + rowHeight, x, box.y + box.height, kCellWidthMM);
        page.text(x + pad, box.y + box.height - pad - kLabelHeightMM, kLabelHeightMM, cell.label);
        const std::string label = cell.label;
        const std::string& value = label == "Title" ? block.title : label == "Part number" ? block.partNumber : block.drawnBy;
        const float room = width - 2.0f * pad;
        const float largest = label == "Title" ? kTitleHeightMM : kValueHeightMM;
        const float height = std::max(
            kSmallestTitleHeightMM,
            std::min(largest, room / (kAdvancePerHeight * static_cast<float>(std::max<size_t>(1, CharacterCount(value))))));
        if (!value.empty()) page.text(x + pad, box.y + rowHeight + pad, height, FitText(value, room, height));
        x += width;
    }

    // Lower row: scale, projection symbol, units, date, software.
    x = box.x;
    for (const tCell& cell : kCells) {
        const float width = cell.share * box.width;
        if (x > box.x) page.line(x, box.y, x, box.y + rowHeight, kCellWidthMM);
        page.text(x + pad, box.y + rowHeight - pad - kLabelHeightMM, kLabelHeightMM, cell.label);
        const std::string label = cell.label;
        const std::string* value = label == "Scale"      ? &block.scale
                                   : label == "Units"    ? &block.units
                                   : label == "Date"     ? &block.date
                                   : label == "Software" ? &block.software
                                                         : nullptr;
        if (value) {
            // Long version strings get smaller lettering rather than
            // running into the frame.
            const float fit = (width - 2.0f * pad) / (kAdvancePerHeight * std::max<size_t>(1, value->size()));
            page.text(x + pad, box.y + pad, std::min(kValueHeightMM, std::max(1.8f, fit)), *value);
        } else {
            SheetRect symbol;
            symbol.x = x + pad;
            symbol.y = box.y + 0.5f * pad;
            symbol.width = width - 2.0f * pad;
            symbol.height = rowHeight - 2.0f * pad - kLabelHeightMM;
            WriteProjectionSymbol(page, symbol, block.projection);
        }
        x += width;
    }
    EndTag(out, "g");
}

}  // namespace ctr
