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

#include "ctr/Executor.h"

#include "ctr/drawing/Units.h"

namespace contour {

// The kind of surface that carries a face of a CAD part.
enum class SurfaceKind { kPlane, kCylinder, kCone, kSphere, kTorus, kOther };
// "plane", "cylinder", "cone", "sphere", "torus" or "other".
const char* SurfaceKindName(SurfaceKind kind);

// One face of a CAD part as its surface defines it, in the coordinates of
// the meshes (placement applied, before any scaling to the drawing's unit).
// The axis is the surface's own: the plane's normal, the cylinder's, cone's
// or torus's axis, the sphere's polar axis. Later steps (dimensions, centre
// lines) read these instead of fitting them back from triangles.
struct AnalyticFace {
    size_t mesh = 0;              // index into ImportedModel::meshes
    size_t firstTriangle = 0;     // the face's triangles in the mesh's index buffer
    size_t triangleCount = 0;
    SurfaceKind kind = SurfaceKind::kOther;
    double location[3] = {0, 0, 0};
    double direction[3] = {0, 0, 1};
    double radius = 0.0;       // cylinder, sphere, torus (major); cone: at the location
    double minorRadius = 0.0;  // torus
    double semiAngle = 0.0;    // cone, radians
    double uv[4] = {0, 0, 0, 0};  // the face's parameter bounds: uMin, uMax, vMin, vMax
    double boxMin[3] = {0, 0, 0}, boxMax[3] = {0, 0, 0};  // of its tessellation
    bool reversed = false;  // the material lies on the surface's positive side
};

// What a CAD file (STEP, IGES, BREP) brings beyond triangles. Its true
// edges travel on each mesh as outline metadata: the edges where faces meet
// at an angle, and the free edges of open face sets. The edges where faces
// meet tangentially (a fillet's rims) are kept here instead, per mesh, as a
// line index buffer over the same vertices, for a style that shows them.
struct CadPart {
    std::string format;    // "STEP", "IGES" or "BREP"
    std::string fileUnit;  // the length unit the file states, as it names it; empty for BREP
    double chordTolerance = 0.0;  // the tessellation's, in the meshes' coordinates
    std::vector<AnalyticFace> faces;
    std::vector<qe::qePointer<qe::qeIndexBuffer>> tangentEdges;  // per mesh; may be null
    size_t sharpEdges = 0, tangentEdgeCount = 0, seamEdges = 0;
    // What the reader could not use, one line each ("read 3 of 4 roots; 1 failed").
    std::vector<std::string> warnings;
};

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
    // Set for CAD files: their faces, tangent edges and file unit.
    std::optional<CadPart> cad;

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
    // CAD files (STEP, IGES, BREP): the largest distance between a curve or
    // surface and its tessellation, in the part's coordinates (millimetres
    // for STEP and IGES). Zero or less: a thousandth of the part's
    // bounding-box diagonal.
    double chordTolerance = 0.0;
    // Threads for the work that splits (normals made per smooth fan); none
    // runs it on the calling thread. The model is the same either way.
    ctr::Executor* executor = nullptr;
};

// Loads every triangle of the file (polygons are split into fans, points and
// lines are dropped). Vertices that agree bit for bit in position and normal
// are shared, whether or not the format stored them once; no tolerance is
// applied anywhere. Returns
// false with a one-line reason in error when the file cannot be read, holds
// no triangle, or has a non-finite coordinate; model is then left empty.
// Binary STL, PLY and OBJ files in their common forms are read by built-in
// readers, everything else by assimp; both give the same result bit for bit.
// STEP (.step, .stp), IGES (.iges, .igs) and BREP files are read and
// tessellated with Open CASCADE when the build has it: each face keeps its
// own vertices and the surface's normals, and each mesh (one per solid, or
// per set of free faces) carries its true edges as outline metadata.
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
