// Lengths of model files. A mesh's coordinates are plain numbers; the unit
// says what one of them measures, so that a sheet's scale is true and files
// in different units line up.
#ifndef CTR_DRAWING_UNITS_H
#define CTR_DRAWING_UNITS_H

#include <string>

namespace contour {

enum class LengthUnit { kMicrometre, kMillimetre, kCentimetre, kMetre, kInch, kFoot };

// "um", "mm", "cm", "m", "in" or "ft".
const char* LengthUnitName(LengthUnit unit);
// The unit's name in words, plural ("millimetres"), for messages.
const char* LengthUnitWords(LengthUnit unit);
// Exact by definition (the inch is 25.4 mm).
double MillimetresPer(LengthUnit unit);
// A name as LengthUnitName gives it; false for anything else.
bool ParseLengthUnit(const std::string& name, LengthUnit& unit);

}  // namespace contour

#endif
