#include "ctr/drawing/ModelImport.h"

#include <algorithm>
#include <cctype>

#include "AssimpImport.h"
#include "MappedFile.h"
#include "MeshReaders.h"
#include "Welding.h"

namespace contour {

namespace importer {

namespace {

const tRows kIdentityRows(1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f,
                          1.0f);

std::string lowerExtension(const std::string& path) {
    std::string extension = path.size() >= 4 ? path.substr(path.size() - 4) : std::string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

// The built-in readers. False when the file is not theirs to read, in which
// case assimp reads it (and reports whatever is wrong with it).
bool importBuiltIn(const std::string& path, const std::string& extension, const ImportOptions& options,
                   ImportedModel& model) {
    if (extension != ".stl" && extension != ".ply" && extension != ".obj") return false;
    std::vector<tSourceMesh> meshes;
    {
        // The readers copy what they need, so the file goes before the
        // meshes are built.
        const tMappedFile data(path);
        if (!data.isOpen()) return false;
        const bool read = extension == ".stl"   ? readBinaryStl(data, meshes)
                          : extension == ".ply" ? readPly(data, meshes)
                                                : readObj(data, meshes);
        if (!read) return false;
    }

    // Assimp names the single mesh of binary STL and PLY files as below (its
    // unnamed mesh takes the name of the node that holds it).
    const char* const unnamed = "";
    bool allNormals = true;
    for (size_t m = 0; m < meshes.size(); ++m) {
        tBuffers buffers;
        std::string error;
        if (!convertMesh(meshes[m], static_cast<unsigned int>(m), options, extension == ".stl", buffers, error)) {
            model = ImportedModel();
            return false;
        }
        if (!buffers.indices) continue;
        tally(model, buffers);
        allNormals = allNormals && buffers.vertices->GetAttributes().HasNormal();
        placeMesh(model, buffers, kIdentityRows, meshes[m].name.empty() ? unnamed : meshes[m].name);
    }
    model.hasNormals = allNormals;
    return !model.meshes.empty();
}

}  // namespace

}  // namespace importer

std::vector<const qe::qeTriMesh*> ImportedModel::meshList() const {
    std::vector<const qe::qeTriMesh*> list;
    list.reserve(meshes.size());
    for (const qe::qePointer<qe::qeTriMesh>& mesh : meshes) list.push_back(mesh);
    return list;
}

bool ImportModel(const std::string& path, ImportedModel& model, std::string& error, const ImportOptions& options) {
    model = ImportedModel();
    // STL stores one normal per facet, which assimp hands on per corner: they
    // would make every edge between two facets a crease, curved surfaces
    // included, so they are replaced like missing ones.
    const std::string extension = importer::lowerExtension(path);
    if (!options.generalReaderOnly && importer::importBuiltIn(path, extension, options, model)) return true;
    model = ImportedModel();
    return importer::importWithAssimp(path, extension == ".stl", options, model, error);
}

}  // namespace contour
