// What the assimp reader module hands the importer: the scene's meshes and
// their placements as plain arrays, encoded for the trip out of the child
// process that reads the file.
#ifndef CONTOUR_ASSIMPSCENE_H
#define CONTOUR_ASSIMPSCENE_H

#include <cstdint>
#include <string>
#include <vector>

#include "ByteCoding.h"
#include "SourceMesh.h"

namespace contour::importer {

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

inline std::string EncodeAssimpScene(const tScene& scene) {
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

inline tScene DecodeAssimpScene(const std::string& bytes) {
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

// Loaded only by a process that reads a file of a format without a reader of
// our own, so that other starts skip binding assimp's symbols. The entry
// reads and encodes path; false with assimp's reason.
constexpr char kAssimpReaderModule[] = "libcontour-assimp-reader.so";
constexpr char kAssimpReaderEntry[] = "contourReadAssimpFile";
using tReadAssimpFile = bool (*)(const char* path, std::string* encoded, std::string* error);

}  // namespace contour::importer

#endif
