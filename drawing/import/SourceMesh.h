// The mesh record that every reader hands over, the built-in readers and the
// assimp adapter alike, before its corners are joined into framework
// buffers.
#ifndef CONTOUR_SOURCEMESH_H
#define CONTOUR_SOURCEMESH_H

#include <string>

#include "ScratchArray.h"

namespace contour::importer {

struct tVec3 {
    float x, y, z;
};

// A mesh as a reader hands it over: vertex arrays, three corners per
// triangle, and the mesh's name.
struct tSourceMesh {
    ScratchArray<tVec3> positions;
    ScratchArray<tVec3> normals;  // empty, or one per position
    ScratchArray<unsigned int> corners;
    std::string name;
};

}  // namespace contour::importer

#endif
