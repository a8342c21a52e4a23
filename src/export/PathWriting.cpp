#include "export/PathWriting.h"

#include <algorithm>
#include <cmath>

#include "Wm4Vector3.h"
#include "Wm4Vector4.h"

namespace ctr {

namespace {

// Before the first segment of a set no path is open yet.
constexpr unsigned int kNoVertex = 0xFFFFFFFFu;

constexpr double kPi = 3.14159265358979323846;
// A vertex counts as on the circle within this much, in millimetres, plus a
// part of the radius: float rounding on the way to the sheet, far below what
// shows, while a circle turned away from the eye by a degree already misses.
constexpr double kOnCircleMM = 1e-3;
constexpr double kOnCircleOfRadius = 1e-4;
// One arc command spans less than a half turn: its large-arc flag is then 0,
// and a renderer never has to choose between two nearly equal centres.
constexpr double kMaxCommandAngle = 0.9 * kPi;
// A chord spanning more than this is no curve worth a circle.
constexpr double kMaxChordAngle = 0.5 * kPi;

struct tPoint {
    double x;
    double y;
};

tPoint Widen(const Wm4::Vector2<float>& p) { return tPoint{p[0], p[1]}; }

}  // namespace

std::vector<ArcStretch> ArcStretches(const std::vector<LineSegmentSet::ArcFeature>& records) {
    std::vector<ArcStretch> stretches;
    for (const LineSegmentSet::ArcFeature& record : records)
        if ((record.flags & LineSegmentSet::ArcFeature::kArc) != 0 && record.end > record.begin)
            stretches.push_back(ArcStretch{record.begin, record.end});
    return stretches;
}

bool FitPageArcs(const std::vector<Wm4::Vector2<float>>& points, float& radius, std::vector<PageArc>& arcs) {
    arcs.clear();
    // Any three points lie on a circle: two segments prove nothing.
    if (points.size() < 4) return false;
    const size_t last = points.size() - 1;
    // The circle through three points spread over the stretch (for a closed
    // loop the last point is the first again, so it is not one of them).
    const size_t i1 = std::max<size_t>(1, last / 3);
    const size_t i2 = std::max<size_t>(i1 + 1, 2 * last / 3);
    const tPoint a = Widen(points[0]), b = Widen(points[i1]), c = Widen(points[i2]);
    const double bx = b.x - a.x, by = b.y - a.y, cx = c.x - a.x, cy = c.y - a.y;
    const double det = 2.0 * (bx * cy - by * cx);
    if (!(std::abs(det) > 0.0)) return false;
    const double bb = bx * bx + by * by, cc = cx * cx + cy * cy;
    const tPoint centre{a.x + (cy * bb - by * cc) / det, a.y + (bx * cc - cx * bb) / det};
    const double r = std::hypot(a.x - centre.x, a.y - centre.y);
    if (!std::isfinite(r) || !(r > 0.0) || !std::isfinite(static_cast<float>(r))) return false;
    const double onCircle = kOnCircleMM + kOnCircleOfRadius * r;
    // The largest angle a chord may span and stay within the allowed
    // deviation: its sagitta r (1 - cos(angle / 2)).
    const double maxChord = kArcDeviationMM >= 2.0 * r
                                ? kMaxChordAngle
                                : std::min(kMaxChordAngle, 2.0 * std::acos(1.0 - kArcDeviationMM / r));

    int sense = 0;
    double commandAngle = 0.0;
    for (size_t k = 0; k < last; ++k) {
        const tPoint p = Widen(points[k]), q = Widen(points[k + 1]);
        if (!(std::abs(std::hypot(q.x - centre.x, q.y - centre.y) - r) <= onCircle)) return false;
        const double ux = p.x - centre.x, uy = p.y - centre.y, vx = q.x - centre.x, vy = q.y - centre.y;
        const double cross = ux * vy - uy * vx;
        const double angle = std::atan2(std::abs(cross), ux * vx + uy * vy);
        const int step = cross > 0.0 ? 1 : (cross < 0.0 ? -1 : 0);
        // Every chord turns the same way around the centre, by a little.
        if (step == 0 || (sense != 0 && step != sense) || !(angle <= maxChord)) return false;
        sense = step;
        if (commandAngle > 0.0 && commandAngle + angle > kMaxCommandAngle) {
            arcs.push_back(PageArc{k, sense > 0 ? 1 : 0});
            commandAngle = 0.0;
        }
        commandAngle += angle;
    }
    arcs.push_back(PageArc{last, sense > 0 ? 1 : 0});
    radius = static_cast<float>(r);
    return true;
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
    return parameters.worldToSheet(set.World.ApplyForward(set.VBuffer->Position3(static_cast<int>(index)), true));
}

void PathWriter::writePath() {
    // Every command of a polyline path is followed by a blank, the last one
    // too: the single-view format fixes it so.
    StartTag(m_out, "path", 2).attribute("d", m_data.take() + ' ').empty();
}

void PathWriter::startPath(const Wm4::Vector2<float>& start) {
    if (!m_data.empty()) writePath();
    ++m_paths;
    m_data.move(start);
}

bool PathWriter::addArcs(const LineSegmentSet& set, const ExportParameters& parameters, const ArcStretch& stretch,
                         unsigned int& lastIndex) {
    const unsigned int* indices = set.IBuffer->GetData();
    // The polyline builder chains a stretch through shared vertices; a
    // stretch that does not is left to the segments.
    std::vector<Wm4::Vector2<float>> points{ProjectToSheet(parameters, set, indices[stretch.begin])};
    for (uint32_t i = stretch.begin; i < stretch.end; i += 2) {
        if (i > stretch.begin && indices[i] != indices[i - 1]) return false;
        points.push_back(ProjectToSheet(parameters, set, indices[i + 1]));
    }
    float radius = 0.0f;
    std::vector<PageArc> arcs;
    if (!FitPageArcs(points, radius, arcs)) return false;
    // The points are the ones the segments would write, so the path meets
    // its neighbours exactly as before.
    if (indices[stretch.begin] != lastIndex) startPath(points.front());
    for (const PageArc& arc : arcs) m_data.arc(radius, arc.sweep, points[arc.end]);
    lastIndex = indices[stretch.end - 1];
    return true;
}

void PathWriter::add(const LineSegmentSet& set, const ExportParameters& parameters,
                     const std::vector<ArcStretch>* arcs) {
    if (!set.VBuffer || !set.IBuffer) return;
    const int indexCount = set.IBuffer->GetIndexQuantity();
    const unsigned int* indices = set.IBuffer->GetData();
    unsigned int lastIndex = kNoVertex;
    size_t nextArc = 0;
    for (int i = 0; i + 1 < indexCount; i += 2) {
        if (arcs) {
            while (nextArc < arcs->size() && (*arcs)[nextArc].begin < static_cast<uint32_t>(i)) ++nextArc;
            if (nextArc < arcs->size() && (*arcs)[nextArc].begin == static_cast<uint32_t>(i)) {
                const ArcStretch& stretch = (*arcs)[nextArc++];
                if (stretch.end > stretch.begin + 2 && stretch.end <= static_cast<uint32_t>(indexCount) &&
                    stretch.end % 2 == 0 && addArcs(set, parameters, stretch, lastIndex)) {
                    i = static_cast<int>(stretch.end) - 2;
                    continue;
                }
            }
        }
        const unsigned int a = indices[i];
        const unsigned int b = indices[i + 1];
        const Wm4::Vector2<float> end = ProjectToSheet(parameters, set, b);
        if (a != lastIndex) startPath(ProjectToSheet(parameters, set, a));
        m_data.line(end);
        lastIndex = b;
    }
}

void PathWriter::finish() {
    if (!m_data.empty()) writePath();
}

}  // namespace ctr
