// Reads a model file into framework triangle meshes. Shared by the
// command-line tool, the tests and the benchmarks; the library itself never
// reads files.
#ifndef CTR_DRAWING_MODELIMPORT_H
#define CTR_DRAWING_MODELIMPORT_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "qe/qePointer.h"
#include "qe/qeTriMesh.h"

#include "ctr/drawing/Units.h"

namespace contour {

struct ImportedModel {
    // One mesh per placed instance of a file mesh: instances share their
    // vertex and index buffers and differ in their world transformation.
    std::vector<qe::qePointer<qe::qeTriMesh>> meshes;
    std::vector<std::string> names;
    size_t triangleCount = 0;
    size_t vertexCount = 0;         // distinct buffers counted once
    bool hasNormals = false;        // every mesh carries per-vertex normals
    bool normalsGenerated = false;  // some mesh got them from its faces
    double normalSeconds = 0.0;     // the time making them took
    // The unit of the coordinates, when the format defines one (glTF,
    // Collada as assimp hands it on: metres) or the file states it (3MF).
    std::optional<LengthUnit> statedUnit;

    // The mesh pointers in the form the generator takes.
    std::vector<const qe::qeTriMesh*> meshList() const;
};

struct ImportOptions {
    // Meshes that the file gives without per-vertex normals (or, in STL, with
    // facet normals only) get normals made from their faces, per smooth fan:
    // around each exact position, faces that share an edge there and turn by
    // at most smoothingAngleDegrees are joined (transitively), and every
    // corner of such a fan gets the fan's area-weighted mean normal. An edge
    // whose faces meet at more than the angle thus splits its vertices and
    // shows as a crease, and a smooth edge never does; a lone sharp edge whose
    // two ends have no other sharp edge stays smooth, since the fan wraps
    // round it. A corner of a face without area joins the fan of one
    // neighbouring face (or, without any, takes the mean of its position).
    bool generateNormals = true;
    float smoothingAngleDegrees = 30.0f;
    // Reads every format with assimp, bypassing the built-in readers of
    // binary STL, PLY and OBJ (which give the same result faster); the tests
    // compare the two.
    bool generalReaderOnly = false;
};

// Loads every triangle of the file (polygons are split into fans, points and
// lines are dropped). Vertices that agree bit for bit in position and normal
// are shared, whether or not the format stored them once; no tolerance is
// applied anywhere. Returns
// false with a one-line reason in error when the file cannot be read, holds
// no triangle, or has a non-finite coordinate; model is then left empty.
// Binary STL, PLY and OBJ files in their common forms are read by built-in
// readers, everything else by assimp; both give the same result bit for bit.
bool ImportModel(const std::string& path, ImportedModel& model, std::string& error,
                 const ImportOptions& options = ImportOptions());

// A mesh that a host holds in memory: 3 floats per vertex, 3 vertex numbers
// per triangle, and optionally normals, 3 floats per vertex or 9 per
// triangle (one normal per corner).
struct MeshArrays {
    const float* positions = nullptr;
    size_t vertexCount = 0;
    const unsigned int* corners = nullptr;
    size_t triangleCount = 0;
    const float* normals = nullptr;
    bool normalsPerCorner = false;
};

// The checks of AddMeshArrays alone, which a host may run before it hands
// the arrays on: false with a one-line reason.
bool CheckMeshArrays(const MeshArrays& arrays, std::string& error);

// Appends the mesh to model exactly as a file holding the same floats would
// be read: vertices welded bit for bit, normals made per smooth fan when it
// has none. False with a one-line reason for a vertex number out of range, a
// coordinate that is not finite or a mesh without triangles.
bool AddMeshArrays(const MeshArrays& arrays, const std::string& name, ImportedModel& model, std::string& error,
                   const ImportOptions& options = ImportOptions());

}  // namespace contour

#endif
