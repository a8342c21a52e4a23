// What the CAD reader module hands the importer: plain arrays, encoded for
// the trip out of the child process that reads the file.
#ifndef CONTOUR_CADSCENE_H
#define CONTOUR_CADSCENE_H

#include <cstdint>
#include <string>
#include <vector>

#include "ctr/drawing/ModelImport.h"
#include "ByteCoding.h"
#include "SourceMesh.h"

namespace contour::importer {

struct tCadMesh {
    std::string name;
    std::vector<tVec3> positions;
    std::vector<tVec3> normals;
    std::vector<uint32_t> corners;
    std::vector<uint32_t> sharp;    // line pairs: edges drawn
    std::vector<uint32_t> tangent;  // line pairs: edges between tangent faces
    std::vector<AnalyticFace> faces;
};

struct tCadScene {
    std::vector<tCadMesh> meshes;
    std::string fileUnit;
    double chord = 0.0;
    uint64_t sharpEdges = 0, tangentEdges = 0, seamEdges = 0;
    std::vector<std::string> warnings;
};

inline std::string EncodeCadScene(const tCadScene& scene) {
    tWriter out;
    out.value(static_cast<uint64_t>(scene.meshes.size()));
    for (const tCadMesh& mesh : scene.meshes) {
        out.text(mesh.name);
        out.array(mesh.positions.data(), mesh.positions.size());
        out.array(mesh.normals.data(), mesh.normals.size());
        out.array(mesh.corners.data(), mesh.corners.size());
        out.array(mesh.sharp.data(), mesh.sharp.size());
        out.array(mesh.tangent.data(), mesh.tangent.size());
        out.array(mesh.faces.data(), mesh.faces.size());
    }
    out.text(scene.fileUnit);
    out.value(scene.chord);
    out.value(scene.sharpEdges);
    out.value(scene.tangentEdges);
    out.value(scene.seamEdges);
    out.value(static_cast<uint64_t>(scene.warnings.size()));
    for (const std::string& warning : scene.warnings) out.text(warning);
    return std::move(out.bytes);
}

inline tCadScene DecodeCadScene(const std::string& bytes) {
    tReader in(bytes);
    tCadScene scene;
    scene.meshes.resize(in.count(1));
    for (tCadMesh& mesh : scene.meshes) {
        mesh.name = in.text();
        in.array(mesh.positions);
        in.array(mesh.normals);
        in.array(mesh.corners);
        in.array(mesh.sharp);
        in.array(mesh.tangent);
        in.array(mesh.faces);
    }
    scene.fileUnit = in.text();
    scene.chord = in.value<double>();
    scene.sharpEdges = in.value<uint64_t>();
    scene.tangentEdges = in.value<uint64_t>();
    scene.seamEdges = in.value<uint64_t>();
    const uint64_t warnings = in.count(1);
    for (uint64_t w = 0; w < warnings; ++w) scene.warnings.push_back(in.text());
    return scene;
}

// Open CASCADE is loaded only by a process that reads a CAD file: linked
// into every front end, its libraries cost each start about 70 ms of symbol
// binding, ten times the drawing of a small part. The module's one entry
// reads, tessellates and encodes path; false with a one-line reason.
constexpr char kCadReaderModule[] = "libcontour-cad-reader.so";
constexpr char kCadReaderEntry[] = "contourReadCadFile";
using tReadCadFile = bool (*)(const char* path, const char* format, double chordTolerance, std::string* encoded,
                              std::string* error);

}  // namespace contour::importer

#endif
