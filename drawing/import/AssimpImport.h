// The general reader: every format assimp knows, through assimp.
#ifndef CONTOUR_ASSIMPIMPORT_H
#define CONTOUR_ASSIMPIMPORT_H

#include <cstddef>
#include <string>

#include "ctr/drawing/ModelImport.h"

namespace contour::importer {

// Reads path, a regular file of fileBytes bytes, into model, which must be
// empty, placing every mesh instance of the scene's node tree. Assimp runs
// in a child process (see Isolation.h). facetNormalsOnly says the file's
// normals are per facet (STL) and are to be replaced like missing ones.
// Returns false with a one-line reason in error; model then holds no mesh.
bool importWithAssimp(const std::string& path, size_t fileBytes, bool facetNormalsOnly, const ImportOptions& options,
                      ImportedModel& model, std::string& error);

}  // namespace contour::importer

#endif
