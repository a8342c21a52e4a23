// Baking in two passes: the first transforms and clips every triangle and
// counts what the second will store, so that each list is allocated once at
// its final size even for meshes of millions of triangles.

#include "ctr/BakedTriangles.h"

#include <array>

#include "qe/qeBVHPrimitiveContainer.h"
#include "qe/qeLinearGenericBVHBuilder.h"
#include "qe/qeTriMesh.h"

#include "projection/ExactArithmetic.h"

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

// The cube test of a source vertex: in front of the viewer and, after the
// division, inside the cube on every axis (NaN compares as inside, and is
// quantised to 0 later).
bool isInsideCube(const Wm4::Vector4<float>& clip, const DiscreteProjectionSpace& space) {
    if (clip[3] <= 0.0f) return false;
    for (int axis = 0; axis < 3; ++axis) {
        const float u = clip[axis] / clip[3];
        if (u < space.getDomainMin()[axis] || u > space.getDomainMax()[axis]) return false;
    }
    return true;
}

bool fetchTriangle(const qe::qeTriMesh& mesh, int triangle, int vertexQuantity, int (&corner)[3]) {
    if (!mesh.GetTriangle(triangle, corner[0], corner[1], corner[2])) return false;
    for (const int index : corner)
        if (index < 0 || index >= vertexQuantity) return false;
    return true;
}

uint32_t edgeCode(uint32_t packed, uint32_t vertex) { return (packed >> (2 * vertex)) & 3u; }

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

    std::vector<Wm4::Vector4<float>> clipVertices;
    std::vector<uint8_t> insideCube;
    std::array<Wm4::Vector4<float>, DiscreteProjectionSpace::kMaxClipVertices> bufferA, bufferB;
    for (size_t j = 0; j < meshes.size(); ++j) {
        if (!isUsable(meshes[j])) continue;
        const qe::qeTriMesh& mesh = *meshes[j];
        tFirstPassData::tMeshData& meshData = data.meshes[j];

        const int vertexQuantity = mesh.VBuffer->GetVertexQuantity();
        clipVertices.resize(static_cast<size_t>(vertexQuantity));
        insideCube.resize(static_cast<size_t>(vertexQuantity));
        for (int i = 0; i < vertexQuantity; ++i) {
            clipVertices[i] = toClipSpace(mesh, i, space.getWorldToClip());
            insideCube[i] = isInsideCube(clipVertices[i], space);
        }
        data.vertexCount += static_cast<uint32_t>(vertexQuantity);

        const int triangleQuantity = mesh.GetTriangleQuantity();
        meshData.triangleCount = static_cast<uint32_t>(triangleQuantity);
        meshData.insideBits.assign((static_cast<size_t>(triangleQuantity) + 31) / 32, 0u);
        for (int t = 0; t < triangleQuantity; ++t) {
            int corner[3];
            if (!fetchTriangle(mesh, t, vertexQuantity, corner)) continue;
            Wm4::Vector4<float>* polygon = bufferA.data();
            Wm4::Vector4<float>* scratch = bufferB.data();
            for (int c = 0; c < 3; ++c) polygon[c] = clipVertices[corner[c]];
            unsigned int count = 0, codes = 0;
            if (!space.clipTriangle(polygon, scratch, count, codes) || count < 3) continue;
            // The homogeneous plane tests and the divided cube test can
            // disagree by rounding for a vertex on a face of the cube; such a
            // triangle goes through the clamping path of clipped polygons
            // instead of using a vertex that was stored as the marker.
            if (count == 3 && codes == 57 && insideCube[corner[0]] && insideCube[corner[1]] && insideCube[corner[2]]) {
                meshData.insideBits[static_cast<size_t>(t) / 32] |= 1u << (t % 32);
                ++data.triangleCount;
                continue;
            }
            tFirstPassData::tClipRecord record;
            record.polygon.assign(polygon, polygon + count);
            record.triangle = static_cast<uint32_t>(t);
            record.edgeCodes = codes;
            meshData.clipRecords.push_back(std::move(record));
            data.vertexCount += count;
            data.triangleCount += count - 2;
            meshData.fanTriangleCount += count - 2;
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

    vertices.resize(data.vertexCount);
    triangles.resize(3 * static_cast<size_t>(data.triangleCount));
    planes.resize(data.triangleCount);
    uint32_t vertexCursor = 0;
    uint32_t triangleCursor = 0;

    // Stores a triangle counter-clockwise in grid x, y with its plane record;
    // drops it when it has no area on screen. A stored clipped triangle also
    // gets its clip record, edge codes turned with the corners.
    const auto addTriangle = [&](uint32_t ia, uint32_t ib, uint32_t ic, uint32_t* clipRecord,
                                 std::vector<uint32_t>& records) {
        const BakedVertex& a = vertices[ia];
        const int64_t area = exact::ScreenArea2(a, vertices[ib], vertices[ic]);
        if (area == 0) return;
        if (area < 0) {
            std::swap(ib, ic);
            if (clipRecord) {
                // Slot j holds the side ending at corner j: with B and C
                // exchanged, the sides ending at A and at the second corner
                // trade places, the side between them stays.
                const uint32_t codes = *clipRecord >> kClipRecordCodeShift;
                const uint32_t swapped = (codes & 0x30u) | ((codes & 0x03u) << 2) | ((codes >> 2) & 0x03u);
                *clipRecord = (*clipRecord & kClipRecordTriangleMask) | (swapped << kClipRecordCodeShift);
            }
        }
        uint32_t* stored = &triangles[3 * static_cast<size_t>(triangleCursor)];
        stored[0] = ia;
        stored[1] = ib;
        stored[2] = ic;
        planes[triangleCursor] = exact::PlaneRecord(a, vertices[ib], vertices[ic]);
        ++triangleCursor;
        if (clipRecord) records.push_back(*clipRecord);
    };

    for (size_t j = 0; j < meshes.size(); ++j) {
        meshFirstVertex[j] = vertexCursor;
        meshFirstTriangle[j] = triangleCursor;
        if (!isUsable(meshes[j])) continue;
        const qe::qeTriMesh& mesh = *meshes[j];
        const tFirstPassData::tMeshData& meshData = data.meshes[j];
        std::vector<uint32_t>& records = meshClipRecords[j];

        const int vertexQuantity = mesh.VBuffer->GetVertexQuantity();
        const uint32_t base = vertexCursor;
        for (int i = 0; i < vertexQuantity; ++i) {
            const Wm4::Vector4<float> clip = toClipSpace(mesh, i, space.getWorldToClip());
            BakedVertex& baked = vertices[vertexCursor++];
            if (!isInsideCube(clip, space)) {
                baked = BakedVertex{kOutOfCubeMarker, kOutOfCubeMarker, kOutOfCubeMarker};
                continue;
            }
            int32_t grid[3];
            for (int axis = 0; axis < 3; ++axis)
                grid[axis] = space.quantizeScaled(
                    (clip[axis] / clip[3] - space.getDomainMin()[axis]) * space.getDiscreteScale()[axis], axis);
            baked = BakedVertex{grid[0], grid[1], grid[2]};
        }

        for (uint32_t t = 0; t < meshData.triangleCount; ++t) {
            if (!(meshData.insideBits[t / 32] & (1u << (t % 32)))) continue;
            int corner[3];
            fetchTriangle(mesh, static_cast<int>(t), vertexQuantity, corner);
            addTriangle(base + static_cast<uint32_t>(corner[0]), base + static_cast<uint32_t>(corner[1]),
                        base + static_cast<uint32_t>(corner[2]), nullptr, records);
        }

        for (const tFirstPassData::tClipRecord& clipped : meshData.clipRecords) {
            const uint32_t first = vertexCursor;
            const uint32_t n = static_cast<uint32_t>(clipped.polygon.size());
            for (const Wm4::Vector4<float>& point : clipped.polygon)
                vertices[vertexCursor++] = space.quantizeClipPoint(point);
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
                addTriangle(first, first + k, first + k + 1, &record, records);
            }
        }
    }

    triangles.resize(3 * static_cast<size_t>(triangleCursor));
    planes.resize(triangleCursor);
    if (triangleCursor == 0) return;
    buildHierarchy();
}

bool BakedTriangles::buildHierarchy(qe::qeLinearGenericBVHBuilder::SplitMethod method) {
    hierarchy.clear();
    if (planes.empty()) return false;
    const qe::qeBVHPrimitiveContainerCache<BakedTriangles> container(*this);
    if (!qe::qeLinearGenericBVHBuilder::build(container, hierarchy, nullptr, kMaxLeafSize, method)) return false;
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
    if (triangleQuantity > 0 && hierarchy.isEmpty()) return fail("triangles without a hierarchy");
    if (!hierarchy.validate(static_cast<uint32_t>(triangleQuantity), why)) return false;
    // Refitted leaf boxes must hold their triangles' grid corners.
    for (const qe::qeBVHNode& node : hierarchy.getNodes()) {
        if (!node.isLeaf()) continue;
        for (uint32_t k = node.firstPrimitive(); k < node.firstPrimitive() + node.primitiveCount(); ++k) {
            const uint32_t t = hierarchy.getPrimitives()[k];
            for (int c = 0; c < 3; ++c) {
                const BakedVertex& v = vertices[triangles[3 * static_cast<size_t>(t) + c]];
                const float coordinate[3] = {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
                for (int axis = 0; axis < 3; ++axis)
                    if (!(node.box.Min[axis] <= coordinate[axis] && coordinate[axis] <= node.box.Max[axis]))
                        return fail("leaf box misses triangle " + std::to_string(t));
            }
        }
    }
    return true;
}

}  // namespace ctr
