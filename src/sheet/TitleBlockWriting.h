// The "Sheet" layer of a drawing sheet: the frame and the title block, kept
// apart from the layers of lines.
#ifndef CTR_SHEET_TITLEBLOCKWRITING_H
#define CTR_SHEET_TITLEBLOCKWRITING_H

#include <ostream>
#include <string>

#include "Wm4Vector2.h"

#include "ctr/SheetLayout.h"

namespace ctr {

// Text safe inside an XML element or attribute: markup characters and
// quotes escaped, the control characters that XML forbids blanked.
std::string EscapeSheetText(const std::string& text);

// Writes the layer, as an Inkscape layer group, in the page's SVG coordinates
// (y down). The stream's number format is the caller's.
void WriteFrameLayer(std::ostream& out, const Wm4::Vector2<float>& pageSizeInMM, float marginMM,
                     const TitleBlock& block);

}  // namespace ctr

#endif
