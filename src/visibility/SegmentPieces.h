// The pieces into which the hidden intervals of a feature segment cut it,
// visible and hidden alike, and the points where they meet. The baker of
// visible pieces and the baker of hidden pieces both walk a segment with
// these, so the two pieces on either side of a cut end on the very same float
// point, and together they cover the part of the segment in view.
#ifndef CTR_VISIBILITY_SEGMENTPIECES_H
#define CTR_VISIBILITY_SEGMENTPIECES_H

#include <algorithm>
#include <cstdint>
#include <vector>

#include "Wm4Vector3.h"

#include "ctr/LineSegmentSet.h"
#include "ctr/RationalInterval.h"

namespace ctr {

// One end of a piece: the segment's own (clipped) start or end, or a cut at
// an end of a hidden interval, numerator / denominator along the segment as
// projected (0 and 1 at the clipped ends).
struct tPieceEnd {
    enum Kind : uint8_t { kSegmentStart, kSegmentEnd, kCut };
    Kind kind;
    int64_t numerator;
    int64_t denominator;
};

// Calls visit(hidden, from, to) for every piece of a segment, in order along
// it, given its hidden intervals sorted with gaps between them, as the
// occlusion pass leaves them. No list or an empty one is one visible piece.
// A list that starts at numerator 0 hides the segment's start, and one that
// ends at or beyond its denominator hides its end: there the hidden piece
// takes the segment's own end instead of a cut.
template <typename Visit>
void ForEachSegmentPiece(const std::vector<RationalInterval>* hidden, Visit&& visit) {
    constexpr tPieceEnd kStart{tPieceEnd::kSegmentStart, 0, 1};
    constexpr tPieceEnd kEnd{tPieceEnd::kSegmentEnd, 1, 1};
    if (!hidden || hidden->empty()) {
        visit(false, kStart, kEnd);
        return;
    }
    const auto startOf = [](const RationalInterval& i) {
        return tPieceEnd{tPieceEnd::kCut, i.startNumerator, i.startDenominator};
    };
    const auto endOf = [](const RationalInterval& i) {
        return tPieceEnd{tPieceEnd::kCut, i.endNumerator, i.endDenominator};
    };
    const std::vector<RationalInterval>& list = *hidden;
    const bool visibleBefore = list.front().startNumerator != 0;
    const bool visibleAfter = list.back().endNumerator < list.back().endDenominator;
    if (visibleBefore) visit(false, kStart, startOf(list.front()));
    for (size_t j = 0; j < list.size(); ++j) {
        const bool first = j == 0;
        const bool last = j + 1 == list.size();
        visit(true, first && !visibleBefore ? kStart : startOf(list[j]), last && !visibleAfter ? kEnd : endOf(list[j]));
        if (!last) visit(false, endOf(list[j]), startOf(list[j + 1]));
    }
    if (visibleAfter) visit(false, endOf(list.back()), kEnd);
}

// The float geometry of one segment's pieces.
class SegmentCutter {
public:
    using Vector3f = Wm4::Vector3<float>;

    // p1 t + p0 (1 - t), component by component, the product with p1 first.
    static Vector3f Lerp(const Vector3f& p0, const Vector3f& p1, float t) {
        const float s = 1.0f - t;
        return Vector3f(p1[0] * t + p0[0] * s, p1[1] * t + p0[1] * s, p1[2] * t + p0[2] * s);
    }

    SegmentCutter(const Vector3f& p0, const Vector3f& p1, const LineSegmentSet::tSegmentClip& clip)
        : m_p0(p0),
          m_p1(p1),
          m_q0(Lerp(p0, p1, clip.tStart)),
          m_q1(Lerp(p0, p1, clip.tEnd)),
          m_wStart(clip.wStart),
          m_wEnd(clip.wEnd),
          m_cutStart(CutsStart(clip)),
          m_cutEnd(CutsEnd(clip)) {}

    // Whether the view cuts a segment's start (or end), so that a piece end
    // there is a new point rather than the segment's own vertex. Compared
    // exactly; a NaN counts as cut.
    static bool CutsStart(const LineSegmentSet::tSegmentClip& clip) { return !(clip.tStart == 0.0f); }
    static bool CutsEnd(const LineSegmentSet::tSegmentClip& clip) { return !(clip.tEnd == 1.0f); }

    bool cutsStart() const { return m_cutStart; }
    bool cutsEnd() const { return m_cutEnd; }
    // The clipped ends.
    const Vector3f& clippedStart() const { return m_q0; }
    const Vector3f& clippedEnd() const { return m_q1; }

    // The 3D point at numerator / denominator of the segment as projected.
    // Parameters are linear in the drawing, not along the 3D segment: the
    // perspective division is undone so that a cut lands on the 3D point that
    // projects onto it.
    Vector3f at(int64_t numerator, int64_t denominator) const {
        const float s = static_cast<float>(numerator) / static_cast<float>(denominator);
        const float u = (m_wStart * s) / ((m_wStart - m_wEnd) * s + m_wEnd);
        return Lerp(m_q0, m_q1, u);
    }

    // Where a piece end lies: the segment's own vertex when the view does not
    // cut it there, the clipped end when it does, the cut point otherwise.
    Vector3f point(const tPieceEnd& end) const {
        switch (end.kind) {
            case tPieceEnd::kSegmentStart:
                return m_cutStart ? m_q0 : m_p0;
            case tPieceEnd::kSegmentEnd:
                return m_cutEnd ? m_q1 : m_p1;
            case tPieceEnd::kCut:
                break;
        }
        return at(end.numerator, end.denominator);
    }

private:
    Vector3f m_p0, m_p1, m_q0, m_q1;
    float m_wStart, m_wEnd;
    bool m_cutStart, m_cutEnd;
};

// The segments of a set as both bakers read them: end vertices, hidden
// intervals and clip record.
class OccludedSegments {
public:
    struct tSegment {
        uint32_t a;
        uint32_t b;
        const std::vector<RationalInterval>* hidden;  // null: no list, drawn whole
        LineSegmentSet::tSegmentClip clip;

        bool cutStart() const { return SegmentCutter::CutsStart(clip); }
        bool cutEnd() const { return SegmentCutter::CutsEnd(clip); }
        // Some of it lies in view (false for a NaN too).
        bool inView() const { return clip.tStart < clip.tEnd; }
    };

    // The source must have both buffers.
    explicit OccludedSegments(const LineSegmentSet& source)
        : m_source(source),
          m_indices(source.IBuffer->GetData()),
          m_count(static_cast<size_t>(source.getSegmentQuantity())),
          m_listed(std::min(m_count, source.occlusionIntervals.size())),
          m_vertexCount(static_cast<uint32_t>(source.VBuffer->GetVertexQuantity())) {}

    // Segments, and those of them with an interval list (the first ones).
    size_t count() const { return m_count; }
    size_t listed() const { return m_listed; }
    uint32_t vertexCount() const { return m_vertexCount; }

    tSegment at(size_t k) const {
        // A segment without a clip record counts as wholly in view.
        static constexpr LineSegmentSet::tSegmentClip kUnclipped{0.0f, 1.0f, 1.0f, 1.0f};
        return tSegment{m_indices[2 * k], m_indices[2 * k + 1],
                        k < m_listed ? &m_source.occlusionIntervals[k] : nullptr,
                        k < m_source.segmentClips.size() ? m_source.segmentClips[k] : kUnclipped};
    }

    // A segment naming a vertex the buffer lacks has no place to be drawn;
    // the bakers pass over it.
    bool valid(const tSegment& segment) const { return segment.a < m_vertexCount && segment.b < m_vertexCount; }

    SegmentCutter cutter(const tSegment& segment) const {
        const qe::qeVertexBuffer& vertices = *m_source.VBuffer;
        return SegmentCutter(vertices.Position3(static_cast<int>(segment.a)),
                             vertices.Position3(static_cast<int>(segment.b)), segment.clip);
    }

private:
    const LineSegmentSet& m_source;
    const unsigned int* m_indices;
    size_t m_count;
    size_t m_listed;
    uint32_t m_vertexCount;
};

}  // namespace ctr

#endif
