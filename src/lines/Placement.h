// Carrying a line set's scene placement and look over to a set made from it.
#ifndef CTR_LINES_PLACEMENT_H
#define CTR_LINES_PLACEMENT_H

#include "ctr/LineSegmentSet.h"

namespace ctr {

// Transformations, colour and width of source, in the order the framework's
// dirty marking expects, then the model bound of target's own buffers.
inline void CopyPlacement(const LineSegmentSet& source, LineSegmentSet& target) {
    target.setDirtyDown(false);
    target.Local = source.Local;
    target.setDirtyDown(false);
    target.World = source.World;
    target.WorldIsCurrent = source.WorldIsCurrent;
    target.setColor(source.getColor());
    target.setWidth(source.getWidth());
    target.UpdateMS(true, false, -2);
}

}  // namespace ctr

#endif
