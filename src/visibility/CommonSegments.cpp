// Removal from one line set of the segments that another set also holds,
// matched by the positions of their ends.

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <utility>
#include <vector>

#include "Wm4Vector3.h"
#include "qe/qeAttributes.h"
#include "qe/qeIndexBuffer.h"
#include "qe/qeVertexBuffer.h"

#include "ctr/LineSegmentSet.h"
#include "lines/EdgeOrder.h"

namespace ctr {

namespace {

using Vector3f = Wm4::Vector3<float>;

// The ends of a segment, smaller first, read in place from the buffer.
struct SegmentKey {
    const Vector3f* lo;
    const Vector3f* hi;
};

int CompareKey(const SegmentKey& k, const SegmentKey& l) {
    const int order = edges::ComparePositionValue(*k.lo, *l.lo);
    return order != 0 ? order : edges::ComparePositionValue(*k.hi, *l.hi);
}

bool HasNaN(const SegmentKey& key) {
    for (int axis = 0; axis < 3; ++axis)
        if ((*key.lo)[axis] != (*key.lo)[axis] || (*key.hi)[axis] != (*key.hi)[axis]) return true;
    return false;
}

// The segments of one set with their key; a segment naming a vertex the
// buffer does not have has none.
class SegmentKeys {
public:
    explicit SegmentKeys(const LineSegmentSet& set)
        : vertices(set.VBuffer),
          indices(set.IBuffer ? set.IBuffer->GetData() : nullptr),
          vertexCount(vertices && vertices->GetAttributes().HasPosition()
                          ? static_cast<unsigned int>(vertices->GetVertexQuantity())
                          : 0u) {}

    bool get(int segment, SegmentKey& key) const {
        const unsigned int a = indices[2 * static_cast<size_t>(segment)];
        const unsigned int b = indices[2 * static_cast<size_t>(segment) + 1];
        if (a >= vertexCount || b >= vertexCount) return false;
        key.lo = &vertices->Position3(static_cast<int>(a));
        key.hi = &vertices->Position3(static_cast<int>(b));
        if (edges::ComparePositionValue(*key.hi, *key.lo) < 0) std::swap(key.lo, key.hi);
        return true;
    }

    // Only for segments that get() accepts.
    SegmentKey at(int segment) const {
        SegmentKey key{};
        get(segment, key);
        return key;
    }

private:
    const qe::qeVertexBuffer* vertices;
    const unsigned int* indices;
    unsigned int vertexCount;
};

}  // namespace

void LineSegmentSet::RemoveCommonSegments(LineSegmentSet* a, const LineSegmentSet* b) {
    if (!a || !b) return;

    const SegmentKeys keysB(*b);
    const int segmentsB = b->getSegmentQuantity();
    std::vector<uint32_t> sortedB;
    sortedB.reserve(static_cast<size_t>(segmentsB));
    SegmentKey key{};
    for (int s = 0; s < segmentsB; ++s)
        if (keysB.get(s, key)) sortedB.push_back(static_cast<uint32_t>(s));
    // Nothing to match against: a stays as it is, even without segments.
    if (sortedB.empty()) return;
    std::sort(sortedB.begin(), sortedB.end(), [&keysB](uint32_t s, uint32_t t) {
        return CompareKey(keysB.at(static_cast<int>(s)), keysB.at(static_cast<int>(t))) < 0;
    });

    // Every match is decided before a's indices move: a and b may share
    // their index buffer, and compacting would rewrite b's segments under
    // the search.
    const SegmentKeys keysA(*a);
    const int segmentsA = a->getSegmentQuantity();
    std::vector<bool> dropped(static_cast<size_t>(segmentsA), false);
    for (int i = 0; i < segmentsA; ++i) {
        // NaN is equal to nothing, under the order's ties as well.
        if (!keysA.get(i, key) || HasNaN(key)) continue;
        const auto after = std::upper_bound(
            sortedB.begin(), sortedB.end(), key,
            [&keysB](const SegmentKey& k, uint32_t s) { return CompareKey(k, keysB.at(static_cast<int>(s))) < 0; });
        if (after == sortedB.begin()) continue;
        dropped[static_cast<size_t>(i)] = CompareKey(keysB.at(static_cast<int>(*(after - 1))), key) == 0;
    }

    // Kept segments move forward in order; their per-segment data are swapped
    // along, which leaves the dropped segments' data in the tails cut below.
    size_t kept = 0;
    unsigned int* data = a->IBuffer ? a->IBuffer->GetData() : nullptr;
    for (size_t i = 0; i < static_cast<size_t>(segmentsA); ++i) {
        if (dropped[i]) continue;
        data[2 * kept] = data[2 * i];
        data[2 * kept + 1] = data[2 * i + 1];
        if (kept != i) {
            if (i < a->occlusionIntervals.size()) std::swap(a->occlusionIntervals[i], a->occlusionIntervals[kept]);
            if (i < a->segmentClips.size()) std::swap(a->segmentClips[i], a->segmentClips[kept]);
            if (i < a->segmentFlags.size()) std::vector<bool>::swap(a->segmentFlags[i], a->segmentFlags[kept]);
        }
        ++kept;
    }

    if (kept > 0)
        a->IBuffer->resizeIndexBuffer(static_cast<int>(2 * kept));
    else
        a->IBuffer = nullptr;
    a->occlusionIntervals.resize(kept);
    a->segmentClips.resize(kept, tSegmentClip{0.0f, 0.0f, 0.0f, 0.0f});
    // Empty flags mean that no segment is flagged, so they stay empty.
    if (!a->segmentFlags.empty()) a->segmentFlags.resize(kept, false);
}

}  // namespace ctr
