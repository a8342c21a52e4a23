// Fuzz target: the built-in OBJ reader. An accepted file gives a triangle
// for every face record, each mesh named, and a vertex per corner in the
// meshes that carry normals.
#include <cstddef>
#include <cstdint>

#include "FuzzSupport.h"
#include "MeshReaders.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using contour::importer::tSourceMesh;
    ctr_fuzz::CheckBuiltInReader(
        data, size, [](const auto& file, auto& meshes) { return contour::importer::readObj(file, meshes); }, ".obj", [&](const std::vector<tSourceMesh>& meshes) {
            // Face records: lines that start with "f" and a blank (the reader
            // takes no other kind of face).
            size_t faces = 0;
            for (size_t i = 0; i + 1 < size; ++i)
                if ((i == 0 || data[i - 1] == '\n') && data[i] == 'f' && (data[i + 1] == ' ' || data[i + 1] == '\t'))
                    ++faces;
            size_t corners = 0;
            for (const tSourceMesh& mesh : meshes) {
                corners += mesh.corners.size();
                FUZZ_REQUIRE(!mesh.name.empty(), "a mesh without a name");
                FUZZ_REQUIRE(mesh.normals.empty() || mesh.positions.size() == mesh.corners.size(),
                             "mesh '%s' with normals shares vertices", mesh.name.c_str());
            }
            FUZZ_REQUIRE(corners == 3 * faces, "%zu corners for %zu face records", corners, faces);
        });
    return 0;
}
