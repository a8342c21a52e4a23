// The general reader's parent side: every format assimp knows, read by the
// assimp reader module in a child process (see AssimpScene.h).
#include "AssimpImport.h"

#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <vector>

#include "AssimpScene.h"
#include "Isolation.h"
#include "MappedFile.h"
#include "NumberScan.h"
#include "PackageUnit.h"
#include "ReaderModule.h"
#include "Welding.h"

namespace contour::importer {

namespace {

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
    // Loaded in the parent: a loader lock that another of the host's threads
    // held at the fork would never be released in the child.
    const auto read =
        reinterpret_cast<tReadAssimpFile>(ReaderEntry(kAssimpReaderModule, kAssimpReaderEntry, reason));
    if (!read) {
        error = "cannot read '" + path + "': " + reason;
        return false;
    }
    const auto work = [&path, read] {
        std::string bytes, failure;
        if (!read(path.c_str(), &bytes, &failure)) throw std::runtime_error(failure);
        return bytes;
    };
    if (!RunIsolated(fileBytes, work, encoded, reason)) {
        error = "cannot read '" + path + "': " + shortReason(reason);
        return false;
    }
    tScene scene;
    try {
        scene = DecodeAssimpScene(encoded);
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
