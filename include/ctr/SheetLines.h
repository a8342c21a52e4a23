// The hidden pieces of feature lines, the fourth kind of line a drawing sheet
// can show besides the visible creases, silhouettes and intersections.
#ifndef CTR_SHEETLINES_H
#define CTR_SHEETLINES_H

#include "ctr/Export.h"
#include "ctr/LineSegmentSet.h"

namespace ctr {

// The hidden pieces of the segments of a set whose occlusion has been
// computed: every hidden interval of a segment inside the part in view, as a
// segment of its own with two vertices of its own, in segment order and along
// each segment. The cuts are made exactly as BakeVisibleSegments makes them,
// so a hidden piece and the visible piece next to it end on bit-identical
// points, and the visible and hidden pieces of a segment together cover its
// part in view. Segments out of view give nothing. The result keeps the
// source's placement, colour and width and carries no occlusion data; null
// when nothing is hidden in view, or when the source has no occlusion data.
CTR_API LineSegmentSet* BakeHiddenSegments(const LineSegmentSet* source);

}  // namespace ctr

#endif
