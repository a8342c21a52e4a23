// Silhouette edges found on the baked grid. Baking gives every triangle the
// same winding on screen, so two neighbours that face the same way meet along
// their common edge in opposite directions; an edge that the surface crosses
// in one direction only is a fold towards the back, or a border.

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

#include "qe/qeIndexBuffer.h"
#include "qe/qePointer.h"
#include "qe/qeTriMesh.h"

#include "ctr/BakedTriangles.h"
#include "ctr/LineSegmentSet.h"

namespace ctr {

namespace {

int CompareBaked(const BakedVertex& a, const BakedVertex& b) {
    if (a.x != b.x) return a.x < b.x ? -1 : 1;
    if (a.y != b.y) return a.y < b.y ? -1 : 1;
    if (a.z != b.z) return a.z < b.z ? -1 : 1;
    return 0;
}

}  // namespace

bool BakedTriangles::computeSilhouetteEdges(std::vector<LineSegmentSet*>& out) const {
    if (!out.empty()) return false;
    const size_t meshCount = meshes.size();
    out.assign(meshCount, nullptr);
    if (meshCount == 0) return false;
    // A mesh list replaced after baking has no baked ranges to read.
    if (meshFirstTriangle.size() != meshCount || meshFirstVertex.size() != meshCount ||
        meshClipRecords.size() != meshCount)
        return false;

    size_t largest = 0;
    for (size_t m = 0; m < meshCount; ++m) {
        const uint32_t first = meshFirstTriangle[m];
        const uint32_t end = getMeshTriangleEnd(static_cast<uint32_t>(m));
        if (end > first) largest = std::max<size_t>(largest, end - first);
    }
    if (largest == 0) return false;
    // Edge numbers are 32-bit.
    if (3 * largest > std::numeric_limits<uint32_t>::max()) return false;

    std::vector<uint32_t> edgeOrder(3 * largest);
    std::vector<uint32_t> edgeVertices(6 * largest);
    std::vector<uint32_t> edgeDirections((3 * largest + 31) / 32);
    std::vector<uint32_t> candidates;
    std::vector<unsigned int> segments;

    const auto edgeLess = [&](uint32_t e, uint32_t f) {
        int order = CompareBaked(vertices[edgeVertices[2 * e]], vertices[edgeVertices[2 * f]]);
        if (order == 0) order = CompareBaked(vertices[edgeVertices[2 * e + 1]], vertices[edgeVertices[2 * f + 1]]);
        // Equal edges by number, so that the member that speaks for a run,
        // and with it the output, does not depend on the sort algorithm.
        return order != 0 ? order < 0 : e < f;
    };
    const auto sameEdge = [&](uint32_t e, uint32_t f) {
        return vertices[edgeVertices[2 * e]] == vertices[edgeVertices[2 * f]] &&
               vertices[edgeVertices[2 * e + 1]] == vertices[edgeVertices[2 * f + 1]];
    };
    const auto isForward = [&](uint32_t e) { return (edgeDirections[e / 32] >> (e % 32)) & 1u; };

    for (size_t m = 0; m < meshCount; ++m) {
        const uint32_t first = meshFirstTriangle[m];
        const uint32_t end = getMeshTriangleEnd(static_cast<uint32_t>(m));
        if (end <= first) continue;
        const uint32_t count = end - first;
        const std::vector<uint32_t>& records = meshClipRecords[m];
        const uint32_t clippedCount = static_cast<uint32_t>(std::min<size_t>(records.size(), count));
        const uint32_t firstClipped = count - clippedCount;
        const uint32_t edgeCount = 3 * count;

        std::fill(edgeDirections.begin(), edgeDirections.begin() + (edgeCount + 31) / 32, 0u);
        for (uint32_t t = 0; t < count; ++t) {
            const uint32_t* corner = &triangles[3 * (static_cast<size_t>(first) + t)];
            for (uint32_t j = 0; j < 3; ++j) {
                // Edge j is the side ending at corner j, whose clip code
                // baking keeps in slot j, taken against the winding: from
                // corner j back to corner j - 1 (i0->i2, i1->i0, i2->i1).
                const uint32_t p = corner[j];
                const uint32_t q = corner[(j + 2) % 3];
                const uint32_t e = 3 * t + j;
                if (CompareBaked(vertices[p], vertices[q]) < 0) {
                    edgeVertices[2 * e] = p;
                    edgeVertices[2 * e + 1] = q;
                    edgeDirections[e / 32] |= 1u << (e % 32);
                } else {
                    edgeVertices[2 * e] = q;
                    edgeVertices[2 * e + 1] = p;
                }
                edgeOrder[e] = e;
            }
        }
        std::sort(edgeOrder.begin(), edgeOrder.begin() + edgeCount, edgeLess);

        candidates.clear();
        for (uint32_t r = 0; r < edgeCount;) {
            const uint32_t head = edgeOrder[r];
            unsigned int directions = 0;
            do {
                directions |= isForward(edgeOrder[r]) ? 2u : 1u;
                ++r;
            } while (r < edgeCount && sameEdge(head, edgeOrder[r]));
            if (directions == 3u) continue;
            const uint32_t t = head / 3;
            if (t < firstClipped) {
                candidates.push_back(head);
                continue;
            }
            // A side on a clip plane, or a fan diagonal left open by a
            // dropped fan triangle, is no edge of the mesh.
            const uint32_t code = (records[t - firstClipped] >> (kClipRecordCodeShift + 2 * (head % 3))) & 3u;
            if (code != 0) candidates.push_back(head);
        }
        if (candidates.empty()) continue;

        const qe::qeTriMesh* mesh = meshes[m];
        if (!mesh || !mesh->VBuffer) continue;
        const uint32_t base = meshFirstVertex[m];
        const int vertexQuantity = mesh->VBuffer->GetVertexQuantity();
        const auto inRange = [vertexQuantity](int64_t index) { return index >= 0 && index < vertexQuantity; };

        // Indices are checked against the mesh as it is now, so that a mesh
        // changed since baking costs segments rather than reads out of range.
        segments.clear();
        for (const uint32_t e : candidates) {
            const uint32_t t = e / 3;
            int64_t from;
            int64_t to;
            if (t < firstClipped) {
                from = static_cast<int64_t>(edgeVertices[2 * e]) - base;
                to = static_cast<int64_t>(edgeVertices[2 * e + 1]) - base;
            } else {
                // The whole source edge: its clipped piece ends at vertices
                // of the fan, which the mesh does not have.
                const uint32_t record = records[t - firstClipped];
                const uint32_t code = (record >> (kClipRecordCodeShift + 2 * (e % 3))) & 3u;
                int source[3];
                if (!mesh->GetTriangle(static_cast<int>(record & kClipRecordTriangleMask), source[0], source[1],
                                       source[2]))
                    continue;
                from = source[code - 1];
                to = source[(code + 1) % 3];
            }
            if (!inRange(from) || !inRange(to)) continue;
            segments.push_back(static_cast<unsigned int>(from));
            segments.push_back(static_cast<unsigned int>(to));
        }
        if (segments.empty() || segments.size() > static_cast<size_t>(std::numeric_limits<int>::max())) continue;

        qe::qePointer<qe::qeIndexBuffer> indices =
            new qe::qeIndexBuffer(static_cast<int>(segments.size()), qe::qeIndexBuffer::IBT_LINE_LIST);
        std::copy(segments.begin(), segments.end(), indices->GetData());
        LineSegmentSet* set = new LineSegmentSet;
        set->VBuffer = mesh->VBuffer;
        set->IBuffer = indices;
        set->setDirtyDown(false);
        set->Local = mesh->World;
        set->setDirtyDown(false);
        set->World = mesh->World;
        set->UpdateMS(true, false, -2);
        out[m] = set;
    }
    return true;
}

}  // namespace ctr
