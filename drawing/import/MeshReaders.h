// Built-in readers for the common formats. Assimp reads everything, but its
// fixed cost per file and its per-corner containers dominate the import of
// small and of very large models. Each reader below accepts only what it can
// give exactly as assimp would (same floats, same meshes, same names, same
// order) and declines anything else, which then goes to assimp: unusual
// syntax, polygons, bad indices and broken files alike, so errors read the
// same.
#ifndef CONTOUR_MESHREADERS_H
#define CONTOUR_MESHREADERS_H

#include <string>
#include <vector>

#include "MappedFile.h"
#include "SourceMesh.h"

namespace contour::importer {

// Each appends the file's meshes to meshes and returns true, or returns
// false when it declines the file; whatever it appended is then dropped.
// The text readers also set refusal (when given) where the file spells a
// number in a way assimp would read silently wrong (hex floats, trailing
// letters, integer parts past 64 bits): no reader may then take the file.
// The meshes copy what they need, so the file may go before they are
// converted.
bool readBinaryStl(const tMappedFile& data, std::vector<tSourceMesh>& meshes);
bool readPly(const tMappedFile& data, std::vector<tSourceMesh>& meshes, std::string* refusal = nullptr);
bool readObj(const tMappedFile& data, std::vector<tSourceMesh>& meshes, std::string* refusal = nullptr);

// Sets refusal when the token [begin, end) of data is a number spelling that
// assimp misreads; see above.
void refuseMisreadNumber(const tMappedFile& data, const char* begin, const char* end, std::string* refusal);

}  // namespace contour::importer

#endif
