#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "qe/qeAttributes.h"

#include "ctr/LineSegmentSet.h"
#include "lines/Placement.h"

namespace ctr {

namespace {

using Vector3f = Wm4::Vector3<float>;

const LineSegmentSet::tSegmentClip kUnclipped{0.0f, 1.0f, 1.0f, 1.0f};

// p1 t + p0 (1 - t), component by component, the product with p1 first.
Vector3f Lerp(const Vector3f& p0, const Vector3f& p1, float t) {
    const float s = 1.0f - t;
    return Vector3f(p1[0] * t + p0[0] * s, p1[1] * t + p0[1] * s, p1[2] * t + p0[2] * s);
}

// One segment as both passes see it.
struct SegmentView {
    uint32_t a;
    uint32_t b;
    const std::vector<RationalInterval>* hidden;  // null: no list, drawn whole
    LineSegmentSet::tSegmentClip clip;
    bool cutStart;
    bool cutEnd;

    bool visibleBefore() const { return hidden->front().startNumerator != 0; }
    bool visibleAfter() const { return hidden->back().endNumerator < hidden->back().endDenominator; }
};

}  // namespace

LineSegmentSet* LineSegmentSet::BakeVisibleSegments(const LineSegmentSet* source) {
    if (!source || !source->VBuffer || !source->IBuffer) return nullptr;
    const qe::qeVertexBuffer& vertices = *source->VBuffer;
    const unsigned int* indices = source->IBuffer->GetData();
    const size_t segmentCount = static_cast<size_t>(source->getSegmentQuantity());
    const size_t listed = std::min(segmentCount, source->occlusionIntervals.size());

    if (listed == 0) {
        // No occlusion computed: everything is visible and nothing is cut.
        std::unique_ptr<LineSegmentSet> whole(new LineSegmentSet);
        whole->VBuffer = source->VBuffer;
        whole->IBuffer = source->IBuffer;
        CopyPlacement(*source, *whole);
        return whole.release();
    }
    if (!vertices.GetAttributes().HasPosition()) return nullptr;

    const uint32_t vertexCount = static_cast<uint32_t>(vertices.GetVertexQuantity());
    const auto view = [&](size_t k) {
        SegmentView segment;
        segment.a = indices[2 * k];
        segment.b = indices[2 * k + 1];
        segment.hidden = k < listed ? &source->occlusionIntervals[k] : nullptr;
        segment.clip = k < source->segmentClips.size() ? source->segmentClips[k] : kUnclipped;
        segment.cutStart = !(segment.clip.tStart == 0.0f);
        segment.cutEnd = !(segment.clip.tEnd == 1.0f);
        return segment;
    };
    // A segment naming a vertex the buffer lacks has no place to be drawn;
    // both passes pass over it.
    const auto valid = [&](const SegmentView& segment) { return segment.a < vertexCount && segment.b < vertexCount; };

    // Counting pass: which source vertices stay, how many cut vertices and
    // segments the result has, so that each buffer is allocated once.
    std::vector<uint32_t> kept(vertexCount, 0u);
    int64_t outSegments = 0;
    int64_t newVertices = 0;
    for (size_t k = 0; k < segmentCount; ++k) {
        const SegmentView segment = view(k);
        if (!valid(segment)) continue;
        if (!segment.hidden || segment.hidden->empty()) {
            if (!segment.cutStart) kept[segment.a] = 1;
            if (!segment.cutEnd) kept[segment.b] = 1;
            outSegments += 1;
            newVertices += int64_t(segment.cutStart) + int64_t(segment.cutEnd);
            continue;
        }
        const int64_t n = static_cast<int64_t>(segment.hidden->size());
        newVertices += 2 * n;
        outSegments += n - 1;
        if (segment.visibleBefore()) {
            outSegments += 1;
            newVertices += int64_t(segment.cutStart);
            if (!segment.cutStart) kept[segment.a] = 1;
        } else {
            newVertices -= 1;
        }
        if (segment.visibleAfter()) {
            outSegments += 1;
            newVertices += int64_t(segment.cutEnd);
            if (!segment.cutEnd) kept[segment.b] = 1;
        } else {
            newVertices -= 1;
        }
    }

    constexpr uint32_t kDropped = 0xFFFFFFFFu;
    uint32_t keptCount = 0;
    for (uint32_t& word : kept) word = word ? keptCount++ : kDropped;
    if (outSegments == 0) return nullptr;
    const int64_t totalVertices = int64_t(keptCount) + newVertices;
    if (totalVertices > std::numeric_limits<int>::max() || 2 * outSegments > std::numeric_limits<int>::max())
        return nullptr;

    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    qe::qePointer<qe::qeVertexBuffer> outVertices = new qe::qeVertexBuffer(attributes, static_cast<int>(totalVertices));
    for (uint32_t v = 0; v < vertexCount; ++v)
        if (kept[v] != kDropped)
            outVertices->Position3(static_cast<int>(kept[v])) = vertices.Position3(static_cast<int>(v));
    qe::qePointer<qe::qeIndexBuffer> outIndices =
        new qe::qeIndexBuffer(static_cast<int>(2 * outSegments), qe::qeIndexBuffer::IBT_LINE_LIST);

    unsigned int* cursor = outIndices->GetData();
    uint32_t nextVertex = keptCount;
    const auto newVertex = [&](const Vector3f& position) {
        outVertices->Position3(static_cast<int>(nextVertex)) = position;
        return nextVertex++;
    };
    const auto emit = [&](uint32_t from, uint32_t to) {
        *cursor++ = from;
        *cursor++ = to;
    };
    // Only segments with a list are emitted. Segments beyond the lists were
    // counted above but keep the zero indices the new buffer starts with; the
    // occlusion passes always write one list per segment, so this never
    // shows in practice, and the sizes stay those of the counting pass.
    for (size_t k = 0; k < listed; ++k) {
        const SegmentView segment = view(k);
        if (!valid(segment)) continue;
        const Vector3f& p0 = vertices.Position3(static_cast<int>(segment.a));
        const Vector3f& p1 = vertices.Position3(static_cast<int>(segment.b));
        const Vector3f q0 = Lerp(p0, p1, segment.clip.tStart);
        const Vector3f q1 = Lerp(p0, p1, segment.clip.tEnd);
        const float wStart = segment.clip.wStart;
        const float wEnd = segment.clip.wEnd;
        // Parameters are linear in the drawing, not along the 3D segment: the
        // perspective division is undone so that a cut lands on the 3D point
        // that projects onto it.
        const auto at = [&](int64_t numerator, int64_t denominator) {
            const float s = static_cast<float>(numerator) / static_cast<float>(denominator);
            const float u = (wStart * s) / ((wStart - wEnd) * s + wEnd);
            return Lerp(q0, q1, u);
        };
        const auto startIndex = [&]() { return segment.cutStart ? newVertex(q0) : kept[segment.a]; };
        const auto endIndex = [&]() { return segment.cutEnd ? newVertex(q1) : kept[segment.b]; };

        const std::vector<RationalInterval>& hidden = *segment.hidden;
        if (hidden.empty()) {
            const uint32_t from = startIndex();
            emit(from, endIndex());
            continue;
        }
        if (segment.visibleBefore()) {
            const uint32_t from = startIndex();
            emit(from, newVertex(at(hidden.front().startNumerator, hidden.front().startDenominator)));
        }
        for (size_t j = 0; j + 1 < hidden.size(); ++j) {
            const uint32_t from = newVertex(at(hidden[j].endNumerator, hidden[j].endDenominator));
            emit(from, newVertex(at(hidden[j + 1].startNumerator, hidden[j + 1].startDenominator)));
        }
        if (segment.visibleAfter()) {
            const uint32_t from = newVertex(at(hidden.back().endNumerator, hidden.back().endDenominator));
            emit(from, endIndex());
        }
    }

    std::unique_ptr<LineSegmentSet> result(new LineSegmentSet);
    result->VBuffer = outVertices;
    result->IBuffer = outIndices;
    CopyPlacement(*source, *result);
    return result.release();
}

}  // namespace ctr
