#include "ctr/SVGExporter.h"

#include <cstdint>
#include <fstream>
#include <locale>
#include <ostream>
#include <vector>

#include "Wm4Vector2.h"
#include "Wm4Vector3.h"
#include "Wm4Vector4.h"
#include "qe/qePointer.h"
#include "qe/qeStringUtils.h"

#include "export/PathWriting.h"

namespace ctr {

class SVGExporter::tInternal {
public:
    tInternal() : title("Illustration") {
        // Numbers must use "." whatever global locale the host has installed.
        stream.imbue(std::locale::classic());
        // Failures are reported by results; the stream must never throw.
        stream.exceptions(std::ios::goodbit);
        lineStyles.emplace("silhouette", SVGLineStyle{Wm4::ColorRGB(0.0f, 0.0f, 0.0f), 0.2f});
        lineStyles.emplace("crease", SVGLineStyle{Wm4::ColorRGB(0.0f, 0.0f, 0.0f), 0.13333333f});
    }

    std::string fileName;
    std::string title;
    std::string description;
    std::ofstream stream;
    // Owned. Replacing it releases the earlier copy: only the latest is ever
    // used, so keeping the old ones alive would only leak them.
    std::unique_ptr<ExportParameters> exportParameters;
    std::map<std::string, SVGLineStyle> lineStyles;

    bool isWritable() const { return stream.is_open() && stream.good(); }

private:
    friend class SVGExporter;

    bool exportHeader();
    bool exportLines(const std::string& groupId, const LineSegmentSet& set, const std::string& styleName);
    bool exportFooter();
};

bool SVGExporter::tInternal::exportHeader() {
    if (!exportParameters || !isWritable()) return false;
    const Wm4::Vector2<float>& page = exportParameters->getPageSizeInMM();
    stream << "<?xml version=\"1.0\"?>";
    EndLine(stream);
    stream << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << page[0] << "mm\" height=\"" << page[1]
           << "mm\" viewBox=\"0 0 " << page[0] << ' ' << page[1] << "\" >";
    EndLine(stream);
    if (!title.empty()) {
        stream << "<title>" << title << "</title>";
        EndLine(stream);
    }
    if (!description.empty()) {
        stream << "<desc>" << description << "</desc>";
        EndLine(stream);
    }
    return stream.good();
}

bool SVGExporter::tInternal::exportLines(const std::string& groupId, const LineSegmentSet& set,
                                         const std::string& styleName) {
    if (!exportParameters || !isWritable()) return false;
    if (!set.VBuffer || !set.IBuffer) return true;
    const auto style = lineStyles.find(styleName);
    if (style == lineStyles.end()) return false;
    const int indexCount = set.IBuffer->GetIndexQuantity();
    if (indexCount < 2) return true;
    // Checked before anything is written, so that a malformed set leaves no
    // half-written group behind.
    if (!IndicesNameVertices(*set.VBuffer, *set.IBuffer)) return false;

    if (groupId.empty())
        stream << "<g";
    else
        stream << "<g id=\"" << groupId << '"';
    stream << " fill=\"none\" stroke-linecap=\"round\" stroke-linejoin=\"round\" stroke=\"";
    WriteRgb(stream, style->second.color);
    stream << "\" stroke-width=\"" << style->second.width;

    // The first path closes the group's start tag.
    PathWriter paths(stream, "\">");
    paths.add(set, *exportParameters);
    paths.finish();
    stream << "</g>";
    EndLine(stream);
    return stream.good();
}

bool SVGExporter::tInternal::exportFooter() {
    if (!isWritable()) return false;
    stream << "</svg>";
    EndLine(stream);
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
    std::ofstream& stream = internal->stream;
    if (stream.is_open()) return false;
    const std::string converted =
        qe::qeStringUtils::convertCharset(name, qe::qeStringUtils::CS_UTF8, qe::qeStringUtils::CS_FILESYSTEM);
    // open() clears the error state left by an earlier file on success and
    // sets the fail state on failure.
    stream.open(converted, std::ios::out | std::ios::trunc);
    if (!stream.is_open()) return false;
    if (!stream.good()) {
        stream.close();
        return false;
    }
    internal->fileName = name;
    // A header that fails leaves the file open: closeFile() still ends it.
    return internal->exportHeader();
}

bool SVGExporter::closeFile() {
    std::ofstream& stream = internal->stream;
    if (!stream.is_open()) return false;
    const bool written = internal->exportFooter();
    // close() sets the fail state when it fails; a file system may report a
    // deferred write error only then, so that counts as a failed write too.
    stream.close();
    return written && !stream.fail();
}

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
