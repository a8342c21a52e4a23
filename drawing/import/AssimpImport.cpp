#include "AssimpImport.h"

#include <functional>
#include <vector>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include "Welding.h"

namespace contour::importer {

namespace {

// Assimp stores column-vector matrices (translation in the fourth column);
// the framework multiplies row vectors, so the matrix is transposed.
tRows toRows(const aiMatrix4x4& m) {
    return tRows(m.a1, m.b1, m.c1, m.d1, m.a2, m.b2, m.c2, m.d2, m.a3, m.b3, m.c3, m.d3, m.a4, m.b4, m.c4, m.d4);
}

// The mesh of an assimp scene in the readers' form. Faces other than
// triangles (points and lines that survived) are left out.
bool fromAssimp(const aiMesh& source, unsigned int meshIndex, tSourceMesh& mesh, std::string& error) {
    mesh.corners.reserve(3 * static_cast<size_t>(source.mNumFaces));
    for (unsigned int f = 0; f < source.mNumFaces; ++f) {
        const aiFace& face = source.mFaces[f];
        if (face.mNumIndices != 3) continue;
        for (unsigned int c = 0; c < 3; ++c) {
            if (face.mIndices[c] >= source.mNumVertices) {
                error = "face " + std::to_string(f) + " of mesh " + std::to_string(meshIndex) +
                        " refers to a vertex that does not exist";
                return false;
            }
            mesh.corners.push_back(face.mIndices[c]);
        }
    }
    if (mesh.corners.empty()) return true;
    mesh.positions.resize(source.mNumVertices);
    for (unsigned int v = 0; v < source.mNumVertices; ++v)
        mesh.positions[v] = tVec3{source.mVertices[v].x, source.mVertices[v].y, source.mVertices[v].z};
    if (source.HasNormals()) {
        mesh.normals.resize(source.mNumVertices);
        for (unsigned int v = 0; v < source.mNumVertices; ++v)
            mesh.normals[v] = tVec3{source.mNormals[v].x, source.mNormals[v].y, source.mNormals[v].z};
    }
    return true;
}

}  // namespace

bool importWithAssimp(const std::string& path, bool facetNormalsOnly, const ImportOptions& options,
                      ImportedModel& model, std::string& error) {
    Assimp::Importer importer;
    // Points and lines are removed. Assimp's own vertex joining is not used:
    // it welds within a tolerance, and the library matches positions exactly.
    importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
    const aiScene* scene =
        importer.ReadFile(path, aiProcess_Triangulate | aiProcess_SortByPType | aiProcess_ValidateDataStructure);
    if (!scene || !scene->mRootNode) {
        const std::string reason = importer.GetErrorString();
        error = "cannot read '" + path + "': " + (reason.empty() ? "unknown format" : reason);
        return false;
    }

    std::vector<tBuffers> buffers(scene->mNumMeshes);
    for (unsigned int m = 0; m < scene->mNumMeshes; ++m) {
        tSourceMesh mesh;
        if (!fromAssimp(*scene->mMeshes[m], m, mesh, error) ||
            !convertMesh(mesh, m, options, facetNormalsOnly, buffers[m], error)) {
            error = "cannot read '" + path + "': " + error;
            return false;
        }
        if (buffers[m].vertices) tally(model, buffers[m]);
    }

    bool allNormals = true;
    const std::function<void(const aiNode&, const aiMatrix4x4&)> place = [&](const aiNode& node,
                                                                             const aiMatrix4x4& parent) {
        const aiMatrix4x4 global = parent * node.mTransformation;
        for (unsigned int k = 0; k < node.mNumMeshes; ++k) {
            const unsigned int m = node.mMeshes[k];
            if (m >= buffers.size() || !buffers[m].indices) continue;
            allNormals = allNormals && buffers[m].vertices->GetAttributes().HasNormal();
            const std::string name = scene->mMeshes[m]->mName.C_Str();
            placeMesh(model, buffers[m], toRows(global), name.empty() ? node.mName.C_Str() : name);
        }
        for (unsigned int c = 0; c < node.mNumChildren; ++c) place(*node.mChildren[c], global);
    };
    place(*scene->mRootNode, aiMatrix4x4());

    if (model.meshes.empty()) {
        error = "'" + path + "' holds no triangle";
        model = ImportedModel();
        return false;
    }
    model.hasNormals = allNormals;
    return true;
}

}  // namespace contour::importer
