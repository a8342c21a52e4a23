// Polylines as SVG paths on a sheet: the exporter and the layered sheet
// writer both place every vertex and write every path this way.
#ifndef CTR_EXPORT_PATHWRITING_H
#define CTR_EXPORT_PATHWRITING_H

#include <cstdint>
#include <ostream>
#include <vector>

#include "Wm4Vector2.h"

#include "ctr/ExportParameters.h"
#include "ctr/LineSegmentSet.h"
#include "export/SvgDocument.h"

namespace ctr {

// Every index of the set names an existing vertex position.
bool IndicesNameVertices(const qe::qeVertexBuffer& vertices, const qe::qeIndexBuffer& indices);

// The sheet position of a vertex of set, in millimetres with y pointing down
// the page: world position, clip space, the view's fit and page offset, then
// the flip about the page height, all in float.
Wm4::Vector2<float> ProjectToSheet(const ExportParameters& parameters, const LineSegmentSet& set, unsigned int index);

// A stretch of a polyline set that the fitting found to be a circular arc:
// positions [begin, end) in the set's index array, as BuildPolylines reports
// it in an ArcFeature.
struct ArcStretch {
    uint32_t begin;
    uint32_t end;
};

// The arc stretches among BuildPolylines' records, in index order.
std::vector<ArcStretch> ArcStretches(const std::vector<LineSegmentSet::ArcFeature>& records);

// How far an arc command may stray from the segments it replaces, in sheet
// millimetres: half the width of a wide line, so that the circle stays in
// the ink the segments would leave.
constexpr double kArcDeviationMM = 0.1;

// One SVG arc command of a circle on the sheet: it ends on point `end` of the
// points it was fitted to; sweep is the SVG sweep flag (1 where the angle
// grows from +x towards +y, the sheet's y pointing down).
struct PageArc {
    size_t end;
    int sweep;
};

// Whether the sheet points of a stretch of three segments or more (its first
// point, then the end of each segment) lie on one circle, in order around it, with no chord
// straying more than kArcDeviationMM from it. Then radius is the circle's
// and arcs the commands that draw it, each under 180 degrees so that the
// large-arc flag is always 0 and a full circle needs no special case.
bool FitPageArcs(const std::vector<Wm4::Vector2<float>>& points, float& radius, std::vector<PageArc>& arcs);

// Writes the paths of polyline sets, each path an element on a line of its
// own: one path per run of segments that share their vertex index where
// they meet (equal positions under different indices start a new path), its
// data as move and line commands. A path is written once it is complete:
// when the next begins, the last by finish().
class PathWriter {
public:
    explicit PathWriter(std::ostream& out) : m_out(out) {}

    // The segments of set, in index-buffer order; every index must name a
    // vertex (see IndicesNameVertices). Each of the arcs (when given; in
    // index order) that is a circle on the sheet is written as arc commands
    // ending on the very points its segments would reach; the others as
    // segments.
    void add(const LineSegmentSet& set, const ExportParameters& parameters,
             const std::vector<ArcStretch>* arcs = nullptr);
    // Writes the last path, if one was begun.
    void finish();
    // The paths begun so far.
    size_t pathCount() const { return m_paths; }

private:
    // Writes the path before, if any, and begins one at start.
    void startPath(const Wm4::Vector2<float>& start);
    void writePath();
    // The stretch written as arcs, or false when it is no circle on the sheet.
    bool addArcs(const LineSegmentSet& set, const ExportParameters& parameters, const ArcStretch& stretch,
                 unsigned int& lastIndex);

    std::ostream& m_out;
    PathData m_data;
    size_t m_paths = 0;
};

}  // namespace ctr

#endif
