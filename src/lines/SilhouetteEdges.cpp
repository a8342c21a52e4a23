// Silhouette edges found on the baked grid. Baking gives every triangle the
// same winding on screen, so two neighbours that face the same way meet along
// their common edge in opposite directions; an edge that the surface crosses
// in one direction only is a fold towards the back, or a border.

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "qe/qeIndexBuffer.h"
#include "qe/qeMemory.h"
#include "qe/qePointer.h"
#include "qe/qeTriMesh.h"

#include "ctr/BakedTriangles.h"
#include "ctr/LineSegmentSet.h"
#include "lines/RankSort.h"

namespace ctr {

namespace {

// Baked coordinates as keys whose unsigned order is their signed order.
uint32_t CoordinateKey(int32_t value) { return static_cast<uint32_t>(value) ^ 0x80000000u; }

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

    // The baked vertices that each mesh's triangles use, as a range; the
    // largest mesh and the largest range size the working storage.
    std::vector<uint32_t> firstVertex(meshCount, 0u);
    std::vector<uint32_t> vertexEnd(meshCount, 0u);
    size_t largest = 0;
    size_t largestRange = 0;
    for (size_t m = 0; m < meshCount; ++m) {
        const uint32_t first = meshFirstTriangle[m];
        const uint32_t end = getMeshTriangleEnd(static_cast<uint32_t>(m));
        if (end <= first) continue;
        largest = std::max<size_t>(largest, end - first);
        const auto range = std::minmax_element(triangles.begin() + 3 * static_cast<size_t>(first),
                                               triangles.begin() + 3 * static_cast<size_t>(end));
        firstVertex[m] = *range.first;
        vertexEnd[m] = *range.second + 1;
        largestRange = std::max<size_t>(largestRange, vertexEnd[m] - firstVertex[m]);
    }
    if (largest == 0) return false;
    // Edge numbers are 32-bit.
    if (3 * largest > std::numeric_limits<uint32_t>::max()) return false;

    // Every slot of grouped is written before it is read: it needs no
    // initial values.
    // The working lists are as long as the largest mesh: advised to large
    // pages before their first write, so that a host's allocator, which may
    // hand out fresh mappings for each, costs few page faults.
    const qe::qeLargeArray<uint64_t> grouped(3 * largest);
    std::vector<uint32_t> edgeDirections;
    qe::qeReserveLarge(edgeDirections, (3 * largest + 31) / 32);
    edgeDirections.resize((3 * largest + 31) / 32);
    std::vector<uint32_t> candidates;
    std::vector<unsigned int> segments;
    std::vector<uint32_t> rank;
    qe::qeReserveLarge(rank, largestRange);
    rank.resize(largestRange);
    qe::qeLargeVector<edges::RankRecord> keys;
    qe::qeReserveLarge(keys, largestRange);
    edges::RankScratch scratch;
    qe::qeReserveLarge(scratch.spare, largestRange);
    std::vector<uint32_t> groupEnd;
    qe::qeReserveLarge(groupEnd, largestRange);
    std::vector<uint64_t> bucket;
    std::vector<uint32_t> bucketRanks;

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
        const uint32_t* meshCorners = &triangles[3 * static_cast<size_t>(first)];

        // Ranks of the baked positions: equal ranks mean equal positions, and
        // the rank order is the lexicographic (x, y, z) order.
        const uint32_t lo = firstVertex[m];
        keys.clear();
        for (uint32_t v = lo; v < vertexEnd[m]; ++v) {
            const BakedVertex& p = vertices[v];
            keys.push_back({{CoordinateKey(p.x), CoordinateKey(p.y), CoordinateKey(p.z)}, v - lo});
        }
        const uint32_t rankCount = edges::RankByKeys(keys, rank, scratch);
        const auto rankOf = [&](uint32_t v) { return rank[v - lo]; };
        // Edge j is the side ending at corner j, whose clip code baking keeps
        // in slot j, taken against the winding: from corner j back to corner
        // j - 1 (i0->i2, i1->i0, i2->i1). It runs forward when its start has
        // the smaller position; its sorted pair puts that position first.
        const auto from = [&](uint32_t e) { return meshCorners[e]; };
        const auto to = [&](uint32_t e) { return meshCorners[e - e % 3 + (e % 3 + 2) % 3]; };
        const auto forward = [&](uint32_t e) { return rankOf(from(e)) < rankOf(to(e)); };

        // Edges are sorted by the positions of both ends, equal edges by
        // number, so that the member that speaks for a run, and with it the
        // output, does not depend on the sort algorithm: a counting sort by
        // the rank of the first end, then each group by (rank of the second
        // end, number), both in one 64-bit key.
        std::fill(edgeDirections.begin(), edgeDirections.begin() + (edgeCount + 31) / 32, 0u);
        for (uint32_t e = 0; e < edgeCount; ++e)
            if (forward(e)) edgeDirections[e / 32] |= 1u << (e % 32);
        const auto forEachEdge = [&](auto&& take) {
            for (uint32_t e = 0; e < edgeCount; ++e) {
                const uint32_t rankFrom = rankOf(from(e));
                const uint32_t rankTo = rankOf(to(e));
                const bool ahead = isForward(e);
                const uint32_t rankA = ahead ? rankFrom : rankTo;
                const uint32_t rankB = ahead ? rankTo : rankFrom;
                take(static_cast<uint64_t>(rankB) << 32 | e, rankA);
            }
        };
        const auto firstRank = [&](uint64_t item) {
            const uint32_t e = static_cast<uint32_t>(item);
            return isForward(e) ? rankOf(from(e)) : rankOf(to(e));
        };
        edges::PlaceInGroups(edgeCount, rankCount, forEachEdge, firstRank, grouped.get(), groupEnd, bucket,
                             bucketRanks);

        // Runs never cross a group, so ranges of groups could be sorted and
        // walked apart and their candidates joined in group order. (Tried
        // through the executor: no gain, the ranking and placing above take
        // the time.)
        const auto walkGroups = [&](uint32_t firstGroup, uint32_t lastGroup, std::vector<uint32_t>& found) {
            for (uint32_t group = firstGroup; group < lastGroup; ++group) {
                const uint32_t groupStop = groupEnd[group];
                uint32_t r = group == 0 ? 0u : groupEnd[group - 1];
                edges::SortGroup(grouped.get() + r, grouped.get() + groupStop);
                while (r < groupStop) {
                    const uint32_t head = static_cast<uint32_t>(grouped[r]);
                    const uint64_t headRank = grouped[r] >> 32;
                    unsigned int directions = 0;
                    do {
                        directions |= isForward(static_cast<uint32_t>(grouped[r])) ? 2u : 1u;
                        ++r;
                    } while (r < groupStop && grouped[r] >> 32 == headRank);
                    if (directions == 3u) continue;
                    const uint32_t t = head / 3;
                    if (t < firstClipped) {
                        found.push_back(head);
                        continue;
                    }
                    // A side on a clip plane, or a fan diagonal left open by
                    // a dropped fan triangle, is no edge of the mesh.
                    const uint32_t code = (records[t - firstClipped] >> (kClipRecordCodeShift + 2 * (head % 3))) & 3u;
                    if (code != 0) found.push_back(head);
                }
            }
        };
        candidates.clear();
        walkGroups(0, rankCount, candidates);
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
            int64_t start;
            int64_t stop;
            if (t < firstClipped) {
                const bool ahead = isForward(e);
                start = static_cast<int64_t>(ahead ? from(e) : to(e)) - base;
                stop = static_cast<int64_t>(ahead ? to(e) : from(e)) - base;
            } else {
                // The whole source edge: its clipped piece ends at vertices
                // of the fan, which the mesh does not have.
                const uint32_t record = records[t - firstClipped];
                const uint32_t code = (record >> (kClipRecordCodeShift + 2 * (e % 3))) & 3u;
                int source[3];
                if (!mesh->GetTriangle(static_cast<int>(record & kClipRecordTriangleMask), source[0], source[1],
                                       source[2]))
                    continue;
                start = source[code - 1];
                stop = source[(code + 1) % 3];
            }
            if (!inRange(start) || !inRange(stop)) continue;
            segments.push_back(static_cast<unsigned int>(start));
            segments.push_back(static_cast<unsigned int>(stop));
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
