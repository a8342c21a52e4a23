// Fuzz target: the built-in binary STL reader. An accepted file is exactly
// the 84 bytes of header and count plus 50 bytes per facet, and gives one
// mesh of three corners per facet that carry the file's floats unchanged.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "FuzzSupport.h"
#include "MeshReaders.h"

namespace {

float floatAt(const uint8_t* at) {
    float value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

bool sameBits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using contour::importer::tSourceMesh;
    ctr_fuzz::CheckBuiltInReader(
        data, size, contour::importer::readBinaryStl, ".stl", [&](const std::vector<tSourceMesh>& meshes) {
            FUZZ_REQUIRE(size >= 84, "a file of %zu bytes accepted", size);
            uint32_t facets;
            std::memcpy(&facets, data + 80, sizeof facets);
            FUZZ_REQUIRE(size == 84 + 50 * static_cast<uint64_t>(facets), "%zu bytes for %u facets", size, facets);
            FUZZ_REQUIRE(meshes.size() == 1, "%zu meshes", meshes.size());
            const tSourceMesh& mesh = meshes[0];
            FUZZ_REQUIRE(mesh.corners.size() == 3 * static_cast<size_t>(facets), "%zu corners for %u facets",
                         mesh.corners.size(), facets);
            FUZZ_REQUIRE(mesh.normals.size() == mesh.positions.size(), "no facet normals");
            for (size_t c = 0; c < mesh.corners.size(); ++c) {
                const uint8_t* facet = data + 84 + 50 * (c / 3);
                const uint8_t* corner = facet + 12 + 12 * (c % 3);
                const auto& p = mesh.positions[mesh.corners[c]];
                const auto& n = mesh.normals[mesh.corners[c]];
                FUZZ_REQUIRE(sameBits(p.x, floatAt(corner)) && sameBits(p.y, floatAt(corner + 4)) &&
                                 sameBits(p.z, floatAt(corner + 8)),
                             "corner %zu is not the file's", c);
                FUZZ_REQUIRE(sameBits(n.x, floatAt(facet)) && sameBits(n.y, floatAt(facet + 4)) &&
                                 sameBits(n.z, floatAt(facet + 8)),
                             "corner %zu lost its facet normal", c);
            }
        });
    return 0;
}
