// The unit a 3MF package states on its model. Assimp reads the meshes of a
// 3MF file but not the unit of their coordinates, so the package is opened a
// second time for the one attribute.
#ifndef CONTOUR_PACKAGEUNIT_H
#define CONTOUR_PACKAGEUNIT_H

#include <cstddef>
#include <optional>
#include <string>

#include "ctr/drawing/Units.h"

namespace contour::importer {

// The unit attribute of the model element in the package's model part
// (millimetres when the element has none). Nothing when the bytes are not a
// zip archive this reader follows, the part is missing, or the unit is not
// one of those the format names: the file may still be readable, only its
// unit is then unknown. Reads at most a bounded prefix of each part.
std::optional<LengthUnit> PackageModelUnit(const char* data, size_t size);

// One attribute of the first element named element in text: its value, or
// nothing when the element or the attribute is not there (exposed for the
// tests).
std::optional<std::string> ElementAttribute(const std::string& text, const std::string& element,
                                            const std::string& attribute);

}  // namespace contour::importer

#endif
