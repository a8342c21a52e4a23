#include "visibility/IntervalMerge.h"

#include <algorithm>

#include "exact/Exact.h"

namespace ctr {

namespace {

using exact::UnsignedCrossLess;

bool StartsBefore(const RationalInterval& p, const RationalInterval& q) {
    return UnsignedCrossLess(p.startNumerator, p.startDenominator, q.startNumerator, q.startDenominator);
}

// Below this length a guarded insertion sort beats the allocation of a
// merge sort's buffer; most segments collect a handful of intervals.
constexpr size_t kInsertionSortLimit = 32;

}  // namespace

void SortAndMergeIntervals(std::vector<RationalInterval>& list) {
    if (list.empty()) return;
    // Negative starts come first whatever follows. Among themselves they are
    // all "before" each other, which no sort can honour, so they keep their
    // order; the comparison sort then only sees non-negative starts.
    auto negative = [](const RationalInterval& r) { return r.startNumerator < 0; };
    auto positive = list.begin();
    if (std::any_of(list.begin(), list.end(), negative))
        positive = std::stable_partition(list.begin(), list.end(), negative);
    if (list.end() - positive <= static_cast<std::ptrdiff_t>(kInsertionSortLimit)) {
        for (auto i = positive; i != list.end(); ++i) {
            const RationalInterval value = *i;
            auto j = i;
            for (; j != positive && StartsBefore(value, *(j - 1)); --j) *j = *(j - 1);
            *j = value;
        }
    } else {
        // Stable merge sort: its loops are bounded by counts, so even a host
        // list with meaningless denominators cannot lead it astray.
        std::stable_sort(positive, list.end(), StartsBefore);
    }

    size_t emitted = 0;
    RationalInterval current = list[0];
    for (size_t i = 1; i < list.size(); ++i) {
        const RationalInterval& next = list[i];
        if (next.startNumerator >= 0 && UnsignedCrossLess(current.endNumerator, current.endDenominator,
                                                          next.startNumerator, next.startDenominator)) {
            list[emitted++] = current;
            current = next;
        } else if (next.endNumerator >= 0 && UnsignedCrossLess(current.endNumerator, current.endDenominator,
                                                               next.endNumerator, next.endDenominator)) {
            current.endNumerator = next.endNumerator;
            current.endDenominator = next.endDenominator;
        }
    }
    list[emitted++] = current;
    list.resize(emitted);
}

}  // namespace ctr
