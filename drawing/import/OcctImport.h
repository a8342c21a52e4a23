// CAD files (STEP, IGES, OCCT BREP) through Open CASCADE.
#ifndef CONTOUR_OCCTIMPORT_H
#define CONTOUR_OCCTIMPORT_H

#include <cstddef>
#include <string>

#include "ctr/drawing/ModelImport.h"

namespace contour::importer {

// The format of a lower-case file extension (".step", ".stp", ".iges",
// ".igs", ".brep"), or null for any other.
const char* CadFormat(const std::string& extension);

// Reads, tessellates and hands over the CAD file path (a regular file of
// fileBytes bytes) in a child process (see Isolation.h). One mesh per solid,
// per free shell, and one for the remaining free faces; model.cad is set.
// Returns false with a one-line reason in error; model then holds no mesh.
bool importWithOcct(const std::string& path, const char* format, size_t fileBytes, const ImportOptions& options,
                    ImportedModel& model, std::string& error);

}  // namespace contour::importer

#endif
