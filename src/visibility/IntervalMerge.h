// Sorting and merging of the hidden intervals of one segment.
#ifndef CTR_VISIBILITY_INTERVALMERGE_H
#define CTR_VISIBILITY_INTERVALMERGE_H

#include <vector>

#include "ctr/RationalInterval.h"

namespace ctr {

// Sorts list by start and merges overlapping and touching intervals in place,
// leaving sorted intervals with strictly positive gaps. Fractions are compared
// by exact cross products; an interval whose start numerator is negative sorts
// first and is absorbed by the interval it follows.
void SortAndMergeIntervals(std::vector<RationalInterval>& list);

}  // namespace ctr

#endif
