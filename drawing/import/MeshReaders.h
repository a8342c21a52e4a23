// Built-in readers for the common formats. Assimp reads everything, but its
// fixed cost per file and its per-corner containers dominate the import of
// small and of very large models. Each reader below accepts only what it can
// give exactly as assimp would (same floats, same meshes, same names, same
// order) and declines anything else, which then goes to assimp: unusual
// syntax, polygons, bad indices and broken files alike, so errors read the
// same.
#ifndef CONTOUR_MESHREADERS_H
#define CONTOUR_MESHREADERS_H

#include <vector>

#include "MappedFile.h"
#include "SourceMesh.h"

namespace contour::importer {

// Each appends the file's meshes to meshes and returns true, or returns
// false when it declines the file; whatever it appended is then dropped.
// The meshes copy what they need, so the file may go before they are
// converted.
bool readBinaryStl(const tMappedFile& data, std::vector<tSourceMesh>& meshes);
bool readPly(const tMappedFile& data, std::vector<tSourceMesh>& meshes);
bool readObj(const tMappedFile& data, std::vector<tSourceMesh>& meshes);

}  // namespace contour::importer

#endif
