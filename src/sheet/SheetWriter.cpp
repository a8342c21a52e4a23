#include "ctr/SheetWriter.h"

#include <algorithm>
#include <fstream>
#include <tuple>
#include <utility>
#include <vector>

#include "qe/qePointer.h"

#include "ctr/SheetLines.h"
#include "ctr/SvgText.h"
#include "export/PathWriting.h"
#include "export/SvgDocument.h"
#include "lines/Placement.h"
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

// The segments of set with the ends that meet joined: where exactly two
// segment ends lie on one position under different vertex indices, both
// take one index. The polyline builder chains only through shared indices,
// and a hidden piece has a vertex of its own at each end, so unjoined each
// piece would be a path of its own, and a dashed line would start its
// pattern anew on every one. Where more ends meet (a corner, or a line that
// ends on another) nothing is joined: a path that goes on through there
// would be split by the extra end, so the sheet chains no worse than the
// exporter does. Every index must name a vertex.
qe::qePointer<LineSegmentSet> WithMeetingEndsJoined(const LineSegmentSet& set) {
    const int count = set.IBuffer->GetIndexQuantity() / 2 * 2;
    const unsigned int* source = set.IBuffer->GetData();
    const qe::qeVertexBuffer& vertices = *set.VBuffer;
    std::vector<uint32_t> degree(static_cast<size_t>(vertices.GetVertexQuantity()), 0u);
    for (int i = 0; i < count; ++i) ++degree[source[i]];
    // The used vertices by position; a NaN coordinate meets nothing.
    std::vector<unsigned int> order;
    for (size_t v = 0; v < degree.size(); ++v) {
        const Wm4::Vector3<float>& p = vertices.Position3(static_cast<int>(v));
        if (degree[v] != 0 && p[0] == p[0] && p[1] == p[1] && p[2] == p[2])
            order.push_back(static_cast<unsigned int>(v));
    }
    const auto position = [&](unsigned int v) {
        const Wm4::Vector3<float>& p = vertices.Position3(static_cast<int>(v));
        return std::make_tuple(p[0], p[1], p[2]);
    };
    std::sort(order.begin(), order.end(), [&](unsigned int a, unsigned int b) {
        return std::make_pair(position(a), a) < std::make_pair(position(b), b);
    });
    std::vector<unsigned int> joined(degree.size());
    for (size_t v = 0; v < joined.size(); ++v) joined[v] = static_cast<unsigned int>(v);
    for (size_t first = 0; first < order.size();) {
        size_t end = first + 1;
        uint32_t ends = degree[order[first]];
        for (; end < order.size() && position(order[end]) == position(order[first]); ++end) ends += degree[order[end]];
        if (ends == 2)
            for (size_t k = first + 1; k < end; ++k) joined[order[k]] = order[first];
        first = end;
    }

    const qe::qePointer<qe::qeIndexBuffer> indices =
        new qe::qeIndexBuffer(set.IBuffer->GetIndexQuantity(), qe::qeIndexBuffer::IBT_LINE_LIST);
    unsigned int* target = indices->GetData();
    for (int i = 0; i < set.IBuffer->GetIndexQuantity(); ++i) target[i] = i < count ? joined[source[i]] : source[i];
    qe::qePointer<LineSegmentSet> result = new LineSegmentSet;
    result->VBuffer = set.VBuffer;
    result->IBuffer = indices;
    result->segmentFlags = set.segmentFlags;
    CopyPlacement(set, *result);
    return result;
}

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
        // By layer and set: the arc stretches of each polyline set.
        std::vector<std::vector<ArcStretch>> arcs[kSheetLayerCount];
    };

    tInternal() : title("Illustration") {
        const Wm4::ColorRGB black(0.0f, 0.0f, 0.0f);
        styles[LayerIndex(SheetLayer::kHidden)] = DashedLineStyle(black, NarrowLineWidth(kSilhouetteWidthMM));
        styles[LayerIndex(SheetLayer::kCreases)] = SheetLineStyle{black, kCreaseWidthMM, 0.0f, 0.0f};
        styles[LayerIndex(SheetLayer::kSilhouettes)] = SheetLineStyle{black, kSilhouetteWidthMM, 0.0f, 0.0f};
        styles[LayerIndex(SheetLayer::kIntersections)] = SheetLineStyle{black, kSilhouetteWidthMM, 0.0f, 0.0f};
        for (bool& on : enabled) on = true;
        enabled[LayerIndex(SheetLayer::kHidden)] = false;
    }

    // The page of the sheet: as set, or else the first view's.
    const Wm4::Vector2<float>& page() const {
        return pageSizeSet ? pageSize : views.front().parameters.getPageSizeInMM();
    }
    // Returns the paths it wrote.
    size_t writeLayer(std::ostream& out, int layer) const;

    bool pageSizeSet = false;
    Wm4::Vector2<float> pageSize{0.0f, 0.0f};
    std::string title;
    std::string description;
    SheetLineStyle styles[kSheetLayerCount];
    bool enabled[kSheetLayerCount];
    bool writeArcs = false;
    std::vector<tView> views;
    bool framed = false;
    float frameMargin = 0.0f;
    TitleBlock titleBlock;
    // Set by write(), which is const: it reports on the output, not on the
    // sheet.
    size_t pathsWritten = 0;
};

size_t SheetWriter::tInternal::writeLayer(std::ostream& out, int layer) const {
    const SheetLineStyle& style = styles[layer];
    const bool dashed = style.dash > 0.0f && style.gap > 0.0f;
    // The style sits on the layer, so that a reader restyles a kind at once.
    // Dashes end square: round caps would eat into the gaps.
    StartTag group(out, "g");
    group.attribute("id", kLayerNames[layer].id)
        .attribute("inkscape:groupmode", "layer")
        .attribute("inkscape:label", kLayerNames[layer].label)
        .attribute("fill", "none")
        .attribute("stroke", style.color)
        .attribute("stroke-width", style.width)
        .attribute("stroke-linecap", dashed ? "butt" : "round")
        .attribute("stroke-linejoin", "round");
    if (dashed) group.attribute("stroke-dasharray", style.dash, style.gap);
    group.open();
    const auto addView = [&](PathWriter& paths, const tView& view) {
        for (size_t s = 0; s < view.layers[layer].size(); ++s)
            paths.add(*view.layers[layer][s], view.parameters, writeArcs ? &view.arcs[layer][s] : nullptr);
    };
    PathWriter paths(out);
    for (const tView& view : views)
        if (view.name.empty()) addView(paths, view);
    paths.finish();
    size_t written = paths.pathCount();
    for (size_t v = 0; v < views.size(); ++v) {
        const tView& view = views[v];
        if (view.name.empty() || view.layers[layer].empty()) continue;
        StartTag(out, "g")
            .attribute("id", kLayerNames[layer].id + ('-' + std::to_string(v)))
            .attribute("inkscape:label", EscapeXmlText(view.name, XmlTextContext::kAttribute))
            .open();
        PathWriter viewPaths(out);
        addView(viewPaths, view);
        viewPaths.finish();
        written += viewPaths.pathCount();
        EndTag(out, "g");
    }
    EndTag(out, "g");
    return written;
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

void SheetWriter::setWriteArcs(bool arcs) { internal->writeArcs = arcs; }

bool SheetWriter::getWriteArcs() const { return internal->writeArcs; }

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
    if (baked == nullptr || !baked->VBuffer || !baked->IBuffer) return true;
    if (!IndicesNameVertices(*baked->VBuffer, *baked->IBuffer)) return false;
    std::vector<LineSegmentSet::ArcFeature> arcs;
    const qe::qePointer<LineSegmentSet> polylines =
        LineSegmentSet::BuildPolylines(*WithMeetingEndsJoined(*baked), arcs, true);
    if (polylines == nullptr || !polylines->VBuffer || !polylines->IBuffer) return true;
    if (!IndicesNameVertices(*polylines->VBuffer, *polylines->IBuffer)) return false;
    tInternal::tView& view = internal->views.back();
    view.layers[LayerIndex(layer)].push_back(polylines);
    view.arcs[LayerIndex(layer)].push_back(ArcStretches(arcs));
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
    internal->pathsWritten = 0;
    if (internal->views.empty() || !out.good()) return false;
    const SvgNumberFormat format(out);
    WriteSvgStart(out, internal->page(), SvgRoot::kLayers, internal->title, internal->description);
    if (internal->framed) WriteFrameLayer(out, internal->page(), internal->frameMargin, internal->titleBlock);
    for (int layer = 0; layer < kSheetLayerCount; ++layer)
        if (internal->enabled[layer]) internal->pathsWritten += internal->writeLayer(out, layer);
    WriteSvgEnd(out);
    return out.good();
}

bool SheetWriter::writeFile(const std::string& fileName) const {
    internal->pathsWritten = 0;
    std::ofstream file;
    if (!OpenSvgFile(file, fileName)) return false;
    const bool written = write(file);
    return CloseSvgFile(file) && written;
}

size_t SheetWriter::pathsWritten() const { return internal->pathsWritten; }

}  // namespace ctr
