// Baking in two passes: the first transforms and clips every triangle and
// counts what the second will store, so that each list is allocated once at
// its final size even for meshes of millions of triangles.

#include "ctr/BakedTriangles.h"

#include <algorithm>
#include <array>

#include "qe/qeBVHPrimitiveContainer.h"
#include "qe/qeLinearGenericBVHBuilder.h"
#include "qe/qeMemory.h"
#include "qe/qeTriMesh.h"

#include "check/Check.h"
#include "check/Validate.h"
#include "exact/Exact.h"
#include "parallel/Chunks.h"
#include "projection/FirstPass.h"

namespace ctr {

namespace {

bool isUsable(const qe::qeTriMesh* mesh) {
    return mesh && mesh->GetGeometryType() == qe::qeBaseGeometry::GT_TRIMESH && mesh->VBuffer &&
           mesh->VBuffer->GetAttributes().HasPosition();
}

Wm4::Vector4<float> toClipSpace(const qe::qeTriMesh& mesh, int vertex, const Wm4::Matrix4<float>& worldToClip) {
    const Wm4::Vector3<float> world = mesh.World.ApplyForward(mesh.VBuffer->Position3(vertex), true);
    return Wm4::Vector4<float>(world[0], world[1], world[2], 1.0f) * worldToClip;
}

// The cube test of a source vertex and its quantisation: in front of the
// viewer and, after the division, inside the cube on every axis (NaN
// compares as inside, and is quantised to 0). False for a vertex outside.
bool quantizeSourceVertex(const Wm4::Vector4<float>& clip, const DiscreteProjectionSpace& space, BakedVertex& baked) {
    if (clip[3] <= 0.0f) return false;
    float u[3];
    for (int axis = 0; axis < 3; ++axis) {
        u[axis] = clip[axis] / clip[3];
        if (u[axis] < space.getDomainMin()[axis] || u[axis] > space.getDomainMax()[axis]) return false;
    }
    int32_t grid[3];
    for (int axis = 0; axis < 3; ++axis)
        grid[axis] =
            space.quantizeScaled((u[axis] - space.getDomainMin()[axis]) * space.getDiscreteScale()[axis], axis);
    baked = BakedVertex{grid[0], grid[1], grid[2]};
    return true;
}

// The first pass works in fixed chunks of vertices and of triangles that
// write disjoint parts of their outputs (triangle chunks are whole words of
// the inside bit set) and whose clip records are joined in chunk order, so
// the chunks may run in any order.
constexpr uint32_t kVertexChunk = 1u << 14;
// Vertices and triangles per chunk when the hierarchy's boxes are made.
constexpr size_t kBoxChunk = size_t(1) << 16;
// The leaf size bound handed to the hierarchy builder.
constexpr uint32_t kMaxLeafSize = 10;

// Per source vertex in the first pass: bits 0 to 5 the clip planes it lies
// outside of, bit 6 set when the divided cube test puts it outside.
constexpr uint8_t kOffCube = 1u << 6;

void transformVertices(const qe::qeTriMesh& mesh, const DiscreteProjectionSpace& space, uint32_t begin, uint32_t end,
                       Wm4::Vector4<float>* clip, uint8_t* flags, BakedVertex* baked) {
    const BakedVertex marker{BakedTriangles::kOutOfCubeMarker, BakedTriangles::kOutOfCubeMarker,
                             BakedTriangles::kOutOfCubeMarker};
    for (uint32_t i = begin; i < end; ++i) {
        clip[i] = toClipSpace(mesh, static_cast<int>(i), space.getWorldToClip());
        const bool inside = quantizeSourceVertex(clip[i], space, baked[i]);
        if (!inside) baked[i] = marker;
        flags[i] = static_cast<uint8_t>(space.computeOutsidePlanes(clip[i]) | (inside ? 0u : kOffCube));
    }
}

// What one chunk of triangles found: the number kept as they are and the
// records of the clipped ones, their polygons numbered within the chunk.
struct tTriangleChunk {
    uint32_t keptCount = 0;
    std::vector<BakedTriangles::tFirstPassData::tClipRecord> records;
    std::vector<Wm4::Vector4<float>> polygons;
};

bool fetchTriangle(const qe::qeTriMesh& mesh, int triangle, int vertexQuantity, int (&corner)[3]) {
    if (!mesh.GetTriangle(triangle, corner[0], corner[1], corner[2])) return false;
    for (const int index : corner)
        if (index < 0 || index >= vertexQuantity) return false;
    return true;
}

uint32_t edgeCode(uint32_t packed, uint32_t vertex) { return (packed >> (2 * vertex)) & 3u; }

void clipTriangles(const qe::qeTriMesh& mesh, int vertexQuantity, const DiscreteProjectionSpace& space,
                   const Wm4::Vector4<float>* clip, const uint8_t* flags, const BakedVertex* baked, uint32_t begin,
                   uint32_t end, uint32_t* insideBits, tTriangleChunk& chunk) {
    std::array<Wm4::Vector4<float>, DiscreteProjectionSpace::kMaxClipVertices> bufferA, bufferB;
    // A kept triangle without area on screen is dropped here already, so
    // that the chunk's count is exact and the storing pass knows where each
    // chunk's triangles go.
    const auto keep = [&](uint32_t t, const int(&corner)[3]) {
        if (exact::ScreenArea2(baked[corner[0]], baked[corner[1]], baked[corner[2]]) == 0) return;
        insideBits[t / 32] |= 1u << (t % 32);
        ++chunk.keptCount;
    };
    for (uint32_t t = begin; t < end; ++t) {
        int corner[3];
        if (!fetchTriangle(mesh, static_cast<int>(t), vertexQuantity, corner)) continue;
        // Corners inside every plane: the clipper would return the triangle
        // untouched (three vertices, codes 57).
        const unsigned int outside = flags[corner[0]] | flags[corner[1]] | flags[corner[2]];
        if (outside == 0) {
            keep(t, corner);
            continue;
        }
        Wm4::Vector4<float>* polygon = bufferA.data();
        Wm4::Vector4<float>* scratch = bufferB.data();
        for (int c = 0; c < 3; ++c) polygon[c] = clip[corner[c]];
        unsigned int count = 0, codes = 0;
        if (!space.clipTriangle(polygon, scratch, count, codes) || count < 3) continue;
        // The homogeneous plane tests and the divided cube test can disagree
        // by rounding for a vertex on a face of the cube; such a triangle
        // goes through the clamping path of clipped polygons instead of using
        // a vertex that was stored as the marker.
        if (count == 3 && codes == 57 && !(outside & kOffCube)) {
            keep(t, corner);
            continue;
        }
        BakedTriangles::tFirstPassData::tClipRecord record;
        record.firstVertex = static_cast<uint32_t>(chunk.polygons.size());
        record.vertexCount = count;
        record.triangle = t;
        record.edgeCodes = codes;
        chunk.records.push_back(record);
        chunk.polygons.insert(chunk.polygons.end(), polygon, polygon + count);
    }
}

}  // namespace

BakedTriangles::BakedTriangles() : projectionSpace(nullptr) {}
BakedTriangles::~BakedTriangles() = default;
BakedTriangles::BakedTriangles(const BakedTriangles&) = default;
BakedTriangles& BakedTriangles::operator=(const BakedTriangles&) = default;
BakedTriangles::BakedTriangles(BakedTriangles&&) noexcept = default;
BakedTriangles& BakedTriangles::operator=(BakedTriangles&&) noexcept = default;

void BakedTriangles::setMeshes(const std::vector<const qe::qeTriMesh*>& meshList) { meshes = meshList; }

void BakedTriangles::setProjectionSpace(const DiscreteProjectionSpace* space) { projectionSpace = space; }

void BakedTriangles::clearData() {
    vertices.clear();
    triangles.clear();
    planes.clear();
    meshFirstVertex.clear();
    meshFirstTriangle.clear();
    meshClipRecords.clear();
    hierarchy.clear();
    gridLimit = BakedVertex();
}

uint32_t BakedTriangles::getMeshTriangleEnd(uint32_t mesh) const {
    return mesh + 1 < meshFirstTriangle.size() ? meshFirstTriangle[mesh + 1] : getTriangleQuantity();
}

void BakedTriangles::initializeFirstPass(tFirstPassData& data) {
    data = tFirstPassData();
    data.meshes.resize(meshes.size());
    meshClipRecords.assign(meshes.size(), std::vector<uint32_t>());
    if (!projectionSpace) return;
    const DiscreteProjectionSpace& space = *projectionSpace;

    qe::qeLargeVector<Wm4::Vector4<float>> clipVertices;
    std::vector<uint8_t> flags;
    std::vector<tTriangleChunk> chunks;
    for (size_t j = 0; j < meshes.size(); ++j) {
        if (!isUsable(meshes[j])) continue;
        const qe::qeTriMesh& mesh = *meshes[j];
        tFirstPassData::tMeshData& meshData = data.meshes[j];

        const int vertexQuantity = mesh.VBuffer->GetVertexQuantity();
        const uint32_t vertexCount = static_cast<uint32_t>(std::max(vertexQuantity, 0));
        qe::qeReserveLarge(clipVertices, vertexCount);
        qe::qeReserveLarge(meshData.sourceVertices, vertexCount);
        qe::qeReserveLarge(flags, vertexCount);
        clipVertices.resize(vertexCount);
        flags.resize(vertexCount);
        meshData.sourceVertices.resize(vertexCount);
        ForEachChunk(executor, vertexCount, kVertexChunk, [&](size_t, size_t begin, size_t end) {
            transformVertices(mesh, space, static_cast<uint32_t>(begin), static_cast<uint32_t>(end),
                              clipVertices.data(), flags.data(), meshData.sourceVertices.data());
        });
        data.vertexCount += vertexCount;

        const int triangleQuantity = mesh.GetTriangleQuantity();
        const uint32_t triangleCount = static_cast<uint32_t>(std::max(triangleQuantity, 0));
        meshData.triangleCount = triangleCount;
        meshData.insideBits.assign((static_cast<size_t>(triangleCount) + 31) / 32, 0u);
        chunks.assign(ChunkCount(triangleCount, kTriangleChunk), tTriangleChunk());
        ForEachChunk(executor, triangleCount, kTriangleChunk, [&](size_t c, size_t begin, size_t end) {
            clipTriangles(mesh, vertexQuantity, space, clipVertices.data(), flags.data(),
                          meshData.sourceVertices.data(), static_cast<uint32_t>(begin), static_cast<uint32_t>(end),
                          meshData.insideBits.data(), chunks[c]);
        });
        // Joined in chunk order: the records of a mesh stay in triangle order.
        meshData.chunkKeptCounts.resize(chunks.size());
        for (size_t c = 0; c < chunks.size(); ++c) {
            const tTriangleChunk& chunk = chunks[c];
            meshData.chunkKeptCounts[c] = chunk.keptCount;
            data.triangleCount += chunk.keptCount;
            const uint32_t offset = static_cast<uint32_t>(meshData.clipPolygons.size());
            meshData.clipPolygons.insert(meshData.clipPolygons.end(), chunk.polygons.begin(), chunk.polygons.end());
            for (tFirstPassData::tClipRecord record : chunk.records) {
                record.firstVertex += offset;
                meshData.clipRecords.push_back(record);
                data.vertexCount += record.vertexCount;
                data.triangleCount += record.vertexCount - 2;
                meshData.fanTriangleCount += record.vertexCount - 2;
            }
        }
        meshClipRecords[j].reserve(meshData.fanTriangleCount);
    }
}

void BakedTriangles::initialize() {
    clearData();
    tFirstPassData data;
    initializeFirstPass(data);
    meshFirstVertex.assign(meshes.size(), 0u);
    meshFirstTriangle.assign(meshes.size(), 0u);
    if (!projectionSpace) return;
    const DiscreteProjectionSpace& space = *projectionSpace;
    gridLimit = BakedVertex{space.getGridLimit(0), space.getGridLimit(1), space.getGridLimit(2)};

    // Per mesh, every source vertex, then the vertices of the clipped
    // polygons in record order. Reserved, not resized: every entry is
    // written once, without a zero fill first.
    qe::qeReserveLarge(vertices, data.vertexCount);
    for (size_t j = 0; j < meshes.size(); ++j) {
        meshFirstVertex[j] = static_cast<uint32_t>(vertices.size());
        const tFirstPassData::tMeshData& meshData = data.meshes[j];
        vertices.insert(vertices.end(), meshData.sourceVertices.begin(), meshData.sourceVertices.end());
        for (const Wm4::Vector4<float>& point : meshData.clipPolygons)
            vertices.push_back(space.quantizeClipPoint(point));
    }
    // Fan corners below are found at offsets the first pass counted; a
    // miscount would shift the corners of every later mesh.
    CTR_ASSERT(vertices.size() == data.vertexCount);

    // The fans of the clipped polygons, few next to the triangles kept as
    // they are, on the calling thread: whether a fan triangle has area on
    // screen is known only now, so their count is too. Each is stored
    // counter-clockwise in grid x, y with its plane record and its clip
    // record, edge codes turned with the corners.
    std::vector<std::vector<uint32_t>> fanTriangles(meshes.size());
    std::vector<std::vector<Wm4::Vector3<int64_t>>> fanPlanes(meshes.size());
    for (size_t j = 0; j < meshes.size(); ++j) {
        const tFirstPassData::tMeshData& meshData = data.meshes[j];
        std::vector<uint32_t>& records = meshClipRecords[j];
        std::vector<uint32_t>& corners = fanTriangles[j];
        std::vector<Wm4::Vector3<int64_t>>& fanPlaneList = fanPlanes[j];
        fanPlaneList.reserve(meshData.fanTriangleCount);
        corners.reserve(3 * static_cast<size_t>(meshData.fanTriangleCount));
        const uint32_t polygonBase = meshFirstVertex[j] + static_cast<uint32_t>(meshData.sourceVertices.size());
        for (const tFirstPassData::tClipRecord& clipped : meshData.clipRecords) {
            const uint32_t first = polygonBase + clipped.firstVertex;
            const uint32_t n = clipped.vertexCount;
            // Fan (0, k, k + 1): slot j of its record holds the side ending
            // at corner j, as the clipper codes polygon vertices. The sides
            // (n-1)->0, 0->1 and k->k+1 lie on polygon edges and carry the
            // code of the vertex they end at; the diagonals get 0.
            for (uint32_t k = 1; k + 1 < n; ++k) {
                const uint32_t code0 = k + 2 == n ? edgeCode(clipped.edgeCodes, 0) : 0u;
                const uint32_t code1 = k == 1 ? edgeCode(clipped.edgeCodes, 1) : 0u;
                const uint32_t code2 = edgeCode(clipped.edgeCodes, k + 1);
                uint32_t record = (clipped.triangle & kClipRecordTriangleMask) |
                                  ((code0 | (code1 << 2) | (code2 << 4)) << kClipRecordCodeShift);
                uint32_t ib = first + k, ic = first + k + 1;
                const BakedVertex& a = vertices[first];
                const int64_t area = exact::ScreenArea2(a, vertices[ib], vertices[ic]);
                if (area == 0) continue;
                if (area < 0) {
                    std::swap(ib, ic);
                    // Slot j holds the side ending at corner j: with B and C
                    // exchanged, the sides ending at A and at the second
                    // corner trade places, the side between them stays.
                    const uint32_t codes = record >> kClipRecordCodeShift;
                    const uint32_t swapped = (codes & 0x30u) | ((codes & 0x03u) << 2) | ((codes >> 2) & 0x03u);
                    record = (record & kClipRecordTriangleMask) | (swapped << kClipRecordCodeShift);
                }
                corners.push_back(first);
                corners.push_back(ib);
                corners.push_back(ic);
                fanPlaneList.push_back(exact::PlaneRecord(a, vertices[ib], vertices[ic]));
                records.push_back(record);
            }
        }
    }

    // Per mesh, the triangles kept as they are (their count per first-pass
    // chunk is exact), then the fans. Each chunk knows where its triangles
    // go, so the chunks are stored independently.
    struct tStoreTask {
        uint32_t mesh;
        uint32_t chunk;
        uint32_t firstSlot;
    };
    std::vector<tStoreTask> tasks;
    size_t triangleTotal = 0;
    for (size_t j = 0; j < meshes.size(); ++j) {
        meshFirstTriangle[j] = static_cast<uint32_t>(triangleTotal);
        const std::vector<uint32_t>& kept = data.meshes[j].chunkKeptCounts;
        for (size_t c = 0; c < kept.size(); ++c) {
            if (kept[c] != 0)
                tasks.push_back(
                    {static_cast<uint32_t>(j), static_cast<uint32_t>(c), static_cast<uint32_t>(triangleTotal)});
            triangleTotal += kept[c];
        }
        triangleTotal += fanPlanes[j].size();
    }
    if (triangleTotal == 0) return;
    qe::qeReserveLarge(triangles, 3 * triangleTotal);
    qe::qeReserveLarge(planes, triangleTotal);
    triangles.resize(3 * triangleTotal);
    planes.resize(triangleTotal);
    // A store task per mesh and chunk: a part made of many small meshes
    // gives many tasks of a few microseconds each, which cost more to hand
    // out than they take; below a chunk's worth of triangles they run here.
    Executor* const storeExecutor = triangleTotal >= kTriangleChunk ? executor : nullptr;
    ForEachTask(storeExecutor, tasks.size(), [&](size_t i) {
        const tStoreTask& task = tasks[i];
        const qe::qeTriMesh& mesh = *meshes[task.mesh];
        const tFirstPassData::tMeshData& meshData = data.meshes[task.mesh];
        const int vertexQuantity = mesh.VBuffer->GetVertexQuantity();
        const uint32_t base = meshFirstVertex[task.mesh];
        const size_t firstWord = static_cast<size_t>(task.chunk) * (kTriangleChunk / 32);
        const size_t endWord = std::min(meshData.insideBits.size(), firstWord + kTriangleChunk / 32);
        size_t slot = task.firstSlot;
        for (size_t word = firstWord; word < endWord; ++word) {
            uint32_t bits = meshData.insideBits[word];
            for (uint32_t t = static_cast<uint32_t>(32 * word); bits != 0; ++t, bits >>= 1) {
                if (!(bits & 1u)) continue;
                int corner[3];
                fetchTriangle(mesh, static_cast<int>(t), vertexQuantity, corner);
                const uint32_t ia = base + static_cast<uint32_t>(corner[0]);
                uint32_t ib = base + static_cast<uint32_t>(corner[1]);
                uint32_t ic = base + static_cast<uint32_t>(corner[2]);
                // The first pass kept only triangles with area on screen.
                const BakedVertex& a = vertices[ia];
                if (exact::ScreenArea2(a, vertices[ib], vertices[ic]) < 0) std::swap(ib, ic);
                triangles[3 * slot] = ia;
                triangles[3 * slot + 1] = ib;
                triangles[3 * slot + 2] = ic;
                planes[slot] = exact::PlaneRecord(a, vertices[ib], vertices[ic]);
                ++slot;
            }
        }
        // Chunks store side by side in parallel: one that stored more than
        // the first pass counted would overwrite its neighbour's triangles.
        CTR_ASSERT(slot == task.firstSlot + meshData.chunkKeptCounts[task.chunk]);
    });
    for (size_t j = 0; j < meshes.size(); ++j) {
        const size_t fanFirst = getMeshTriangleEnd(static_cast<uint32_t>(j)) - fanPlanes[j].size();
        std::copy(fanTriangles[j].begin(), fanTriangles[j].end(), triangles.begin() + 3 * fanFirst);
        std::copy(fanPlanes[j].begin(), fanPlanes[j].end(), planes.begin() + fanFirst);
    }

    buildHierarchy();
}

bool BakedTriangles::buildHierarchy(qe::qeLinearGenericBVHBuilder::SplitMethod method) {
    hierarchy.clear();
    if (planes.empty()) return false;
    // The boxes computePrimitiveBBox gives, with every vertex taken back to
    // world space once rather than once per triangle that uses it.
    const size_t vertexCount = vertices.size();
    const uint32_t triangleCount = getTriangleQuantity();
    qe::qeLargeVector<Wm4::Vector3<float>> world;
    qe::qeBVHPrimitiveContainer container;
    if (!executor) {
        qe::qeReserveLarge(world, vertexCount);
        for (const BakedVertex& v : vertices) world.push_back(projectionSpace->discreteToWorld(v.x, v.y, v.z));
        container.reserve(triangleCount);
        qe::qeBBox box;
        for (size_t t = 0; t < triangleCount; ++t) {
            box.makeEmpty();
            for (int c = 0; c < 3; ++c) box.include(world[triangles[3 * t + c]]);
            container.add(box);
        }
    } else {
        qe::qeReserveLarge(world, vertexCount);
        world.resize(vertexCount);
        ForEachChunk(executor, vertexCount, kBoxChunk, [&](size_t, size_t begin, size_t end) {
            for (size_t i = begin; i < end; ++i)
                world[i] = projectionSpace->discreteToWorld(vertices[i].x, vertices[i].y, vertices[i].z);
        });
        container.resize(triangleCount);
        ForEachChunk(executor, triangleCount, kBoxChunk, [&](size_t, size_t begin, size_t end) {
            qe::qeBBox box;
            for (size_t t = begin; t < end; ++t) {
                box.makeEmpty();
                for (int c = 0; c < 3; ++c) box.include(world[triangles[3 * t + c]]);
                container.set(static_cast<uint32_t>(t), box);
            }
        });
    }
    world = qe::qeLargeVector<Wm4::Vector3<float>>();
    qe::qeLinearGenericBVHBuilder::ParallelFor parallelFor;
    if (executor)
        parallelFor = [this](size_t count, const std::function<void(size_t)>& task) {
            executor->parallelFor(count, task);
        };
    if (!qe::qeLinearGenericBVHBuilder::build(container, hierarchy, nullptr, kMaxLeafSize, method, parallelFor))
        return false;
    computeBakedBVHBBox(0);
    return true;
}

void BakedTriangles::computePrimitiveBBox(uint32_t triangle, qe::qeBBox& box) const {
    box.makeEmpty();
    for (int c = 0; c < 3; ++c) {
        const BakedVertex& v = vertices[triangles[3 * static_cast<size_t>(triangle) + c]];
        box.include(projectionSpace->discreteToWorld(v.x, v.y, v.z));
    }
}

qe::qeTriMesh* BakedTriangles::computeBakedMesh() const {
    qe::qeAttributes attributes;
    attributes.SetPositionChannels(3);
    qe::qePointer<qe::qeVertexBuffer> positions = new qe::qeVertexBuffer(attributes, static_cast<int>(vertices.size()));
    if (projectionSpace)
        for (size_t i = 0; i < vertices.size(); ++i)
            positions->Position3(static_cast<int>(i)) =
                projectionSpace->discreteToWorld(vertices[i].x, vertices[i].y, vertices[i].z);
    qe::qePointer<qe::qeIndexBuffer> indices =
        new qe::qeIndexBuffer(static_cast<int>(triangles.size()), qe::qeIndexBuffer::IBT_TRIANGLE_LIST);
    std::copy(triangles.begin(), triangles.end(), indices->GetData());
    return new qe::qeTriMesh(positions, indices);
}

bool BakedTriangles::validate(std::string* why) const {
    const auto fail = [why](const std::string& text) {
        if (why) *why = text;
        return false;
    };
    const size_t triangleQuantity = planes.size();
    if (triangles.size() != 3 * triangleQuantity) return fail("triangle and plane lists disagree");
    if (meshFirstVertex.size() != meshes.size() || meshFirstTriangle.size() != meshes.size() ||
        meshClipRecords.size() != meshes.size())
        return fail("per-mesh lists do not match the mesh list");
    for (size_t j = 0; j < meshes.size(); ++j) {
        const uint32_t end = getMeshTriangleEnd(static_cast<uint32_t>(j));
        if (meshFirstTriangle[j] > end || end > triangleQuantity) return fail("mesh triangle ranges out of order");
        if (meshClipRecords[j].size() > end - meshFirstTriangle[j]) return fail("more clip records than triangles");
        if (j > 0 && meshFirstVertex[j] < meshFirstVertex[j - 1]) return fail("mesh vertex ranges out of order");
    }
    for (size_t t = 0; t < triangleQuantity; ++t) {
        const BakedVertex* corner[3];
        for (int c = 0; c < 3; ++c) {
            const uint32_t index = triangles[3 * t + c];
            if (index >= vertices.size()) return fail("corner index out of range in triangle " + std::to_string(t));
            corner[c] = &vertices[index];
            if (corner[c]->x < 0 || corner[c]->y < 0 || corner[c]->z < 0 || corner[c]->x > gridLimit.x ||
                corner[c]->y > gridLimit.y || corner[c]->z > gridLimit.z)
                return fail("corner off the grid in triangle " + std::to_string(t));
        }
        const BakedVertex &a = *corner[0], &b = *corner[1], &c = *corner[2];
        if (exact::ScreenArea2(a, b, c) <= 0)
            return fail("triangle " + std::to_string(t) + " is not counter-clockwise");
        if (planes[t] != exact::PlaneRecord(a, b, c))
            return fail("plane record of triangle " + std::to_string(t) + " is wrong");
    }
    return check::ValidateHierarchy(hierarchy, vertices, triangles, why);
}

}  // namespace ctr
