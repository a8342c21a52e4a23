#include <cstddef>
#include <cstdint>
#include <utility>

#include "MeshReaders.h"

namespace contour::importer {

// Binary STL: 80 header bytes, a facet count and 50 bytes per facet, with
// the file size agreeing exactly (assimp takes such a file as binary even
// when its header starts with "solid"). Assimp keeps one vertex per corner
// and hands the facet normal to all three.
bool readBinaryStl(const tMappedFile& data, std::vector<tSourceMesh>& meshes) {
    const size_t size = data.size();
    if (size < 84 || !littleEndianHost()) return false;
    const uint32_t facets = load<uint32_t>(data.begin() + 80);
    if (facets == 0 || 84 + 50 * static_cast<uint64_t>(facets) != size) return false;
    tSourceMesh mesh;
    mesh.positions.resize(3 * static_cast<size_t>(facets));
    mesh.normals.resize(3 * static_cast<size_t>(facets));
    mesh.corners.resize(3 * static_cast<size_t>(facets));
    const char* at = data.begin() + 84;
    for (size_t f = 0; f < facets; ++f, at += 50) {
        const tVec3 normal{load<float>(at), load<float>(at + 4), load<float>(at + 8)};
        for (size_t k = 0; k < 3; ++k) {
            const char* corner = at + 12 + 12 * k;
            mesh.positions[3 * f + k] = tVec3{load<float>(corner), load<float>(corner + 4), load<float>(corner + 8)};
            mesh.normals[3 * f + k] = normal;
            mesh.corners[3 * f + k] = static_cast<unsigned int>(3 * f + k);
        }
    }
    meshes.push_back(std::move(mesh));
    return true;
}

}  // namespace contour::importer
