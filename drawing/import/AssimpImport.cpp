#include "AssimpImport.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <stdexcept>
#include <vector>

#include <assimp/Importer.hpp>
#include <assimp/commonMetaData.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include "ByteCoding.h"
#include "Isolation.h"
#include "MappedFile.h"
#include "NumberScan.h"
#include "PackageUnit.h"
#include "Welding.h"

namespace contour::importer {

namespace {

// What the general reader hands over: the scene's meshes, and their placed
// instances in the order of a depth-first walk of the node tree.
struct tInstance {
    uint32_t mesh;
    float rows[16];
    std::string name;
};
struct tScene {
    std::vector<tSourceMesh> meshes;
    std::vector<tInstance> instances;
    std::string format;  // the name of assimp's reader that took the file
};

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

std::string encode(const tScene& scene) {
    tWriter out;
    out.value(static_cast<uint64_t>(scene.meshes.size()));
    for (const tSourceMesh& mesh : scene.meshes) {
        out.text(mesh.name);
        out.array(mesh.positions.data(), mesh.positions.size());
        out.array(mesh.normals.data(), mesh.normals.size());
        out.array(mesh.corners.data(), mesh.corners.size());
    }
    out.value(static_cast<uint64_t>(scene.instances.size()));
    for (const tInstance& instance : scene.instances) {
        out.value(instance.mesh);
        out.value(instance.rows);
        out.text(instance.name);
    }
    out.text(scene.format);
    return std::move(out.bytes);
}

tScene decode(const std::string& bytes) {
    tReader in(bytes);
    tScene scene;
    scene.meshes.resize(in.count(1));
    for (tSourceMesh& mesh : scene.meshes) {
        mesh.name = in.text();
        in.array(mesh.positions);
        in.array(mesh.normals);
        in.array(mesh.corners);
    }
    const uint64_t instances = in.count(1);
    for (uint64_t k = 0; k < instances; ++k) {
        tInstance instance;
        instance.mesh = in.value<uint32_t>();
        for (float& value : instance.rows) value = in.value<float>();
        instance.name = in.text();
        scene.instances.push_back(std::move(instance));
    }
    scene.format = in.text();
    return scene;
}

// Assimp quotes the text it failed on, however long; each quotation is cut
// to a short printable excerpt so that the reason stays one short line.
std::string shortReason(const std::string& reason) {
    std::string shortened;
    size_t at = 0;
    for (;;) {
        const size_t open = reason.find('"', at);
        const size_t close = open == std::string::npos ? open : reason.find('"', open + 1);
        if (close == std::string::npos) break;
        shortened.append(reason, at, open + 1 - at);
        shortened += printableExcerpt(reason.data() + open + 1, reason.data() + close);
        at = close;
        shortened += '"';
        ++at;
    }
    shortened.append(reason, at, std::string::npos);
    return printableExcerpt(shortened.data(), shortened.data() + shortened.size(), 200);
}

// The unit the format defines, or the file states. glTF is in metres by
// definition, and assimp brings Collada files into metres from whatever
// unit they state; a 3MF package names its unit on the model element,
// which assimp does not pass on.
std::optional<LengthUnit> statedUnit(const std::string& format, const std::string& path) {
    if (format.rfind("glTF", 0) == 0 || format.rfind("Collada", 0) == 0) return LengthUnit::kMetre;
    if (format.rfind("3mf", 0) != 0) return std::nullopt;
    const tMappedFile package(path);
    if (!package.isOpen()) return std::nullopt;
    return PackageModelUnit(package.begin(), package.size());
}

}  // namespace

bool importWithAssimp(const std::string& path, size_t fileBytes, bool facetNormalsOnly, const ImportOptions& options,
                      ImportedModel& model, std::string& error) {
    std::string encoded;
    std::string reason;
    if (!RunIsolated(fileBytes, [&path] { return encode(readScene(path)); }, encoded, reason)) {
        error = "cannot read '" + path + "': " + shortReason(reason);
        return false;
    }
    tScene scene;
    try {
        scene = decode(encoded);
    } catch (const std::runtime_error&) {
        error = "cannot read '" + path + "': the reader handed back a garbled scene";
        return false;
    }

    std::vector<tBuffers> buffers(scene.meshes.size());
    for (size_t m = 0; m < scene.meshes.size(); ++m) {
        if (!convertMesh(scene.meshes[m], static_cast<unsigned int>(m), options, facetNormalsOnly, buffers[m],
                         error)) {
            error = "cannot read '" + path + "': " + error;
            return false;
        }
    }
    bool allNormals = true;
    for (size_t m = 0; m < buffers.size(); ++m)
        if (buffers[m].vertices) tally(model, buffers[m]);
    for (const tInstance& instance : scene.instances) {
        if (instance.mesh >= buffers.size() || !buffers[instance.mesh].indices) continue;
        const tBuffers& placed = buffers[instance.mesh];
        allNormals = allNormals && placed.vertices->GetAttributes().HasNormal();
        const float* const r = instance.rows;
        placeMesh(model, placed,
                  tRows(r[0], r[1], r[2], r[3], r[4], r[5], r[6], r[7], r[8], r[9], r[10], r[11], r[12], r[13], r[14],
                        r[15]),
                  instance.name);
    }

    if (model.meshes.empty()) {
        error = "'" + path + "' holds no triangle";
        model = ImportedModel();
        return false;
    }
    model.hasNormals = allNormals;
    model.statedUnit = statedUnit(scene.format, path);
    return true;
}

}  // namespace contour::importer
