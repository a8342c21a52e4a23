// The visible and hidden pieces of one intersection edge, as parameter
// ranges between the grid points of its two ends.
#ifndef CTR_VISIBILITY_INTERSECTIONPIECES_H
#define CTR_VISIBILITY_INTERSECTIONPIECES_H

#include <vector>

#include "ctr/RationalInterval.h"
#include "exact/Exact.h"

namespace ctr {

// Calls visit(hidden, from, to) for every piece of [0, 1], in order, given
// the edge's merged hidden intervals (sorted, with positive gaps; the
// occlusion of intersection edges only narrows [0, 1], so interval ends lie
// inside it). The visible pieces are the gaps, plus the stretches before the
// first and after the last interval when they have positive length; the
// hidden pieces are the intervals themselves, asked for with withHidden.
template <typename Visit>
void ForEachIntersectionPiece(const std::vector<RationalInterval>& merged, bool withHidden, Visit&& visit) {
    exact::Fraction visibleFrom{0, 1};
    for (const RationalInterval& interval : merged) {
        const exact::Fraction hiddenFrom{interval.startNumerator, interval.startDenominator};
        if (exact::Less(visibleFrom, hiddenFrom)) visit(false, visibleFrom, hiddenFrom);
        visibleFrom = exact::Fraction{interval.endNumerator, interval.endDenominator};
        if (withHidden) visit(true, hiddenFrom, visibleFrom);
    }
    if (exact::Less(visibleFrom, exact::Fraction{1, 1})) visit(false, visibleFrom, exact::Fraction{1, 1});
}

}  // namespace ctr

#endif
