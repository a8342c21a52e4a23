#include "ctr/drawing/ModelImport.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "AssimpImport.h"
#include "HeaderChecks.h"
#include "MappedFile.h"
#include "MeshReaders.h"
#ifdef CONTOUR_WITH_OCCT
#include "OcctImport.h"
#endif
#include "Welding.h"

namespace contour {

namespace importer {

namespace {

const tRows kIdentityRows(1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f,
                          1.0f);

std::string lowerExtension(const std::string& path) {
    const size_t dot = path.find_last_of("./");
    std::string extension = dot != std::string::npos && path[dot] == '.' ? path.substr(dot) : std::string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

// The built-in readers. False when the file is not theirs to read, in which
// case assimp reads it (and reports whatever is wrong with it), or when
// they refuse it outright: refusal then says why.
bool importBuiltIn(const tMappedFile& data, const std::string& extension, const ImportOptions& options,
                   ImportedModel& model, std::string& refusal) {
    if (extension != ".stl" && extension != ".ply" && extension != ".obj") return false;
    std::vector<tSourceMesh> meshes;
    const bool read = extension == ".stl"   ? readBinaryStl(data, meshes)
                      : extension == ".ply" ? readPly(data, meshes, &refusal)
                                            : readObj(data, meshes, &refusal);
    if (!read) return false;

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

// Only regular files are read. A model is read more than once (checked,
// then read by a built-in reader or by assimp, which also opens the
// material files beside it), and its size bounds what the import may
// allocate; a pipe or device has neither a second reading nor a size. It
// is refused by its type, before anything opens it: opening a FIFO would
// wait for, or consume, its writer.
bool checkInputFile(const std::string& path, size_t& bytes, std::string& error) {
    struct stat status;
    if (::stat(path.c_str(), &status) != 0) {
        error = "cannot open '" + path + "': " + std::strerror(errno);
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        error = "'" + path + "' is a directory, not a model file";
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        error = "'" + path + "' is not a regular file: pipes and devices cannot be read";
        return false;
    }
    // The system's reason for a file that cannot be opened (not allowed)
    // reads better than a reader's.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        error = "cannot open '" + path + "': " + std::strerror(errno);
        return false;
    }
    ::close(descriptor);
    if (status.st_size == 0) {
        error = "cannot read '" + path + "': the file is empty";
        return false;
    }
    bytes = static_cast<size_t>(status.st_size);
    return true;
}

bool importFile(const std::string& path, ImportedModel& model, std::string& error, const ImportOptions& options) {
    size_t bytes = 0;
    if (!checkInputFile(path, bytes, error)) return false;
    // STL stores one normal per facet, which assimp hands on per corner: they
    // would make every edge between two facets a crease, curved surfaces
    // included, so they are replaced like missing ones.
    const std::string extension = lowerExtension(path);
    if (extension == ".step" || extension == ".stp" || extension == ".iges" || extension == ".igs" ||
        extension == ".brep") {
#ifdef CONTOUR_WITH_OCCT
        return importWithOcct(path, CadFormat(extension), bytes, options, model, error);
#else
        error = "cannot read '" + path + "': this build reads no CAD files (it was made without Open CASCADE)";
        return false;
#endif
    }
    if (extension == ".stl" || extension == ".ply" || extension == ".obj" || extension == ".off") {
        // Mapped for the count checks and the built-in readers, and
        // unmapped before assimp reads the file again.
        const tMappedFile data(path);
        if (!data.isOpen()) {
            error = "cannot read '" + path + "': " + std::strerror(errno);
            return false;
        }
        std::string refusal;
        if (!checkDeclaredCounts(extension, data, refusal)) {
            error = "cannot read '" + path + "': " + refusal;
            return false;
        }
        if (!options.generalReaderOnly) {
            if (importBuiltIn(data, extension, options, model, refusal)) return true;
            model = ImportedModel();
            if (!refusal.empty()) {
                error = "cannot read '" + path + "': " + refusal;
                return false;
            }
        }
    }
    return importWithAssimp(path, bytes, extension == ".stl", options, model, error);
}

}  // namespace

}  // namespace importer

const char* SurfaceKindName(SurfaceKind kind) {
    switch (kind) {
        case SurfaceKind::kPlane: return "plane";
        case SurfaceKind::kCylinder: return "cylinder";
        case SurfaceKind::kCone: return "cone";
        case SurfaceKind::kSphere: return "sphere";
        case SurfaceKind::kTorus: return "torus";
        case SurfaceKind::kOther: break;
    }
    return "other";
}

std::vector<const qe::qeTriMesh*> ImportedModel::meshList() const {
    std::vector<const qe::qeTriMesh*> list;
    list.reserve(meshes.size());
    for (const qe::qePointer<qe::qeTriMesh>& mesh : meshes) list.push_back(mesh);
    return list;
}

bool ImportModel(const std::string& path, ImportedModel& model, std::string& error, const ImportOptions& options) {
    model = ImportedModel();
    try {
        if (importer::importFile(path, model, error, options)) return true;
    } catch (const std::bad_alloc&) {
        error = "cannot read '" + path + "': not enough memory";
    } catch (const std::exception& failure) {
        error = "cannot read '" + path + "': " + failure.what();
    }
    model = ImportedModel();
    return false;
}

}  // namespace contour
