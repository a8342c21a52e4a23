#include "ctr/SVGExporter.h"

#include <fstream>
#include <vector>

#include "qe/qePointer.h"

#include "export/PathWriting.h"
#include "export/SvgDocument.h"

namespace ctr {

class SVGExporter::tInternal {
public:
    tInternal() : title("Illustration") {
        lineStyles.emplace("silhouette", SVGLineStyle{Wm4::ColorRGB(0.0f, 0.0f, 0.0f), kSilhouetteWidthMM});
        lineStyles.emplace("crease", SVGLineStyle{Wm4::ColorRGB(0.0f, 0.0f, 0.0f), kCreaseWidthMM});
    }

    std::string fileName;
    std::string title;
    std::string description;
    std::ofstream stream;
    // Owned. Replacing it releases the earlier copy: only the latest is ever
    // used, so keeping the old ones alive would only leak them.
    std::unique_ptr<ExportParameters> exportParameters;
    std::map<std::string, SVGLineStyle> lineStyles;
    // In the file opened last.
    size_t pathsWritten = 0;

    bool isWritable() const { return stream.is_open() && stream.good(); }

private:
    friend class SVGExporter;

    bool exportHeader();
    bool exportLines(const std::string& groupId, const LineSegmentSet& set, const std::string& styleName);
    bool exportFooter();
};

bool SVGExporter::tInternal::exportHeader() {
    if (!exportParameters || !isWritable()) return false;
    WriteSvgStart(stream, exportParameters->getPageSizeInMM(), SvgRoot::kPlain, title, description);
    return stream.good();
}

bool SVGExporter::tInternal::exportLines(const std::string& groupId, const LineSegmentSet& set,
                                         const std::string& styleName) {
    if (!exportParameters || !isWritable()) return false;
    if (!set.VBuffer || !set.IBuffer) return true;
    const auto style = lineStyles.find(styleName);
    if (style == lineStyles.end()) return false;
    if (set.IBuffer->GetIndexQuantity() < 2) return true;
    // Checked before anything is written, so that a malformed set leaves no
    // half-written group behind.
    if (!IndicesNameVertices(*set.VBuffer, *set.IBuffer)) return false;

    StartTag group(stream, "g");
    if (!groupId.empty()) group.attribute("id", groupId);
    group.attribute("fill", "none")
        .attribute("stroke-linecap", "round")
        .attribute("stroke-linejoin", "round")
        .attribute("stroke", style->second.color)
        .attribute("stroke-width", style->second.width)
        .open();
    // Two indices or more make at least one path, so the group is never
    // empty.
    PathWriter paths(stream);
    paths.add(set, *exportParameters);
    paths.finish();
    pathsWritten += paths.pathCount();
    EndTag(stream, "g");
    return stream.good();
}

bool SVGExporter::tInternal::exportFooter() {
    if (!isWritable()) return false;
    WriteSvgEnd(stream);
    return stream.good();
}

SVGExporter::SVGExporter() : internal(new tInternal) {}

SVGExporter::~SVGExporter() = default;

void SVGExporter::setExportParameters(const ExportParameters& parameters) {
    internal->exportParameters = std::make_unique<ExportParameters>(parameters);
}

void SVGExporter::setTitle(const std::string& title) { internal->title = title; }

void SVGExporter::setDescription(const std::string& description) { internal->description = description; }

void SVGExporter::setLineStyle(const std::string& name, const SVGLineStyle& style) {
    internal->lineStyles.insert_or_assign(name, style);
}

SVGLineStyle SVGExporter::getLineStyle(const std::string& name) const {
    const auto found = internal->lineStyles.find(name);
    if (found == internal->lineStyles.end()) return SVGLineStyle{Wm4::ColorRGB(0.0f, 0.0f, 0.0f), 1.0f};
    return found->second;
}

const std::map<std::string, SVGLineStyle>& SVGExporter::getLineStyles() const { return internal->lineStyles; }

bool SVGExporter::openFile(const std::string& name) {
    if (internal->stream.is_open() || !OpenSvgFile(internal->stream, name)) return false;
    internal->fileName = name;
    internal->pathsWritten = 0;
    // A header that fails leaves the file open: closeFile() still ends it.
    return internal->exportHeader();
}

bool SVGExporter::closeFile() {
    if (!internal->stream.is_open()) return false;
    const bool written = internal->exportFooter();
    return CloseSvgFile(internal->stream) && written;
}

size_t SVGExporter::pathsWritten() const { return internal->pathsWritten; }

bool SVGExporter::streamLineSegments(const LineSegmentSet& set, const std::string& styleName) {
    if (!internal->isWritable()) return false;
    // The pointers release both intermediate sets on every way out.
    const qe::qePointer<LineSegmentSet> baked = LineSegmentSet::BakeVisibleSegments(&set);
    if (baked == nullptr) return true;
    // The drawing holds straight segments only: the arcs are not used.
    std::vector<LineSegmentSet::ArcFeature> arcs;
    const qe::qePointer<LineSegmentSet> polylines = LineSegmentSet::BuildPolylines(*baked, arcs, true);
    if (polylines == nullptr) return true;
    return internal->exportLines("", *polylines, styleName);
}

bool SVGExporter::streamGeometricFeatures(const GeometricFeatures& features) {
    if (!internal->isWritable()) return false;
    if (features.creaseEdges != nullptr && !streamLineSegments(*features.creaseEdges, "crease")) return false;
    if (features.silhouetteEdges != nullptr && !streamLineSegments(*features.silhouetteEdges, "silhouette"))
        return false;
    // Intersection lines are drawn like silhouettes; they have no style of their own.
    if (features.intersectionEdges != nullptr) return streamLineSegments(*features.intersectionEdges, "silhouette");
    return true;
}

}  // namespace ctr
