// CAD files (STEP, IGES, BREP): the parent's side. The reader module (see
// CadScene.h) reads and tessellates in a child process; what it hands back
// is checked here and built into framework meshes.
#include "OcctImport.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "CadScene.h"
#include "Isolation.h"
#include "ReaderModule.h"
#include "Welding.h"

namespace contour::importer {

namespace {

qe::qePointer<qe::qeIndexBuffer> lineBuffer(const std::vector<uint32_t>& pairs) {
    qe::qePointer<qe::qeIndexBuffer> lines =
        new qe::qeIndexBuffer(static_cast<int>(pairs.size()), qe::qeIndexBuffer::IBT_LINE_LIST);
    std::copy(pairs.begin(), pairs.end(), lines->GetData());
    return lines;
}

// The parent trusts nothing the child hands back: every index is checked
// against its mesh and every position for being finite.
void buildMesh(const tCadMesh& source, ImportedModel& model, CadPart& part) {
    const size_t vertices = source.positions.size();
    const auto inRange = [vertices](uint32_t index) { return index < vertices; };
    if (source.normals.size() != vertices || source.corners.size() % 3 != 0 || source.sharp.size() % 2 != 0 ||
        source.tangent.size() % 2 != 0 || !std::all_of(source.corners.begin(), source.corners.end(), inRange) ||
        !std::all_of(source.sharp.begin(), source.sharp.end(), inRange) ||
        !std::all_of(source.tangent.begin(), source.tangent.end(), inRange))
        throw std::runtime_error("the reader handed back a garbled mesh");
    for (const tVec3& p : source.positions)
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
            throw std::runtime_error("a vertex of " + source.name + " has a coordinate that is not a finite number");

    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    attributes.SetNormalChannels(3);
    tBuffers buffers;
    buffers.vertices = new qe::qeVertexBuffer(attributes, static_cast<int>(vertices));
    for (size_t v = 0; v < vertices; ++v) {
        const tVec3& p = source.positions[v];
        const tVec3& n = source.normals[v];
        buffers.vertices->Position3(static_cast<int>(v)) = Wm4::Vector3<float>(p.x, p.y, p.z);
        buffers.vertices->Normal3(static_cast<int>(v)) = Wm4::Vector3<float>(n.x, n.y, n.z);
    }
    buffers.indices =
        new qe::qeIndexBuffer(static_cast<int>(source.corners.size()), qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    std::copy(source.corners.begin(), source.corners.end(), buffers.indices->GetData());
    tally(model, buffers);
    const tRows identity(1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f,
                         1.0f);
    placeMesh(model, buffers, identity, source.name);
    // The generator takes this outline instead of creases: even an empty
    // one (a sphere) says that the part has no other edges.
    model.meshes.back()->AttachMetadata(new qe::qeOutlineMetadata(lineBuffer(source.sharp)));
    part.tangentEdges.push_back(source.tangent.empty() ? nullptr : lineBuffer(source.tangent));
    for (AnalyticFace face : source.faces) {
        face.mesh = model.meshes.size() - 1;
        part.faces.push_back(face);
    }
}

}  // namespace

const char* CadFormat(const std::string& extension) {
    if (extension == ".step" || extension == ".stp") return "STEP";
    if (extension == ".iges" || extension == ".igs") return "IGES";
    if (extension == ".brep") return "BREP";
    return nullptr;
}

bool importWithOcct(const std::string& path, const char* format, size_t fileBytes, const ImportOptions& options,
                    ImportedModel& model, std::string& error) {
    const std::string kind = format;
    const double chord = options.chordTolerance;
    if (std::isfinite(chord) && chord > 0.0 && chord < 1e-9) {
        error = "cannot read '" + path + "': the tolerance is too small";
        return false;
    }
    std::string encoded;
    std::string reason;
    // Loaded here rather than in the child: a loader lock that another of
    // the host's threads held at the fork would never be released there.
    const auto read = reinterpret_cast<tReadCadFile>(ReaderEntry(kCadReaderModule, kCadReaderEntry, reason));
    if (!read) {
        error = "cannot read '" + path + "': " + reason;
        return false;
    }
    const auto work = [&path, &kind, chord, read] {
        std::string bytes, failure;
        if (!read(path.c_str(), kind.c_str(), std::isfinite(chord) ? chord : 0.0, &bytes, &failure))
            throw std::runtime_error(failure);
        return bytes;
    };
    if (!RunIsolated(fileBytes, work, encoded, reason)) {
        error = "cannot read '" + path + "': " + reason;
        return false;
    }
    try {
        const tCadScene scene = DecodeCadScene(encoded);
        CadPart part;
        part.format = kind;
        part.fileUnit = scene.fileUnit;
        part.chordTolerance = scene.chord;
        part.sharpEdges = static_cast<size_t>(scene.sharpEdges);
        part.tangentEdgeCount = static_cast<size_t>(scene.tangentEdges);
        part.seamEdges = static_cast<size_t>(scene.seamEdges);
        part.warnings = scene.warnings;
        for (const tCadMesh& mesh : scene.meshes) buildMesh(mesh, model, part);
        model.cad = std::move(part);
    } catch (const std::runtime_error& failure) {
        error = "cannot read '" + path + "': " + failure.what();
        model = ImportedModel();
        return false;
    }
    model.hasNormals = true;
    // The readers hand STEP and IGES over in millimetres; BREP files state
    // no unit.
    if (kind != "BREP") model.statedUnit = LengthUnit::kMillimetre;
    return true;
}

}  // namespace contour::importer
