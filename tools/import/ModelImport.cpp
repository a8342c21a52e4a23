#include "ModelImport.h"

#include <algorithm>
#include <cctype>
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

tCornerKey positionKey(const aiVector3D& position) {
    tCornerKey key{};
    std::memcpy(key.bits, &position, 3 * sizeof(float));
    return key;
}

using Vector3d = Wm4::Vector3<double>;

Vector3d toDouble(const aiVector3D& v) { return Vector3d(v.x, v.y, v.z); }

bool lexicographicLess(const Vector3d& p, const Vector3d& q) {
    if (p[0] != q[0]) return p[0] < q[0];
    if (p[1] != q[1]) return p[1] < q[1];
    return p[2] < q[2];
}

// Normals for the corners of a mesh stored without them. Corners meet where
// their positions are bit-identical; each corner averages the area-weighted
// normals of the faces meeting there whose directions lie within the angle
// of its own face's. A degenerate face has no direction and averages all.
std::vector<Wm4::Vector3<float>> makeCornerNormals(const aiMesh& source, const std::vector<unsigned int>& corners,
                                                   float angleDegrees) {
    const size_t faceCount = corners.size() / 3;
    std::vector<Vector3d> weighted(faceCount);
    std::vector<Vector3d> direction(faceCount);
    for (size_t f = 0; f < faceCount; ++f) {
        const Vector3d p0 = toDouble(source.mVertices[corners[3 * f]]);
        const Vector3d p1 = toDouble(source.mVertices[corners[3 * f + 1]]);
        const Vector3d p2 = toDouble(source.mVertices[corners[3 * f + 2]]);
        weighted[f] = (p1 - p0).Cross(p2 - p0);
        const double length = weighted[f].Length();
        direction[f] = length > 0.0 ? weighted[f] / length : Vector3d(0.0, 0.0, 0.0);
    }

    // Corners bucketed by position.
    std::unordered_map<tCornerKey, unsigned int, tCornerKeyHash> groupOf;
    std::vector<unsigned int> cornerGroup(corners.size());
    for (size_t c = 0; c < corners.size(); ++c)
        cornerGroup[c] =
            groupOf.emplace(positionKey(source.mVertices[corners[c]]), static_cast<unsigned int>(groupOf.size()))
                .first->second;
    std::vector<size_t> groupStart(groupOf.size() + 1, 0);
    for (const unsigned int group : cornerGroup) ++groupStart[group + 1];
    for (size_t g = 0; g < groupOf.size(); ++g) groupStart[g + 1] += groupStart[g];
    std::vector<size_t> grouped(corners.size());
    {
        std::vector<size_t> next(groupStart.begin(), groupStart.end() - 1);
        for (size_t c = 0; c < corners.size(); ++c) grouped[next[cornerGroup[c]]++] = c;
    }

    const double cosLimit = std::cos(static_cast<double>(angleDegrees) * 3.14159265358979323846 / 180.0);
    std::vector<Wm4::Vector3<float>> normals(corners.size(), Wm4::Vector3<float>(0.0f, 0.0f, 0.0f));
    std::vector<size_t> members;
    std::vector<std::pair<Vector3d, Vector3d>> distinct;  // direction, summed weight
    for (size_t g = 0; g + 1 < groupStart.size(); ++g) {
        members.assign(grouped.begin() + static_cast<std::ptrdiff_t>(groupStart[g]),
                       grouped.begin() + static_cast<std::ptrdiff_t>(groupStart[g + 1]));
        // Corners whose faces share a direction get the same normal, so the
        // quadratic comparison runs over distinct directions only (a flat fan
        // around a hub vertex collapses to one).
        std::sort(members.begin(), members.end(),
                  [&](size_t a, size_t b) { return lexicographicLess(direction[a / 3], direction[b / 3]); });
        distinct.clear();
        for (const size_t c : members) {
            const Vector3d& d = direction[c / 3];
            if (distinct.empty() || distinct.back().first != d)
                distinct.emplace_back(d, weighted[c / 3]);
            else
                distinct.back().second += weighted[c / 3];
        }
        size_t k = 0;
        for (const auto& own : distinct) {
            const bool degenerate = own.first == Vector3d(0.0, 0.0, 0.0);
            Vector3d sum(0.0, 0.0, 0.0);
            for (const auto& other : distinct)
                if (degenerate || own.first.Dot(other.first) >= cosLimit) sum += other.second;
            const double length = sum.Length();
            const Wm4::Vector3<float> normal = length > 0.0 ? Wm4::Vector3<float>(static_cast<float>(sum[0] / length),
                                                                                  static_cast<float>(sum[1] / length),
                                                                                  static_cast<float>(sum[2] / length))
                                                            : Wm4::Vector3<float>(0.0f, 0.0f, 0.0f);
            for (; k < members.size() && direction[members[k] / 3] == own.first; ++k) normals[members[k]] = normal;
        }
    }
    return normals;
}

// Some formats (OBJ with its separate position and normal indices, STL)
// arrive with one vertex per triangle corner. Corners that agree bit for bit
// in position and normal are joined again, which gives back the sharing the
// model had and a third of the memory; split normals along creases stay
// split. Vertices no triangle uses are dropped.
bool convertMesh(const aiMesh& source, unsigned int meshIndex, const ImportOptions& options, bool facetNormalsOnly,
                 tBuffers& buffers, std::string& error) {
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
    for (const unsigned int corner : corners) {
        const aiVector3D& p = source.mVertices[corner];
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
            error = where("vertex", corner) + " has a coordinate that is not a finite number";
            return false;
        }
    }

    const bool generate = options.generateNormals && (!source.HasNormals() || facetNormalsOnly);
    const bool withNormals = source.HasNormals() || generate;
    std::vector<Wm4::Vector3<float>> generated;
    if (generate) generated = makeCornerNormals(source, corners, options.smoothingAngleDegrees);
    const auto normalOf = [&](size_t c) {
        if (generate) return generated[c];
        const aiVector3D& n = source.mNormals[corners[c]];
        return Wm4::Vector3<float>(n.x, n.y, n.z);
    };

    std::vector<unsigned int> kept;  // corner number of each new vertex
    std::vector<unsigned int> newIndex(corners.size());
    std::unordered_map<tCornerKey, unsigned int, tCornerKeyHash> joined;
    for (size_t c = 0; c < corners.size(); ++c) {
        tCornerKey key = positionKey(source.mVertices[corners[c]]);
        if (withNormals) {
            const Wm4::Vector3<float> normal = normalOf(c);
            std::memcpy(key.bits + 3, static_cast<const float*>(normal), 3 * sizeof(float));
        }
        const auto inserted = joined.emplace(key, static_cast<unsigned int>(kept.size()));
        if (inserted.second) kept.push_back(static_cast<unsigned int>(c));
        newIndex[c] = inserted.first->second;
    }

    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    if (withNormals) attributes.SetNormalChannels(3);
    buffers.vertices = new qe::qeVertexBuffer(attributes, static_cast<int>(kept.size()));
    for (size_t i = 0; i < kept.size(); ++i) {
        const aiVector3D& p = source.mVertices[corners[kept[i]]];
        buffers.vertices->Position3(static_cast<int>(i)) = Wm4::Vector3<float>(p.x, p.y, p.z);
        if (withNormals) buffers.vertices->Normal3(static_cast<int>(i)) = normalOf(kept[i]);
    }
    buffers.indices = new qe::qeIndexBuffer(static_cast<int>(corners.size()), qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    std::copy(newIndex.begin(), newIndex.end(), buffers.indices->GetData());
    return true;
}

}  // namespace

std::vector<const qe::qeTriMesh*> ImportedModel::meshList() const {
    std::vector<const qe::qeTriMesh*> list;
    list.reserve(meshes.size());
    for (const qe::qePointer<qe::qeTriMesh>& mesh : meshes) list.push_back(mesh);
    return list;
}

bool ImportModel(const std::string& path, ImportedModel& model, std::string& error, const ImportOptions& options) {
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

    // STL stores one normal per facet, which assimp hands on per corner: they
    // would make every edge between two facets a crease, curved surfaces
    // included, so they are replaced like missing ones.
    std::string extension = path.size() >= 4 ? path.substr(path.size() - 4) : std::string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const bool facetNormalsOnly = extension == ".stl";

    std::vector<tBuffers> buffers(scene->mNumMeshes);
    for (unsigned int m = 0; m < scene->mNumMeshes; ++m) {
        if (!convertMesh(*scene->mMeshes[m], m, options, facetNormalsOnly, buffers[m], error)) {
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
