#include "ModelImport.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <unordered_map>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

namespace contour {

namespace {

// Assimp stores column-vector matrices (translation in the fourth column);
// the framework multiplies row vectors, so the matrix is transposed.
qe::qeGenericTransformation<float> toTransformation(const aiMatrix4x4& m) {
    const Wm4::Matrix4<float> rows(m.a1, m.b1, m.c1, m.d1, m.a2, m.b2, m.c2, m.d2, m.a3, m.b3, m.c3, m.d3, m.a4, m.b4,
                                   m.c4, m.d4);
    return qe::qeGenericTransformation<float>(rows);
}

struct tBuffers {
    qe::qePointer<qe::qeVertexBuffer> vertices;
    qe::qePointer<qe::qeIndexBuffer> indices;
};

// Bit pattern of a corner: position and normal. Corners are joined only
// when all six floats are bit-identical, so no tolerance moves a vertex.
struct tCornerKey {
    uint32_t bits[6];
    bool operator==(const tCornerKey& other) const { return std::memcmp(bits, other.bits, sizeof bits) == 0; }
};

struct tCornerKeyHash {
    size_t operator()(const tCornerKey& key) const {
        uint64_t hash = 1469598103934665603ull;
        for (const uint32_t word : key.bits) hash = (hash ^ word) * 1099511628211ull;
        return static_cast<size_t>(hash);
    }
};

tCornerKey cornerKey(const aiMesh& source, unsigned int vertex) {
    tCornerKey key{};
    std::memcpy(key.bits, &source.mVertices[vertex], 3 * sizeof(float));
    if (source.HasNormals()) std::memcpy(key.bits + 3, &source.mNormals[vertex], 3 * sizeof(float));
    return key;
}

// Some formats (OBJ with its separate position and normal indices, STL)
// arrive with one vertex per triangle corner. Corners that agree bit for bit
// in position and normal are joined again, which gives back the sharing the
// model had and a third of the memory; split normals along creases stay
// split. Vertices no triangle uses are dropped.
bool convertMesh(const aiMesh& source, unsigned int meshIndex, tBuffers& buffers, std::string& error) {
    const auto where = [meshIndex](const char* what, unsigned int index) {
        return std::string(what) + " " + std::to_string(index) + " of mesh " + std::to_string(meshIndex);
    };
    std::vector<unsigned int> corners;
    corners.reserve(3 * static_cast<size_t>(source.mNumFaces));
    for (unsigned int f = 0; f < source.mNumFaces; ++f) {
        const aiFace& face = source.mFaces[f];
        if (face.mNumIndices != 3) continue;
        for (unsigned int c = 0; c < 3; ++c) {
            if (face.mIndices[c] >= source.mNumVertices) {
                error = where("face", f) + " refers to a vertex that does not exist";
                return false;
            }
            corners.push_back(face.mIndices[c]);
        }
    }
    if (corners.empty()) return true;

    constexpr unsigned int kUnseen = 0xFFFFFFFFu;
    std::vector<unsigned int> remap(source.mNumVertices, kUnseen);
    std::vector<unsigned int> kept;
    std::unordered_map<tCornerKey, unsigned int, tCornerKeyHash> joined;
    for (unsigned int& corner : corners) {
        unsigned int& mapped = remap[corner];
        if (mapped == kUnseen) {
            const aiVector3D& p = source.mVertices[corner];
            if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
                error = where("vertex", corner) + " has a coordinate that is not a finite number";
                return false;
            }
            const auto inserted = joined.emplace(cornerKey(source, corner), static_cast<unsigned int>(kept.size()));
            if (inserted.second) kept.push_back(corner);
            mapped = inserted.first->second;
        }
        corner = mapped;
    }

    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    if (source.HasNormals()) attributes.SetNormalChannels(3);
    buffers.vertices = new qe::qeVertexBuffer(attributes, static_cast<int>(kept.size()));
    for (size_t i = 0; i < kept.size(); ++i) {
        const aiVector3D& p = source.mVertices[kept[i]];
        buffers.vertices->Position3(static_cast<int>(i)) = Wm4::Vector3<float>(p.x, p.y, p.z);
        if (source.HasNormals()) {
            const aiVector3D& n = source.mNormals[kept[i]];
            buffers.vertices->Normal3(static_cast<int>(i)) = Wm4::Vector3<float>(n.x, n.y, n.z);
        }
    }
    buffers.indices = new qe::qeIndexBuffer(static_cast<int>(corners.size()), qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    std::copy(corners.begin(), corners.end(), buffers.indices->GetData());
    return true;
}

}  // namespace

std::vector<const qe::qeTriMesh*> ImportedModel::meshList() const {
    std::vector<const qe::qeTriMesh*> list;
    list.reserve(meshes.size());
    for (const qe::qePointer<qe::qeTriMesh>& mesh : meshes) list.push_back(mesh);
    return list;
}

bool ImportModel(const std::string& path, ImportedModel& model, std::string& error) {
    model = ImportedModel();
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
        if (!convertMesh(*scene->mMeshes[m], m, buffers[m], error)) {
            error = "cannot read '" + path + "': " + error;
            return false;
        }
        if (buffers[m].vertices) model.vertexCount += static_cast<size_t>(buffers[m].vertices->GetVertexQuantity());
    }

    bool allNormals = true;
    const std::function<void(const aiNode&, const aiMatrix4x4&)> place = [&](const aiNode& node,
                                                                             const aiMatrix4x4& parent) {
        const aiMatrix4x4 global = parent * node.mTransformation;
        for (unsigned int k = 0; k < node.mNumMeshes; ++k) {
            const unsigned int m = node.mMeshes[k];
            if (m >= buffers.size() || !buffers[m].indices) continue;
            qe::qePointer<qe::qeTriMesh> mesh = new qe::qeTriMesh(buffers[m].vertices, buffers[m].indices);
            mesh->Local = toTransformation(global);
            mesh->World = mesh->Local;
            mesh->WorldIsCurrent = true;
            mesh->UpdateMS(true, false, 0);
            mesh->UpdateGS();
            allNormals = allNormals && buffers[m].vertices->GetAttributes().HasNormal();
            model.triangleCount += static_cast<size_t>(mesh->GetTriangleQuantity());
            model.meshes.push_back(mesh);
            const std::string name = scene->mMeshes[m]->mName.C_Str();
            model.names.push_back(name.empty() ? node.mName.C_Str() : name);
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

}  // namespace contour
