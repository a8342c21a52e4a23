#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "Wm4Math.h"
#include "qe/qeMemory.h"
#include "qe/qeTriMesh.h"

#include "ctr/LineSegmentSet.h"
#include "lines/CreaseRecord.h"
#include "lines/EdgeOrder.h"
#include "lines/RankSort.h"

namespace ctr {

namespace {

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
    // The lists of this extraction are as long as the mesh: advised to
    // large pages before their first write, so that a host's allocator,
    // which may hand out fresh mappings for each, costs few page faults.
    qe::qeReserveLarge(rank, vertexCount);
    rank.assign(vertexCount, 0u);
    qe::qeLargeVector<edges::RankRecord> records;
    const auto add = [&](uint32_t v) {
        const Vector3f& p = vertices.Position3(static_cast<int>(v));
        records.push_back({{edges::FloatOrderKey(p[0]), edges::FloatOrderKey(p[1]), edges::FloatOrderKey(p[2])}, v});
    };
    if (vertexCount <= edgeCount) {
        qe::qeReserveLarge(records, vertexCount);
        for (size_t v = 0; v < vertexCount; ++v) add(static_cast<uint32_t>(v));
    } else {
        std::vector<unsigned char> used;
        qe::qeReserveLarge(used, vertexCount);
        used.assign(vertexCount, 0);
        size_t usedCount = 0;
        for (size_t i = 0; i < edgeCount; ++i) {
            usedCount += used[indices[i]] == 0;
            used[indices[i]] = 1;
        }
        qe::qeReserveLarge(records, usedCount);
        for (size_t v = 0; v < vertexCount; ++v)
            if (used[v]) add(static_cast<uint32_t>(v));
    }
    edges::RankScratch scratch;
    return edges::RankByKeys(records, rank, scratch);
}

// A canonical edge: the end with the smaller position first, equal positions
// by the smaller index. Indices are below the vertex count, an int, so their
// unsigned order is the signed order of the canonical order.
struct EdgeEnds {
    uint32_t a;
    uint32_t b;
};

EdgeEnds Canonical(const std::vector<uint32_t>& rank, uint32_t a, uint32_t b) {
    if (rank[a] > rank[b] || (rank[a] == rank[b] && b < a)) return {b, a};
    return {a, b};
}

// Emits the records of one run of geometrically identical edges, sorted.
void EmitRun(const qe::qeVertexBuffer& buffer, const edges::KeyedEdge* run, const edges::KeyedEdge* runEnd,
             float cosLimit, std::vector<CreaseEdgeInfo>& out) {
    // The key holds the first index in its low word, the tie the second.
    const uint32_t a = static_cast<uint32_t>(run->key);
    const uint32_t b = run->tie;
    if (runEnd - run == 1) {
        out.push_back(BorderInfo(buffer, a, b));
        return;
    }
    // Every further copy is compared with the run's first edge only: a fan
    // of copies around a non-manifold edge is judged against one reference
    // rather than pairwise.
    const EdgeFrame frame(buffer, a, b);
    const Vector3f& normalA = buffer.Normal3(static_cast<int>(a));
    const Vector3f& normalB = buffer.Normal3(static_cast<int>(b));
    const bool firstPerpendicular = frame.perpendicular(normalA) && frame.perpendicular(normalB);
    bool firstEmitted = false;
    for (const edges::KeyedEdge* edge = run + 1; edge < runEnd; ++edge) {
        const uint32_t c = static_cast<uint32_t>(edge->key);
        const uint32_t e = edge->tie;
        const Vector3f& normalC = buffer.Normal3(static_cast<int>(c));
        const Vector3f& normalE = buffer.Normal3(static_cast<int>(e));
        if (!(normalA.Dot(normalC) < cosLimit || normalB.Dot(normalE) < cosLimit)) continue;
        const bool flag = firstPerpendicular && frame.perpendicular(normalC) && frame.perpendicular(normalE);
        if (!firstEmitted) {
            out.push_back(MakeInfo(a, b, flag));
            firstEmitted = true;
        }
        out.push_back(MakeInfo(c, e, flag));
        if (SameIndices(out[out.size() - 1], out[out.size() - 2])) out.pop_back();
    }
}

// Sorts the edges of groups [firstGroup, lastGroup) and emits their records.
// A group holds the edges whose first end has one position, so runs never
// cross a group boundary: ranges of groups can be handled apart and their
// records joined in group order. False when cancelled.
bool WalkGroups(const qe::qeVertexBuffer& buffer, const std::vector<uint32_t>& rank, const EdgeEnds* grouped,
                const std::vector<uint32_t>& groupEnd, uint32_t firstGroup, uint32_t lastGroup, float cosLimit,
                const qe::qeCancelInterfaceReadOnly& cancel, std::vector<CreaseEdgeInfo>& out) {
    // The rest of the edge sort key within a group: (rank of b, a, b).
    std::vector<edges::KeyedEdge> group;
    for (uint32_t g = firstGroup; g < lastGroup; ++g) {
        group.clear();
        for (uint32_t i = g == 0 ? 0u : groupEnd[g - 1]; i < groupEnd[g]; ++i)
            group.push_back({static_cast<uint64_t>(rank[grouped[i].b]) << 32 | grouped[i].a, grouped[i].b});
        edges::SortGroup(group.data(), group.data() + group.size());
        for (size_t runStart = 0; runStart < group.size();) {
            if (cancel.isCancelled()) return false;
            const uint64_t rankB = group[runStart].key >> 32;
            size_t runEnd = runStart + 1;
            while (runEnd < group.size() && group[runEnd].key >> 32 == rankB) ++runEnd;
            EmitRun(buffer, group.data() + runStart, group.data() + runEnd, cosLimit, out);
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
    // the few edges of a group sorted by the rest. Edges with the same two
    // indices are the only ties, and they are interchangeable.
    std::vector<uint32_t> rank;
    const uint32_t rankCount = RankPositions(buffer, indices, edgeCount, rank);

    // Edges are placed by the rank of their first end in two passes over
    // the triangles, so that no list of all edges in triangle order is kept.
    // Cancellation is polled once per pass: ranking and placing cost about
    // as much as reading the triangles.
    const auto forEachEdge = [&](auto&& take) {
        for (size_t i = 0; i < edgeCount; i += 3)
            for (int k = 0; k < 3; ++k) {
                const EdgeEnds edge = Canonical(rank, indices[i + k], indices[i + (k + 1) % 3]);
                take(edge, rank[edge.a]);
            }
    };
    if (cancel.isCancelled()) return false;
    // Every slot is written below: the list needs no initial values.
    const qe::qeLargeArray<EdgeEnds> grouped(edgeCount);
    std::vector<uint32_t> groupEnd;
    qe::qeReserveLarge(groupEnd, rankCount);
    std::vector<EdgeEnds> bucket;
    std::vector<uint32_t> bucketRanks;
    edges::PlaceInGroups(
        edgeCount, rankCount, forEachEdge, [&](const EdgeEnds& edge) { return rank[edge.a]; }, grouped.get(),
        groupEnd, bucket, bucketRanks);
    std::vector<EdgeEnds>().swap(bucket);
    if (cancel.isCancelled()) {
        out.clear();
        return false;
    }

    out.reserve(edgeCount / 8);
    const float cosLimit = std::cos(Wm4::Math<float>::WM4_DEG_TO_RAD * angleDegrees);
    WalkGroups(buffer, rank, grouped.get(), groupEnd, 0, rankCount, cosLimit, cancel, out);
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
