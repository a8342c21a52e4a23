// The assimp reader module, and the only code that sees assimp. It runs in
// the importer's child process and hands back plain arrays (see
// AssimpScene.h).
#include <cstring>
#include <functional>
#include <stdexcept>

#include <assimp/Importer.hpp>
#include <assimp/commonMetaData.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include "AssimpScene.h"

namespace contour::importer {

namespace {

// Assimp stores column-vector matrices (translation in the fourth column);
// the framework multiplies row vectors, so the matrix is transposed.
void toRows(const aiMatrix4x4& m, float (&rows)[16]) {
    const float values[16] = {m.a1, m.b1, m.c1, m.d1, m.a2, m.b2, m.c2, m.d2,
                              m.a3, m.b3, m.c3, m.d3, m.a4, m.b4, m.c4, m.d4};
    std::memcpy(rows, values, sizeof rows);
}

// The mesh of an assimp scene in the readers' form. Faces other than
// triangles (points and lines that survived) are left out.
void fromAssimp(const aiMesh& source, unsigned int meshIndex, tSourceMesh& mesh) {
    mesh.corners.reserve(3 * static_cast<size_t>(source.mNumFaces));
    for (unsigned int f = 0; f < source.mNumFaces; ++f) {
        const aiFace& face = source.mFaces[f];
        if (face.mNumIndices != 3) continue;
        for (unsigned int c = 0; c < 3; ++c) {
            if (face.mIndices[c] >= source.mNumVertices)
                throw std::runtime_error("face " + std::to_string(f) + " of mesh " + std::to_string(meshIndex) +
                                         " refers to a vertex that does not exist");
            mesh.corners.push_back(face.mIndices[c]);
        }
    }
    if (mesh.corners.empty()) return;
    mesh.positions.resize(source.mNumVertices);
    for (unsigned int v = 0; v < source.mNumVertices; ++v)
        mesh.positions[v] = tVec3{source.mVertices[v].x, source.mVertices[v].y, source.mVertices[v].z};
    if (source.HasNormals()) {
        mesh.normals.resize(source.mNumVertices);
        for (unsigned int v = 0; v < source.mNumVertices; ++v)
            mesh.normals[v] = tVec3{source.mNormals[v].x, source.mNormals[v].y, source.mNormals[v].z};
    }
}

tScene readScene(const std::string& path) {
    Assimp::Importer importer;
    // Points and lines are removed. Assimp's own vertex joining is not used:
    // it welds within a tolerance, and the library matches positions exactly.
    importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
    const aiScene* const scene =
        importer.ReadFile(path, aiProcess_Triangulate | aiProcess_SortByPType | aiProcess_ValidateDataStructure);
    if (!scene || !scene->mRootNode) {
        const std::string reason = importer.GetErrorString();
        throw std::runtime_error(reason.empty() ? "unknown format" : reason);
    }
    tScene result;
    aiString format;
    if (scene->mMetaData && scene->mMetaData->Get(AI_METADATA_SOURCE_FORMAT, format)) result.format = format.C_Str();
    result.meshes.resize(scene->mNumMeshes);
    for (unsigned int m = 0; m < scene->mNumMeshes; ++m) {
        fromAssimp(*scene->mMeshes[m], m, result.meshes[m]);
        result.meshes[m].name = scene->mMeshes[m]->mName.C_Str();
    }
    const std::function<void(const aiNode&, const aiMatrix4x4&)> place = [&](const aiNode& node,
                                                                             const aiMatrix4x4& parent) {
        const aiMatrix4x4 global = parent * node.mTransformation;
        for (unsigned int k = 0; k < node.mNumMeshes; ++k) {
            const unsigned int m = node.mMeshes[k];
            if (m >= result.meshes.size() || result.meshes[m].corners.empty()) continue;
            tInstance instance{m, {}, result.meshes[m].name.empty() ? node.mName.C_Str() : result.meshes[m].name};
            toRows(global, instance.rows);
            result.instances.push_back(std::move(instance));
        }
        for (unsigned int c = 0; c < node.mNumChildren; ++c) place(*node.mChildren[c], global);
    };
    place(*scene->mRootNode, aiMatrix4x4());
    return result;
}

}  // namespace

}  // namespace contour::importer

extern "C" __attribute__((visibility("default"))) bool contourReadAssimpFile(const char* path, std::string* encoded,
                                                                             std::string* error) {
    try {
        *encoded = contour::importer::EncodeAssimpScene(contour::importer::readScene(path));
        return true;
    } catch (const std::exception& failure) {
        *error = failure.what();
    }
    return false;
}
