#include "Welding.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>

#include "FirstSeenNumbering.h"
#include "SmoothNormals.h"

namespace contour::importer {

void tally(ImportedModel& model, const tBuffers& buffers) {
    model.vertexCount += static_cast<size_t>(buffers.vertices->GetVertexQuantity());
    model.normalsGenerated = model.normalsGenerated || buffers.normalsGenerated;
    model.normalSeconds += buffers.normalSeconds;
}

bool convertMesh(const tSourceMesh& source, unsigned int meshIndex, const ImportOptions& options, bool facetNormalsOnly,
                 tBuffers& buffers, std::string& error) {
    const ScratchArray<unsigned int>& corners = source.corners;
    if (corners.empty()) return true;
    // Positions are checked in file order, and only when one fails are the
    // corners searched for the first that uses it (unused ones may fail).
    const auto finite = [](const tVec3& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); };
    const bool allFinite = std::all_of(source.positions.begin(), source.positions.end(), finite);
    for (size_t c = 0; !allFinite && c < corners.size(); ++c) {
        const unsigned int corner = corners[c];
        if (!finite(source.positions[corner])) {
            error = "vertex " + std::to_string(corner) + " of mesh " + std::to_string(meshIndex) +
                    " has a coordinate that is not a finite number";
            return false;
        }
    }

    const bool hasNormals = !source.normals.empty();
    const bool generate = options.generateNormals && (!hasNormals || facetNormalsOnly);
    const bool withNormals = hasNormals || generate;
    buffers.indices = new qe::qeIndexBuffer(static_cast<int>(corners.size()), qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    unsigned int* const newIndex = buffers.indices->GetData();
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    if (withNormals) attributes.SetNormalChannels(3);

    if (generate) {
        const auto start = std::chrono::steady_clock::now();
        // The index buffer holds each corner's slot until the slots are
        // numbered.
        tSmoothVertices slots;
        makeSmoothSlots(source, options.smoothingAngleDegrees, newIndex, slots, options.executor);
        constexpr uint32_t kUnset = 0xffffffffu;
        ScratchArray<uint32_t> number;
        number.assign(slots.normal.size(), kUnset);
        ScratchArray<uint32_t> kept(slots.normal.size());  // slot of each new vertex
        uint32_t vertexCount = 0;
        for (size_t c = 0; c < corners.size(); ++c) {
            uint32_t& n = number[newIndex[c]];
            if (n == kUnset) {
                kept[vertexCount] = newIndex[c];
                n = vertexCount++;
            }
            newIndex[c] = n;
        }
        buffers.vertices = new qe::qeVertexBuffer(attributes, static_cast<int>(vertexCount));
        for (uint32_t i = 0; i < vertexCount; ++i) {
            const tVec3& p = source.positions[slots.source[kept[i]]];
            buffers.vertices->Position3(static_cast<int>(i)) = Wm4::Vector3<float>(p.x, p.y, p.z);
            buffers.vertices->Normal3(static_cast<int>(i)) = slots.normal[kept[i]];
        }
        buffers.normalsGenerated = true;
        buffers.normalSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return true;
    }

    // Each vertex remembers the normal and number its last corner got: the
    // corners around a smooth vertex share them, and skip the table.
    struct tLast {
        std::array<uint32_t, 3> normal;
        uint32_t number;
    };
    constexpr uint32_t kUnset = 0xffffffffu;
    ScratchArray<tLast> last;
    last.assign(source.positions.size(), tLast{{0, 0, 0}, kUnset});
    ScratchArray<unsigned int> kept;  // corner number of each new vertex
    tFirstSeenNumbering<6> joined(std::min(source.positions.size(), corners.size()));
    for (size_t c = 0; c < corners.size(); ++c) {
        std::array<uint32_t, 3> normalBits{0, 0, 0};
        if (withNormals) {
            const tVec3& n = source.normals[corners[c]];
            normalBits = {floatBits(n.x), floatBits(n.y), floatBits(n.z)};
        }
        tLast& memo = last[corners[c]];
        if (memo.number == kUnset || memo.normal != normalBits) {
            const tVec3& p = source.positions[corners[c]];
            const uint32_t number = joined.number(
                {floatBits(p.x), floatBits(p.y), floatBits(p.z), normalBits[0], normalBits[1], normalBits[2]});
            if (number == kept.size()) kept.push_back(static_cast<unsigned int>(c));
            memo = tLast{normalBits, number};
        }
        newIndex[c] = memo.number;
    }

    buffers.vertices = new qe::qeVertexBuffer(attributes, static_cast<int>(kept.size()));
    for (size_t i = 0; i < kept.size(); ++i) {
        const tVec3& p = source.positions[corners[kept[i]]];
        buffers.vertices->Position3(static_cast<int>(i)) = Wm4::Vector3<float>(p.x, p.y, p.z);
        if (withNormals) {
            const tVec3& n = source.normals[corners[kept[i]]];
            buffers.vertices->Normal3(static_cast<int>(i)) = Wm4::Vector3<float>(n.x, n.y, n.z);
        }
    }
    return true;
}

void placeMesh(ImportedModel& model, const tBuffers& buffers, const tRows& rows, const std::string& name) {
    qe::qePointer<qe::qeTriMesh> mesh = new qe::qeTriMesh(buffers.vertices, buffers.indices);
    mesh->Local = qe::qeGenericTransformation<float>(rows);
    mesh->World = mesh->Local;
    mesh->WorldIsCurrent = true;
    mesh->UpdateMS(true, false, 0);
    mesh->UpdateGS();
    model.triangleCount += static_cast<size_t>(mesh->GetTriangleQuantity());
    model.meshes.push_back(mesh);
    model.names.push_back(name);
}

}  // namespace contour::importer
