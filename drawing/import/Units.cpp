#include "ctr/drawing/Units.h"

namespace contour {

namespace {

struct tUnit {
    LengthUnit unit;
    const char* name;
    const char* words;
    double millimetres;
};
constexpr tUnit kUnits[] = {{LengthUnit::kMicrometre, "um", "micrometres", 0.001},
                            {LengthUnit::kMillimetre, "mm", "millimetres", 1.0},
                            {LengthUnit::kCentimetre, "cm", "centimetres", 10.0},
                            {LengthUnit::kMetre, "m", "metres", 1000.0},
                            {LengthUnit::kInch, "in", "inches", 25.4},
                            {LengthUnit::kFoot, "ft", "feet", 304.8}};

const tUnit& entry(LengthUnit unit) {
    for (const tUnit& u : kUnits)
        if (u.unit == unit) return u;
    return kUnits[1];
}

}  // namespace

const char* LengthUnitName(LengthUnit unit) { return entry(unit).name; }
const char* LengthUnitWords(LengthUnit unit) { return entry(unit).words; }
double MillimetresPer(LengthUnit unit) { return entry(unit).millimetres; }

bool ParseLengthUnit(const std::string& name, LengthUnit& unit) {
    for (const tUnit& u : kUnits)
        if (name == u.name) {
            unit = u.unit;
            return true;
        }
    return false;
}

}  // namespace contour
