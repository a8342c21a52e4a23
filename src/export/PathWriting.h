// Writing polylines as SVG paths on a sheet: the text that the SVG exporter
// and the layered sheet writer share, so that both place and print every
// vertex the same way.
#ifndef CTR_EXPORT_PATHWRITING_H
#define CTR_EXPORT_PATHWRITING_H

#include <cstdint>
#include <ostream>

#include "Wm4ColorRGB.h"
#include "Wm4Vector2.h"

#include "ctr/ExportParameters.h"
#include "ctr/LineSegmentSet.h"

namespace ctr {

// Every line is flushed as soon as it is complete, so that a write error
// shows in the stream state of the writer that caused it.
void EndLine(std::ostream& out);

// A colour channel scaled to 0..255 by truncation: no rounding, no clamping,
// and a negative channel wraps around as an unsigned 32-bit number. Values
// that no 64-bit integer holds (NaN included) give 0.
uint32_t ColorChannel(float channel);

// rgb(R,G,B) with the channels as ColorChannel gives them.
void WriteRgb(std::ostream& out, const Wm4::ColorRGB& color);

// Every index of the set names an existing vertex position.
bool IndicesNameVertices(const qe::qeVertexBuffer& vertices, const qe::qeIndexBuffer& indices);

// The sheet position of a vertex of set, in millimetres with y pointing down
// the page: world position, clip space, the view's fit and page offset, then
// the flip about the page height, all in float.
Wm4::Vector2<float> ProjectToSheet(const ExportParameters& parameters, const LineSegmentSet& set, unsigned int index);

// Writes the paths of polyline sets into an element whose start tag is being
// written: one path per run of segments that share their vertex index where
// they meet (equal positions under different indices start a new path), each
// path's data as move and line commands. The first path first writes
// startTagEnd (when given) to close the enclosing start tag; every path is
// closed when the next begins, the last by finish().
class PathWriter {
public:
    PathWriter(std::ostream& out, const char* startTagEnd) : m_out(out), m_startTagEnd(startTagEnd) {}

    // The segments of set, in index-buffer order; every index must name a
    // vertex (see IndicesNameVertices).
    void add(const LineSegmentSet& set, const ExportParameters& parameters);
    // Closes the last path, if any was opened.
    void finish();
    bool wroteAny() const { return m_paths != 0; }

private:
    std::ostream& m_out;
    const char* m_startTagEnd;
    size_t m_paths = 0;
};

}  // namespace ctr

#endif
