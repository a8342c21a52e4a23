// Fuzz target: the built-in PLY reader (ASCII and binary little-endian). An
// accepted file gives one mesh with as many vertices as its header's vertex
// element counts, three corners per face of its face element, and normals
// exactly when the vertex element has them.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "FuzzSupport.h"
#include "MeshReaders.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using contour::importer::tSourceMesh;
    ctr_fuzz::CheckBuiltInReader(
        data, size, [](const auto& file, auto& meshes) { return contour::importer::readPly(file, meshes); }, ".ply", [&](const std::vector<tSourceMesh>& meshes) {
            // The header, read again on its own terms.
            std::istringstream header(std::string(reinterpret_cast<const char*>(data), size));
            std::string line, element;
            uint64_t vertices = 0, faces = 0;
            bool normals = false, ended = false;
            while (!ended && std::getline(header, line)) {
                std::istringstream words(line);
                std::string keyword, first, second;
                words >> keyword >> first >> second;
                if (keyword == "element") {
                    element = first;
                    (first == "vertex" ? vertices : faces) = std::stoull(second);
                } else if (keyword == "property" && element == "vertex" && second == "nx") {
                    normals = true;
                }
                ended = keyword == "end_header";
            }
            FUZZ_REQUIRE(ended, "no end of header");
            FUZZ_REQUIRE(meshes.size() == 1, "%zu meshes", meshes.size());
            const tSourceMesh& mesh = meshes[0];
            FUZZ_REQUIRE(mesh.positions.size() == vertices, "%zu positions for %llu vertices", mesh.positions.size(),
                         static_cast<unsigned long long>(vertices));
            FUZZ_REQUIRE(mesh.corners.size() == 3 * faces, "%zu corners for %llu faces", mesh.corners.size(),
                         static_cast<unsigned long long>(faces));
            FUZZ_REQUIRE(mesh.normals.empty() != normals, "normals %s", normals ? "lost" : "made up");
        });
    return 0;
}
