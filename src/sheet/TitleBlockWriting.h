// The "Sheet" layer of a drawing sheet: the frame and the title block, kept
// apart from the layers of lines.
#ifndef CTR_SHEET_TITLEBLOCKWRITING_H
#define CTR_SHEET_TITLEBLOCKWRITING_H

#include <ostream>

#include "Wm4Vector2.h"

#include "ctr/SheetLayout.h"

namespace ctr {

// Writes the layer, as an Inkscape layer group, in the page's SVG coordinates
// (y down). The stream's number format is the caller's.
void WriteFrameLayer(std::ostream& out, const Wm4::Vector2<float>& pageSizeInMM, float marginMM,
                     const TitleBlock& block);

}  // namespace ctr

#endif
