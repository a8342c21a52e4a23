#include "ctr/SheetWriter.h"

#include <fstream>
#include <locale>
#include <vector>

#include "qe/qePointer.h"
#include "qe/qeStringUtils.h"

#include "ctr/SheetLines.h"
#include "export/PathWriting.h"
#include "sheet/TitleBlockWriting.h"

namespace ctr {

namespace {

struct tLayerName {
    const char* id;
    const char* label;
};
// By SheetLayer.
constexpr tLayerName kLayerNames[kSheetLayerCount] = {{"hidden", "Hidden lines"},
                                                      {"creases", "Creases"},
                                                      {"silhouettes", "Silhouettes"},
                                                      {"intersections", "Intersections"}};

int LayerIndex(SheetLayer layer) { return static_cast<int>(layer); }

bool ValidLayer(SheetLayer layer) { return LayerIndex(layer) >= 0 && LayerIndex(layer) < kSheetLayerCount; }

// The stream's formatting as the exporter's files have it (default number
// format, "." as decimal point), put back as it was when done.
class ClassicFormatting {
public:
    explicit ClassicFormatting(std::ostream& out)
        : m_out(out), m_locale(out.imbue(std::locale::classic())), m_flags(out.flags()), m_precision(out.precision()) {
        out.flags(std::ios::fmtflags{});
        out.precision(6);
    }
    ~ClassicFormatting() {
        m_out.imbue(m_locale);
        m_out.flags(m_flags);
        m_out.precision(m_precision);
    }
    ClassicFormatting(const ClassicFormatting&) = delete;
    ClassicFormatting& operator=(const ClassicFormatting&) = delete;

private:
    std::ostream& m_out;
    std::locale m_locale;
    std::ios::fmtflags m_flags;
    std::streamsize m_precision;
};

}  // namespace

float NarrowLineWidth(float wideWidth) { return wideWidth * 0.5f; }

SheetLineStyle DashedLineStyle(const Wm4::ColorRGB& color, float width) {
    return SheetLineStyle{color, width, 12.0f * width, 3.0f * width};
}

class SheetWriter::tInternal {
public:
    // One view: its placement on the sheet and its polylines per layer.
    struct tView {
        tView(const ExportParameters& p, const std::string& n) : parameters(p), name(n) {}
        ExportParameters parameters;
        std::string name;  // empty: no group of its own
        std::vector<qe::qePointer<LineSegmentSet>> layers[kSheetLayerCount];
    };

    tInternal() : title("Illustration") {
        const Wm4::ColorRGB black(0.0f, 0.0f, 0.0f);
        const float wide = 0.2f;
        styles[LayerIndex(SheetLayer::kHidden)] = DashedLineStyle(black, NarrowLineWidth(wide));
        styles[LayerIndex(SheetLayer::kCreases)] = SheetLineStyle{black, 0.13333333f, 0.0f, 0.0f};
        styles[LayerIndex(SheetLayer::kSilhouettes)] = SheetLineStyle{black, wide, 0.0f, 0.0f};
        styles[LayerIndex(SheetLayer::kIntersections)] = SheetLineStyle{black, wide, 0.0f, 0.0f};
        for (bool& on : enabled) on = true;
        enabled[LayerIndex(SheetLayer::kHidden)] = false;
    }

    void writeHeader(std::ostream& out) const;
    void writeLayer(std::ostream& out, int layer) const;

    bool pageSizeSet = false;
    Wm4::Vector2<float> pageSize{0.0f, 0.0f};
    std::string title;
    std::string description;
    SheetLineStyle styles[kSheetLayerCount];
    bool enabled[kSheetLayerCount];
    std::vector<tView> views;
    bool framed = false;
    float frameMargin = 0.0f;
    TitleBlock titleBlock;
};

void SheetWriter::tInternal::writeHeader(std::ostream& out) const {
    const Wm4::Vector2<float>& page = pageSizeSet ? pageSize : views.front().parameters.getPageSizeInMM();
    out << "<?xml version=\"1.0\"?>";
    EndLine(out);
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" "
           "xmlns:inkscape=\"http://www.inkscape.org/namespaces/inkscape\" width=\""
        << page[0] << "mm\" height=\"" << page[1] << "mm\" viewBox=\"0 0 " << page[0] << ' ' << page[1] << "\">";
    EndLine(out);
    if (!title.empty()) {
        out << "<title>" << title << "</title>";
        EndLine(out);
    }
    if (!description.empty()) {
        out << "<desc>" << description << "</desc>";
        EndLine(out);
    }
}

void SheetWriter::tInternal::writeLayer(std::ostream& out, int layer) const {
    const SheetLineStyle& style = styles[layer];
    const bool dashed = style.dash > 0.0f && style.gap > 0.0f;
    // The style sits on the layer, so that a reader restyles a kind at once.
    // Dashes end square: round caps would eat into the gaps.
    out << "<g id=\"" << kLayerNames[layer].id << "\" inkscape:groupmode=\"layer\" inkscape:label=\""
        << kLayerNames[layer].label << "\" fill=\"none\" stroke=\"";
    WriteRgb(out, style.color);
    out << "\" stroke-width=\"" << style.width << "\" stroke-linecap=\"" << (dashed ? "butt" : "round")
        << "\" stroke-linejoin=\"round\"";
    if (dashed) out << " stroke-dasharray=\"" << style.dash << ' ' << style.gap << '"';
    out << '>';
    EndLine(out);
    PathWriter paths(out, nullptr);
    for (const tView& view : views)
        if (view.name.empty())
            for (const qe::qePointer<LineSegmentSet>& set : view.layers[layer]) paths.add(*set, view.parameters);
    paths.finish();
    for (size_t v = 0; v < views.size(); ++v) {
        const tView& view = views[v];
        if (view.name.empty() || view.layers[layer].empty()) continue;
        out << "<g id=\"" << kLayerNames[layer].id << '-' << v << "\" inkscape:label=\"" << EscapeSheetText(view.name)
            << "\">";
        EndLine(out);
        PathWriter viewPaths(out, nullptr);
        for (const qe::qePointer<LineSegmentSet>& set : view.layers[layer]) viewPaths.add(*set, view.parameters);
        viewPaths.finish();
        out << "</g>";
        EndLine(out);
    }
    out << "</g>";
    EndLine(out);
}

SheetWriter::SheetWriter() : internal(new tInternal) {}

SheetWriter::~SheetWriter() = default;

void SheetWriter::setPageSizeInMM(const Wm4::Vector2<float>& size) {
    internal->pageSize = size;
    internal->pageSizeSet = true;
}

void SheetWriter::setTitle(const std::string& title) { internal->title = title; }

void SheetWriter::setDescription(const std::string& description) { internal->description = description; }

void SheetWriter::setLayerStyle(SheetLayer layer, const SheetLineStyle& style) {
    if (ValidLayer(layer)) internal->styles[LayerIndex(layer)] = style;
}

SheetLineStyle SheetWriter::getLayerStyle(SheetLayer layer) const {
    if (!ValidLayer(layer)) return SheetLineStyle{Wm4::ColorRGB(0.0f, 0.0f, 0.0f), 1.0f, 0.0f, 0.0f};
    return internal->styles[LayerIndex(layer)];
}

void SheetWriter::setLayerEnabled(SheetLayer layer, bool enabled) {
    if (ValidLayer(layer)) internal->enabled[LayerIndex(layer)] = enabled;
}

bool SheetWriter::isLayerEnabled(SheetLayer layer) const {
    return ValidLayer(layer) && internal->enabled[LayerIndex(layer)];
}

size_t SheetWriter::addView(const ExportParameters& parameters) { return addView(parameters, std::string()); }

size_t SheetWriter::addView(const ExportParameters& parameters, const std::string& name) {
    internal->views.emplace_back(parameters, name);
    return internal->views.size() - 1;
}

void SheetWriter::setFrame(float marginMM, const TitleBlock& block) {
    internal->framed = true;
    internal->frameMargin = marginMM;
    internal->titleBlock = block;
}

bool SheetWriter::addLines(SheetLayer layer, const LineSegmentSet& set) {
    if (internal->views.empty() || !ValidLayer(layer)) return false;
    if (!isLayerEnabled(layer)) return true;
    const qe::qePointer<LineSegmentSet> baked = LineSegmentSet::BakeVisibleSegments(&set);
    if (baked == nullptr) return true;
    std::vector<LineSegmentSet::ArcFeature> arcs;
    const qe::qePointer<LineSegmentSet> polylines = LineSegmentSet::BuildPolylines(*baked, arcs, true);
    if (polylines == nullptr || !polylines->VBuffer || !polylines->IBuffer) return true;
    if (!IndicesNameVertices(*polylines->VBuffer, *polylines->IBuffer)) return false;
    internal->views.back().layers[LayerIndex(layer)].push_back(polylines);
    return true;
}

bool SheetWriter::addFeatures(const GeometricFeatures& features, const LineSegmentSet* hiddenIntersectionEdges) {
    if (internal->views.empty()) return false;
    const std::pair<const LineSegmentSet*, SheetLayer> visible[] = {
        {features.creaseEdges, SheetLayer::kCreases},
        {features.silhouetteEdges, SheetLayer::kSilhouettes},
        {features.intersectionEdges, SheetLayer::kIntersections}};
    for (const auto& [set, layer] : visible)
        if (set && !addLines(layer, *set)) return false;
    if (!isLayerEnabled(SheetLayer::kHidden)) return true;
    for (const LineSegmentSet* set : {features.creaseEdges.get(), features.silhouetteEdges.get()}) {
        const qe::qePointer<LineSegmentSet> hidden = BakeHiddenSegments(set);
        if (hidden != nullptr && !addLines(SheetLayer::kHidden, *hidden)) return false;
    }
    return !hiddenIntersectionEdges || addLines(SheetLayer::kHidden, *hiddenIntersectionEdges);
}

bool SheetWriter::write(std::ostream& out) const {
    if (internal->views.empty() || !out.good()) return false;
    const ClassicFormatting formatting(out);
    internal->writeHeader(out);
    if (internal->framed)
        WriteFrameLayer(
            out, internal->pageSizeSet ? internal->pageSize : internal->views.front().parameters.getPageSizeInMM(),
            internal->frameMargin, internal->titleBlock);
    for (int layer = 0; layer < kSheetLayerCount; ++layer)
        if (internal->enabled[layer]) internal->writeLayer(out, layer);
    out << "</svg>";
    EndLine(out);
    return out.good();
}

bool SheetWriter::writeFile(const std::string& fileName) const {
    const std::string converted =
        qe::qeStringUtils::convertCharset(fileName, qe::qeStringUtils::CS_UTF8, qe::qeStringUtils::CS_FILESYSTEM);
    std::ofstream file;
    // Failures are reported by results; the stream must never throw.
    file.exceptions(std::ios::goodbit);
    file.open(converted, std::ios::out | std::ios::trunc);
    if (!file.is_open()) return false;
    const bool written = write(file);
    // A file system may report a deferred write error only on close.
    file.close();
    return written && !file.fail();
}

}  // namespace ctr
