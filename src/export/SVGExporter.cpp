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

namespace ctr {

namespace {

// Before the first segment of a group no path is open yet.
constexpr unsigned int kNoVertex = 0xFFFFFFFFu;

// Every line is flushed as soon as it is complete, so that a write error
// shows in the stream state of the writer that caused it.
void EndLine(std::ostream& out) { out << '\n' << std::flush; }

// A colour channel scaled to 0..255 by truncation: no rounding, no clamping,
// and a negative channel wraps around as an unsigned 32-bit number. Values
// that no 64-bit integer holds (NaN included) would make the conversion
// undefined; they give 0, the low word of what x86 truncation yields.
uint32_t ColorChannel(float channel) {
    const float scaled = channel * 255.0f;
    constexpr float kTwoTo63 = 9223372036854775808.0f;
    if (!(scaled >= -kTwoTo63 && scaled < kTwoTo63)) return 0u;
    return static_cast<uint32_t>(static_cast<int64_t>(scaled));
}

// Every index of the set names an existing vertex position.
bool IndicesNameVertices(const qe::qeVertexBuffer& vertices, const qe::qeIndexBuffer& indices) {
    if (!vertices.GetAttributes().HasPosition()) return false;
    const unsigned int vertexCount = static_cast<unsigned int>(vertices.GetVertexQuantity());
    const unsigned int* data = indices.GetData();
    for (int i = 0; i < indices.GetIndexQuantity(); ++i)
        if (data[i] >= vertexCount) return false;
    return true;
}

}  // namespace

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

    // The sheet position of a vertex of set, y pointing down the page.
    Wm4::Vector2<float> projectVertex(const LineSegmentSet& set, unsigned int index) const;
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

Wm4::Vector2<float> SVGExporter::tInternal::projectVertex(const LineSegmentSet& set, unsigned int index) const {
    const Wm4::Vector3<float> world = set.World.ApplyForward(set.VBuffer->Position3(static_cast<int>(index)), true);
    const Wm4::Vector4<float> clip = Wm4::Vector4<float>(world[0], world[1], world[2], 1.0f) *
                                     exportParameters->getProjectionSpace().getWorldToClip();
    // The segments were cut to the view already, so w is not tested here.
    const float u = clip[0] / clip[3];
    const float v = clip[1] / clip[3];
    const Wm4::Matrix2<float>& fit = exportParameters->getBestFitTransform();
    const Wm4::Vector2<float>& offset = exportParameters->getPageOffset();
    const float x = fit[0][0] * u + fit[0][1] * v + offset[0];
    const float y = fit[1][0] * u + fit[1][1] * v + offset[1];
    return Wm4::Vector2<float>(x, exportParameters->getPageSizeInMM()[1] - y);
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
    const Wm4::ColorRGB& color = style->second.color;
    stream << " fill=\"none\" stroke-linecap=\"round\" stroke-linejoin=\"round\" stroke=\"rgb("
           << ColorChannel(color.R()) << ',' << ColorChannel(color.G()) << ',' << ColorChannel(color.B())
           << ")\" stroke-width=\"" << style->second.width;

    const unsigned int* indices = set.IBuffer->GetData();
    unsigned int lastIndex = kNoVertex;
    // Paths are chained by shared vertex indices only; equal positions under
    // different indices start a new path.
    for (int i = 0; i + 1 < indexCount; i += 2) {
        const unsigned int a = indices[i];
        const unsigned int b = indices[i + 1];
        const Wm4::Vector2<float> end = projectVertex(set, b);
        if (a != lastIndex) {
            stream << (lastIndex == kNoVertex ? "\">" : "\"/>");
            EndLine(stream);
            const Wm4::Vector2<float> start = projectVertex(set, a);
            stream << "  <path d=\"M" << start[0] << ',' << start[1] << " L" << end[0] << ',' << end[1] << ' ';
        } else {
            stream << 'L' << end[0] << ',' << end[1] << ' ';
        }
        lastIndex = b;
    }
    stream << "\"/>";
    EndLine(stream);
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
