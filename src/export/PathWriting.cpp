#include "export/PathWriting.h"

#include "Wm4Vector3.h"
#include "Wm4Vector4.h"

namespace ctr {

namespace {

// Before the first segment of a set no path is open yet.
constexpr unsigned int kNoVertex = 0xFFFFFFFFu;

}  // namespace

void EndLine(std::ostream& out) { out << '\n' << std::flush; }

uint32_t ColorChannel(float channel) {
    const float scaled = channel * 255.0f;
    // Out of the 64-bit range the conversion would be undefined; 0 is the low
    // word of what x86 truncation yields there.
    constexpr float kTwoTo63 = 9223372036854775808.0f;
    if (!(scaled >= -kTwoTo63 && scaled < kTwoTo63)) return 0u;
    return static_cast<uint32_t>(static_cast<int64_t>(scaled));
}

void WriteRgb(std::ostream& out, const Wm4::ColorRGB& color) {
    out << "rgb(" << ColorChannel(color.R()) << ',' << ColorChannel(color.G()) << ',' << ColorChannel(color.B()) << ')';
}

bool IndicesNameVertices(const qe::qeVertexBuffer& vertices, const qe::qeIndexBuffer& indices) {
    if (!vertices.GetAttributes().HasPosition()) return false;
    const unsigned int vertexCount = static_cast<unsigned int>(vertices.GetVertexQuantity());
    const unsigned int* data = indices.GetData();
    for (int i = 0; i < indices.GetIndexQuantity(); ++i)
        if (data[i] >= vertexCount) return false;
    return true;
}

Wm4::Vector2<float> ProjectToSheet(const ExportParameters& parameters, const LineSegmentSet& set, unsigned int index) {
    const Wm4::Vector3<float> world = set.World.ApplyForward(set.VBuffer->Position3(static_cast<int>(index)), true);
    const Wm4::Vector4<float> clip =
        Wm4::Vector4<float>(world[0], world[1], world[2], 1.0f) * parameters.getProjectionSpace().getWorldToClip();
    // The segments were cut to the view already, so w is not tested here.
    const float u = clip[0] / clip[3];
    const float v = clip[1] / clip[3];
    const Wm4::Matrix2<float>& fit = parameters.getBestFitTransform();
    const Wm4::Vector2<float>& offset = parameters.getPageOffset();
    const float x = fit[0][0] * u + fit[0][1] * v + offset[0];
    const float y = fit[1][0] * u + fit[1][1] * v + offset[1];
    return Wm4::Vector2<float>(x, parameters.getPageSizeInMM()[1] - y);
}

void PathWriter::add(const LineSegmentSet& set, const ExportParameters& parameters) {
    if (!set.VBuffer || !set.IBuffer) return;
    const int indexCount = set.IBuffer->GetIndexQuantity();
    const unsigned int* indices = set.IBuffer->GetData();
    unsigned int lastIndex = kNoVertex;
    for (int i = 0; i + 1 < indexCount; i += 2) {
        const unsigned int a = indices[i];
        const unsigned int b = indices[i + 1];
        const Wm4::Vector2<float> end = ProjectToSheet(parameters, set, b);
        if (a != lastIndex) {
            if (m_paths != 0) {
                m_out << "\"/>";
                EndLine(m_out);
            } else if (m_startTagEnd) {
                m_out << m_startTagEnd;
                EndLine(m_out);
            }
            ++m_paths;
            const Wm4::Vector2<float> start = ProjectToSheet(parameters, set, a);
            m_out << "  <path d=\"M" << start[0] << ',' << start[1] << " L" << end[0] << ',' << end[1] << ' ';
        } else {
            m_out << 'L' << end[0] << ',' << end[1] << ' ';
        }
        lastIndex = b;
    }
}

void PathWriter::finish() {
    if (m_paths == 0) return;
    m_out << "\"/>";
    EndLine(m_out);
}

}  // namespace ctr
