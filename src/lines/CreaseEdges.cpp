#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "Wm4Math.h"
#include "qe/qeTriMesh.h"

#include "ctr/LineSegmentSet.h"
#include "lines/EdgeOrder.h"
#include "lines/RankSort.h"

namespace ctr {

namespace {

// Edges are collected in blocks of this many triangles between cancel polls.
constexpr int kCancelBlock = 1000;
// Relative tolerance of the perpendicularity flag: 2^-10 of the edge length.
constexpr float kPerpendicularTolerance = 0.0009765625f;

using Vector3f = Wm4::Vector3<float>;

bool HasPositionsAndNormals(const qe::qeVertexBuffer* vertices) {
    return vertices && vertices->GetVertexQuantity() >= 1 && vertices->GetAttributes().HasPosition() &&
           vertices->GetAttributes().HasNormal();
}

bool IndicesInRange(const unsigned int* indices, size_t count, unsigned int vertexCount) {
    for (size_t i = 0; i < count; ++i)
        if (indices[i] >= vertexCount) return false;
    return true;
}

// The direction and tolerance of the perpendicularity test of an edge.
struct EdgeFrame {
    Vector3f direction;
    float tolerance;

    EdgeFrame(const qe::qeVertexBuffer& vertices, uint32_t a, uint32_t b)
        : direction(vertices.Position3(static_cast<int>(b)) - vertices.Position3(static_cast<int>(a))),
          tolerance(direction.Length() * kPerpendicularTolerance) {}

    bool perpendicular(const Vector3f& normal) const { return std::fabs(normal.Dot(direction)) < tolerance; }
};

CreaseEdgeInfo MakeInfo(uint32_t a, uint32_t b, bool flag) { return {a, b | (flag ? kCreaseFlagBit : 0u)}; }

// A border edge carries the flag when both its own normals are perpendicular.
CreaseEdgeInfo BorderInfo(const qe::qeVertexBuffer& vertices, uint32_t a, uint32_t b) {
    const EdgeFrame frame(vertices, a, b);
    const bool flag = frame.perpendicular(vertices.Normal3(static_cast<int>(a))) &&
                      frame.perpendicular(vertices.Normal3(static_cast<int>(b)));
    return MakeInfo(a, b, flag);
}

bool SameIndices(const CreaseEdgeInfo& p, const CreaseEdgeInfo& q) {
    return p.vertexA == q.vertexA && ((p.vertexBAndFlag ^ q.vertexBAndFlag) & kCreaseIndexMask) == 0;
}

// Dense ranks of the vertex positions in the order of edges::ComparePosition:
// equal ranks mean bit-identical positions. Only vertices that some triangle
// uses are ranked when the buffer holds more vertices than there are edges,
// so that a large shared buffer under a small index list costs little.
uint32_t RankPositions(const qe::qeVertexBuffer& vertices, const unsigned int* indices, size_t edgeCount,
                       std::vector<uint32_t>& rank) {
    const size_t vertexCount = static_cast<size_t>(vertices.GetVertexQuantity());
    rank.assign(vertexCount, 0u);
    std::vector<edges::RankRecord> records;
    const auto add = [&](uint32_t v) {
        const Vector3f& p = vertices.Position3(static_cast<int>(v));
        records.push_back({{edges::FloatOrderKey(p[0]), edges::FloatOrderKey(p[1]), edges::FloatOrderKey(p[2])}, v});
    };
    if (vertexCount <= edgeCount) {
        records.reserve(vertexCount);
        for (size_t v = 0; v < vertexCount; ++v) add(static_cast<uint32_t>(v));
    } else {
        std::vector<unsigned char> used(vertexCount, 0);
        for (size_t i = 0; i < edgeCount; ++i) used[indices[i]] = 1;
        for (size_t v = 0; v < vertexCount; ++v)
            if (used[v]) add(static_cast<uint32_t>(v));
    }
    edges::RankScratch scratch;
    return edges::RankByKeys(records, rank, scratch);
}

// Emits the crease and border records of the edges of groups [firstGroup,
// lastGroup), each group sorted. Groups hold the edges of one first-end
// position, so runs of equal end positions never cross a group boundary and
// ranges of groups can be walked apart and their records joined in order.
// False when cancelled.
bool WalkGroups(const qe::qeVertexBuffer& buffer, const std::vector<edges::GroupedEdge>& edges,
                const std::vector<uint32_t>& groupEnd, uint32_t firstGroup, uint32_t lastGroup, float cosLimit,
                const qe::qeCancelInterfaceReadOnly& cancel, std::vector<CreaseEdgeInfo>& out) {
    for (uint32_t group = firstGroup; group < lastGroup; ++group) {
        const size_t groupStop = groupEnd[group];
        size_t runStart = group == 0 ? 0u : groupEnd[group - 1];
        while (runStart < groupStop) {
            if (cancel.isCancelled()) return false;
            const edges::GroupedEdge& head = edges[runStart];
            const uint32_t a = head.first;
            const uint32_t b = head.second;
            size_t runEnd = runStart + 1;
            while (runEnd < groupStop && edges[runEnd].rankB == head.rankB) ++runEnd;

            if (runEnd - runStart == 1) {
                out.push_back(BorderInfo(buffer, a, b));
            } else {
                // Every further copy is compared with the run's first edge
                // only: a fan of copies around a non-manifold edge is judged
                // against one reference rather than pairwise.
                const EdgeFrame frame(buffer, a, b);
                const Vector3f& normalA = buffer.Normal3(static_cast<int>(a));
                const Vector3f& normalB = buffer.Normal3(static_cast<int>(b));
                const bool firstPerpendicular = frame.perpendicular(normalA) && frame.perpendicular(normalB);
                bool firstEmitted = false;
                for (size_t position = runStart + 1; position < runEnd; ++position) {
                    const uint32_t c = edges[position].first;
                    const uint32_t e = edges[position].second;
                    const Vector3f& normalC = buffer.Normal3(static_cast<int>(c));
                    const Vector3f& normalE = buffer.Normal3(static_cast<int>(e));
                    if (!(normalA.Dot(normalC) < cosLimit || normalB.Dot(normalE) < cosLimit)) continue;
                    const bool flag =
                        firstPerpendicular && frame.perpendicular(normalC) && frame.perpendicular(normalE);
                    if (!firstEmitted) {
                        out.push_back(MakeInfo(a, b, flag));
                        firstEmitted = true;
                    }
                    out.push_back(MakeInfo(c, e, flag));
                    if (SameIndices(out[out.size() - 1], out[out.size() - 2])) out.pop_back();
                }
            }
            runStart = runEnd;
        }
    }
    return true;
}

}  // namespace

bool ComputeCreaseEdgeInfo(std::vector<CreaseEdgeInfo>& out, const qe::qeVertexBuffer* vertices,
                           const qe::qeIndexBuffer* triangles, float angleDegrees,
                           const qe::qeCancelInterfaceReadOnly& cancel) {
    out.clear();
    if (!triangles || !HasPositionsAndNormals(vertices)) return false;
    const qe::qeVertexBuffer& buffer = *vertices;
    const int triangleCount = triangles->GetIndexQuantity() / 3;
    const unsigned int* indices = triangles->GetData();
    const size_t edgeCount = 3 * static_cast<size_t>(triangleCount);
    if (!IndicesInRange(indices, edgeCount, static_cast<unsigned int>(buffer.GetVertexQuantity()))) return false;

    // The edge sort key compares end positions, then indices. With positions
    // replaced by their ranks it is the integer tuple (rank of a, rank of b,
    // a, b): edges are grouped by the first rank with a counting sort, and
    // the few edges of a group sorted by the rest.
    std::vector<uint32_t> rank;
    const uint32_t rankCount = RankPositions(buffer, indices, edgeCount, rank);

    // Indices are below the vertex count, an int, so comparing them unsigned
    // is the signed comparison of the canonical order. Every triangle writes
    // its own three slots.
    std::vector<uint32_t> edgeVertices(2 * edgeCount);
    for (int blockStart = 0; blockStart < triangleCount; blockStart += kCancelBlock) {
        const int blockEnd = std::min(triangleCount, blockStart + kCancelBlock);
        for (int t = blockStart; t < blockEnd; ++t) {
            const size_t firstEdge = 3 * static_cast<size_t>(t);
            const unsigned int* corner = indices + firstEdge;
            for (int k = 0; k < 3; ++k) {
                uint32_t a = corner[k];
                uint32_t b = corner[(k + 1) % 3];
                if (rank[a] > rank[b] || (rank[a] == rank[b] && b < a)) std::swap(a, b);
                edgeVertices[2 * (firstEdge + k)] = a;
                edgeVertices[2 * (firstEdge + k) + 1] = b;
            }
        }
        if (cancel.isCancelled()) {
            out.clear();
            return false;
        }
    }

    // Edges with the same two indices are the only ties, and they are
    // interchangeable: the order of the records does not depend on the sort.
    std::vector<edges::GroupedEdge> sorted;
    std::vector<uint32_t> groupEnd;
    edges::GroupByRank(
        edgeCount, rankCount, [&](size_t e) { return rank[edgeVertices[2 * e]]; },
        [&](size_t e) {
            const uint32_t b = edgeVertices[2 * e + 1];
            return edges::GroupedEdge{rank[b], edgeVertices[2 * e], b};
        },
        groupEnd, sorted);
    std::vector<uint32_t>().swap(edgeVertices);
    std::vector<uint32_t>().swap(rank);
    edges::SortGroups(sorted, groupEnd, 0, rankCount);

    out.reserve(edgeCount / 8);
    const float cosLimit = std::cos(Wm4::Math<float>::WM4_DEG_TO_RAD * angleDegrees);
    WalkGroups(buffer, sorted, groupEnd, 0, rankCount, cosLimit, cancel, out);
    return !cancel.isCancelled();
}

bool MakeBuffersFromEdgeInfo(const std::vector<CreaseEdgeInfo>& infos, qe::qePointer<qe::qeIndexBuffer>& outIndices,
                             std::vector<bool>* outFlags) {
    outIndices = nullptr;
    if (outFlags) outFlags->clear();
    const size_t count = infos.size();
    if (count == 0 || count > 0x3FFFFFFFu) return false;

    outIndices = new qe::qeIndexBuffer(static_cast<int>(2 * count), qe::qeIndexBuffer::IBT_LINE_LIST);
    if (outFlags) outFlags->assign(count, false);
    unsigned int* indices = outIndices->GetData();
    for (size_t i = 0; i < count; ++i) {
        indices[2 * i] = infos[i].vertexA;
        indices[2 * i + 1] = infos[i].vertexBAndFlag & kCreaseIndexMask;
        if (outFlags && (infos[i].vertexBAndFlag & kCreaseFlagBit)) (*outFlags)[i] = true;
    }
    return true;
}

bool ComputeEdgeInfoFromIBuffer(std::vector<CreaseEdgeInfo>& infos, const qe::qeVertexBuffer* vertices,
                                qe::qeIndexBuffer* lines, std::vector<unsigned char>& origin) {
    if (!HasPositionsAndNormals(vertices)) return false;
    const qe::qeVertexBuffer& buffer = *vertices;
    const unsigned int vertexCount = static_cast<unsigned int>(buffer.GetVertexQuantity());
    for (const CreaseEdgeInfo& info : infos)
        if (info.vertexA >= vertexCount || (info.vertexBAndFlag & kCreaseIndexMask) >= vertexCount) return false;

    const size_t segmentCount = lines ? static_cast<size_t>(lines->GetIndexQuantity() / 2) : 0u;
    origin.clear();
    origin.reserve(infos.size() + segmentCount);
    origin.assign(infos.size(), 2);
    if (!lines) return true;

    unsigned int* indices = lines->GetData();
    if (!IndicesInRange(indices, 2 * segmentCount, vertexCount)) return false;
    for (size_t s = 0; s < segmentCount; ++s) edges::MakeCanonical(buffer, indices[2 * s], indices[2 * s + 1]);

    std::vector<uint32_t> order(segmentCount);
    for (size_t s = 0; s < segmentCount; ++s) order[s] = static_cast<uint32_t>(s);
    std::sort(order.begin(), order.end(), [&](uint32_t s1, uint32_t s2) {
        return edges::EdgeLess(buffer, indices[2 * s1], indices[2 * s1 + 1], indices[2 * s2], indices[2 * s2 + 1]);
    });

    // Merge-join: both lists are in sort-key order; a matching segment marks
    // its record and is consumed, each record matching at most once.
    std::vector<bool> consumed(segmentCount, false);
    const size_t recordCount = infos.size();
    size_t record = 0;
    for (size_t position = 0; position < segmentCount && record < recordCount; ++position) {
        const uint32_t a = indices[2 * order[position]];
        const uint32_t b = indices[2 * order[position] + 1];
        while (record < recordCount &&
               edges::EdgeLess(buffer, infos[record].vertexA, infos[record].vertexBAndFlag & kCreaseIndexMask, a, b))
            ++record;
        if (record == recordCount) break;
        if (infos[record].vertexA == a && (infos[record].vertexBAndFlag & kCreaseIndexMask) == b) {
            origin[record] = 3;
            consumed[order[position]] = true;
            ++record;
        }
    }

    for (size_t position = 0; position < segmentCount; ++position) {
        const uint32_t segment = order[position];
        if (consumed[segment]) continue;
        infos.push_back(BorderInfo(buffer, indices[2 * segment], indices[2 * segment + 1]));
        origin.push_back(1);
    }
    return true;
}

LineSegmentSet* LineSegmentSet::GetCreaseEdgesFromMesh(const qe::qeVertexBuffer* vertices,
                                                       const qe::qeIndexBuffer* triangles,
                                                       const qe::qeCancelInterfaceReadOnly& cancel, float angleDegrees,
                                                       bool keepFlags) {
    if (!vertices || !triangles) return nullptr;
    std::unique_ptr<LineSegmentSet> set(new LineSegmentSet);
    std::vector<bool>* flags = keepFlags ? &set->segmentFlags : nullptr;

    std::vector<CreaseEdgeInfo> infos;
    if (!ComputeCreaseEdgeInfo(infos, vertices, triangles, angleDegrees, cancel)) return nullptr;
    qe::qePointer<qe::qeIndexBuffer> lines;
    if (!MakeBuffersFromEdgeInfo(infos, lines, flags) || !lines) return nullptr;
    std::vector<CreaseEdgeInfo>().swap(infos);
    if (cancel.isCancelled()) return nullptr;

    // The set shares the mesh's vertices: its indices are the mesh's own.
    set->VBuffer = const_cast<qe::qeVertexBuffer*>(vertices);
    set->IBuffer = lines;
    return set.release();
}

LineSegmentSet* LineSegmentSet::GetCreaseEdgesFromTriMesh(const qe::qeTriMesh* mesh,
                                                          const qe::qeCancelInterfaceReadOnly& cancel,
                                                          float angleDegrees, bool keepFlags) {
    if (!mesh) return nullptr;
    LineSegmentSet* set = GetCreaseEdgesFromMesh(mesh->VBuffer, mesh->IBuffer, cancel, angleDegrees, keepFlags);
    if (!set) return nullptr;
    set->Local = mesh->Local;
    set->setDirtyDown(false);
    set->World = mesh->World;
    set->WorldIsCurrent = mesh->WorldIsCurrent;
    set->WorldBound = mesh->WorldBound;
    set->WorldBoundIsCurrent = mesh->WorldBoundIsCurrent;
    set->UpdateMS(true, false, -2);
    return set;
}

}  // namespace ctr
