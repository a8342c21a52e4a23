// Meshes that a host hands over as arrays take the readers' way into the
// model, so that a mesh drawn from memory is drawn as the same file would be.
#include <cmath>
#include <new>
#include <stdexcept>

#include "ctr/drawing/ModelImport.h"
#include "Welding.h"

namespace contour {

bool CheckMeshArrays(const MeshArrays& arrays, std::string& error) {
    if (arrays.triangleCount == 0) {
        error = "the mesh has no triangle";
        return false;
    }
    for (size_t i = 0; i < 3 * arrays.triangleCount; ++i)
        if (arrays.corners[i] >= arrays.vertexCount) {
            error = "triangle " + std::to_string(i / 3) + " names vertex " + std::to_string(arrays.corners[i]) +
                    " of " + std::to_string(arrays.vertexCount);
            return false;
        }
    const auto finite = [](const float* p, size_t count, const char* what, std::string& reason) {
        for (size_t i = 0; i < 3 * count; ++i)
            if (!std::isfinite(p[i])) {
                reason = std::string(what) + " " + std::to_string(i / 3) + " has a coordinate that is not a finite number";
                return false;
            }
        return true;
    };
    return finite(arrays.positions, arrays.vertexCount, "vertex", error) &&
           (!arrays.normals ||
            finite(arrays.normals, arrays.normalsPerCorner ? 3 * arrays.triangleCount : arrays.vertexCount, "normal",
                   error));
}

bool AddMeshArrays(const MeshArrays& arrays, const std::string& name, ImportedModel& model, std::string& error,
                   const ImportOptions& options) {
    using importer::tVec3;
    if (!CheckMeshArrays(arrays, error)) return false;

    importer::tSourceMesh source;
    source.name = name;
    const auto vec = [](const float* p) { return tVec3{p[0], p[1], p[2]}; };
    if (arrays.normals && arrays.normalsPerCorner) {
        // One vertex per corner, as OBJ's separate normal indices arrive;
        // the welding joins the corners that agree in both.
        const size_t corners = 3 * arrays.triangleCount;
        source.positions.resize(corners);
        source.normals.resize(corners);
        source.corners.resize(corners);
        for (size_t c = 0; c < corners; ++c) {
            source.positions[c] = vec(arrays.positions + 3 * size_t(arrays.corners[c]));
            source.normals[c] = vec(arrays.normals + 3 * c);
            source.corners[c] = static_cast<unsigned int>(c);
        }
    } else {
        source.positions.resize(arrays.vertexCount);
        for (size_t v = 0; v < arrays.vertexCount; ++v) source.positions[v] = vec(arrays.positions + 3 * v);
        if (arrays.normals) {
            source.normals.resize(arrays.vertexCount);
            for (size_t v = 0; v < arrays.vertexCount; ++v) source.normals[v] = vec(arrays.normals + 3 * v);
        }
        source.corners.resize(3 * arrays.triangleCount);
        for (size_t c = 0; c < 3 * arrays.triangleCount; ++c) source.corners[c] = arrays.corners[c];
    }

    importer::tBuffers buffers;
    if (!importer::convertMesh(source, static_cast<unsigned int>(model.meshes.size()), options, false, buffers, error))
        return false;
    const bool first = model.meshes.empty();
    importer::tally(model, buffers);
    const importer::tRows identity(1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f,
                                   0.0f, 1.0f);
    importer::placeMesh(model, buffers, identity, name);
    const bool normals = buffers.vertices->GetAttributes().HasNormal();
    model.hasNormals = first ? normals : model.hasNormals && normals;
    return true;
}

}  // namespace contour
