// Removal of segments that another set, or an earlier segment of the same
// set, also holds, matched by the positions of their ends.

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

bool HasNaN(const SegmentKey& key) {
    for (int axis = 0; axis < 3; ++axis)
        if ((*key.lo)[axis] != (*key.lo)[axis] || (*key.hi)[axis] != (*key.hi)[axis]) return true;
    return false;
}

// The six coordinates of a segment's ends, lower end first, as unsigned
// numbers whose order is the value order of CompareValue without NaN: -0
// and +0 take one key, so equal keys mean equal values. Only segments
// without a NaN end get one.
struct ValueKey {
    uint32_t k[6];
    bool operator<(const ValueKey& other) const {
        return std::lexicographical_compare(k, k + 6, other.k, other.k + 6);
    }
    bool operator==(const ValueKey& other) const { return std::equal(k, k + 6, other.k); }
};

ValueKey MakeValueKey(const SegmentKey& key) {
    ValueKey value{};
    for (int axis = 0; axis < 3; ++axis) {
        // Adding +0 turns -0 into +0 and changes nothing else.
        value.k[axis] = edges::FloatOrderKey((*key.lo)[axis] + 0.0f);
        value.k[3 + axis] = edges::FloatOrderKey((*key.hi)[axis] + 0.0f);
    }
    return value;
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

    // The numbers of the first count segments that have a key, in order;
    // without those with a NaN end unless asked for.
    std::vector<uint32_t> keyed(int count, bool withNaN) const {
        std::vector<uint32_t> numbers;
        numbers.reserve(static_cast<size_t>(count));
        SegmentKey key{};
        for (int s = 0; s < count; ++s)
            if (get(s, key) && (withNaN || !HasNaN(key))) numbers.push_back(static_cast<uint32_t>(s));
        return numbers;
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

// Moves the kept segments forward in order; their per-segment data are
// swapped along, which leaves the dropped segments' data in the tails cut
// below. Returns the number of segments dropped.
int CompactSegments(LineSegmentSet& set, const std::vector<bool>& dropped) {
    const size_t segments = dropped.size();
    size_t kept = 0;
    unsigned int* data = set.IBuffer ? set.IBuffer->GetData() : nullptr;
    for (size_t i = 0; i < segments; ++i) {
        if (dropped[i]) continue;
        data[2 * kept] = data[2 * i];
        data[2 * kept + 1] = data[2 * i + 1];
        if (kept != i) {
            if (i < set.occlusionIntervals.size()) std::swap(set.occlusionIntervals[i], set.occlusionIntervals[kept]);
            if (i < set.segmentClips.size()) std::swap(set.segmentClips[i], set.segmentClips[kept]);
            if (i < set.segmentFlags.size()) std::vector<bool>::swap(set.segmentFlags[i], set.segmentFlags[kept]);
        }
        ++kept;
    }

    if (kept > 0)
        set.IBuffer->resizeIndexBuffer(static_cast<int>(2 * kept));
    else
        set.IBuffer = nullptr;
    set.occlusionIntervals.resize(kept);
    set.segmentClips.resize(kept, LineSegmentSet::tSegmentClip{0.0f, 0.0f, 0.0f, 0.0f});
    // Empty flags mean that no segment is flagged, so they stay empty.
    if (!set.segmentFlags.empty()) set.segmentFlags.resize(kept, false);
    return static_cast<int>(segments - kept);
}

}  // namespace

void LineSegmentSet::RemoveCommonSegments(LineSegmentSet* a, const LineSegmentSet* b) {
    if (!a || !b) return;

    // b's segments as value keys, sorted; the order among equal keys does
    // not matter, as only whether a key is there is asked. A segment with a
    // NaN end equals nothing of a's (those are skipped below, and NaN is
    // unequal to every number), so it is left out.
    const SegmentKeys keysB(*b);
    const int segmentsB = b->getSegmentQuantity();
    std::vector<ValueKey> sortedB;
    sortedB.reserve(static_cast<size_t>(std::max(segmentsB, 0)));
    bool anyB = false;
    SegmentKey key{};
    for (int s = 0; s < segmentsB; ++s) {
        if (!keysB.get(s, key)) continue;
        anyB = true;
        if (!HasNaN(key)) sortedB.push_back(MakeValueKey(key));
    }
    // Nothing to match against: a stays as it is, even without segments.
    if (!anyB) return;
    std::sort(sortedB.begin(), sortedB.end());

    // Every match is decided before a's indices move: a and b may share
    // their index buffer, and compacting would rewrite b's segments under
    // the search.
    const SegmentKeys keysA(*a);
    const int segmentsA = a->getSegmentQuantity();
    std::vector<bool> dropped(static_cast<size_t>(segmentsA), false);
    for (int i = 0; i < segmentsA; ++i) {
        // NaN is equal to nothing, under the order's ties as well.
        if (!keysA.get(i, key) || HasNaN(key)) continue;
        dropped[static_cast<size_t>(i)] = std::binary_search(sortedB.begin(), sortedB.end(), MakeValueKey(key));
    }

    CompactSegments(*a, dropped);
}

int LineSegmentSet::RemoveDuplicateSegments(LineSegmentSet* set) {
    if (!set || !set->IBuffer) return 0;
    const SegmentKeys keys(*set);
    const int segments = set->getSegmentQuantity();
    // Value keys sorted with ties in segment order, so that the first of
    // equal segments is the one kept, whatever the sort does. Segments with
    // a NaN end equal nothing and take no part.
    struct KeyedSegment {
        ValueKey key;
        uint32_t segment;
        bool operator<(const KeyedSegment& other) const {
            return key < other.key || (key == other.key && segment < other.segment);
        }
    };
    std::vector<KeyedSegment> order;
    order.reserve(static_cast<size_t>(std::max(segments, 0)));
    for (const uint32_t s : keys.keyed(segments, false))
        order.push_back(KeyedSegment{MakeValueKey(keys.at(static_cast<int>(s))), s});
    std::sort(order.begin(), order.end());
    std::vector<bool> dropped(static_cast<size_t>(segments), false);
    size_t removed = 0;
    for (size_t k = 1; k < order.size(); ++k)
        if (order[k].key == order[k - 1].key) {
            dropped[order[k].segment] = true;
            ++removed;
        }
    return removed > 0 ? CompactSegments(*set, dropped) : 0;
}

}  // namespace ctr
