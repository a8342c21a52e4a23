// The general reader: every format assimp knows, through assimp.
#ifndef CONTOUR_ASSIMPIMPORT_H
#define CONTOUR_ASSIMPIMPORT_H

#include <string>

#include "ctr/drawing/ModelImport.h"

namespace contour::importer {

// Reads path into model, which must be empty, placing every mesh instance
// of the scene's node tree. facetNormalsOnly says the file's normals are
// per facet (STL) and are to be replaced like missing ones. Returns false
// with a one-line reason in error; model then holds no mesh.
bool importWithAssimp(const std::string& path, bool facetNormalsOnly, const ImportOptions& options,
                      ImportedModel& model, std::string& error);

}  // namespace contour::importer

#endif
