// The triangles of one mesh list, baked into discrete projection space, with
// their hierarchy and the exact occlusion query of an edge.
#ifndef CTR_BAKEDTRIANGLES_H
#define CTR_BAKEDTRIANGLES_H

#include <cstdint>
#include <string>
#include <vector>

#include "Wm4Vector3.h"
#include "qe/qeBBox.h"
#include "qe/qeGenericBVH.h"
#include "qe/qeLinearGenericBVHBuilder.h"

#include "ctr/BakedVertex.h"
#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/Executor.h"
#include "ctr/Export.h"
#include "ctr/RationalInterval.h"

namespace qe {
class qeTriMesh;
}

namespace ctr {

class LineSegmentSet;

// Every stored triangle lies inside the clip cube (triangles that cross it are
// clipped and re-triangulated as fans), runs counter-clockwise in grid x, y,
// and carries the plane record N = (P2 - P0) x (P1 - P0), so that Nz < 0 and
// (X - P0) . N < 0 exactly when X lies behind the triangle's plane.
//
// Neither the meshes nor the projection space are owned: both must outlive
// the object, and neither may change between initialize() and the queries.
// Reading operations are const and may run on several threads at once.
class CTR_API BakedTriangles {
public:
    // Grid position stored for a source vertex behind the viewer or outside
    // the cube. No stored triangle uses it as a corner.
    static constexpr int32_t kOutOfCubeMarker = 268435456;  // 2^28
    // Clip records name the source triangle in their low 26 bits; above them,
    // two bits per slot j = 0, 1, 2 code the side of the stored triangle that
    // ends at corner j: 0 for a side made by a clip plane or a fan diagonal,
    // else the source edge it lies on (1: C->A, 2: A->B, 3: B->C).
    static constexpr uint32_t kClipRecordTriangleMask = 0x03FFFFFFu;
    static constexpr unsigned int kClipRecordCodeShift = 26;

    // What the counting pass hands to the storing pass. Its contents belong
    // to the library's private headers.
    struct tFirstPassData;

    BakedTriangles();
    ~BakedTriangles();
    BakedTriangles(const BakedTriangles&);
    BakedTriangles& operator=(const BakedTriangles&);
    BakedTriangles(BakedTriangles&&) noexcept;
    BakedTriangles& operator=(BakedTriangles&&) noexcept;

    // Copies the list; null entries and meshes that are not triangle lists
    // are kept in it but baked as empty.
    void setMeshes(const std::vector<const qe::qeTriMesh*>& meshList);
    void setProjectionSpace(const DiscreteProjectionSpace* space);
    // Not owned; null (the default) bakes and extracts on the calling
    // thread. The results are the same either way.
    void setExecutor(Executor* host) { executor = host; }
    Executor* getExecutor() const { return executor; }

    // Bakes the meshes: clears, counts and clips (first pass), then stores
    // vertices, triangles and plane records with every list allocated once,
    // and builds and refits the hierarchy. Without a projection space nothing
    // is baked. Source triangles whose indices fall outside their vertex
    // buffer are dropped.
    void initialize();
    // The counting and clipping pass of initialize(); data is overwritten.
    void initializeFirstPass(tFirstPassData& data);
    // Empties the baked lists (capacity kept); meshes and space stay.
    void clearData();

    // A new mesh (no reference taken yet) of the baked triangles in world
    // space, for inspection: one vertex per baked vertex, taken back through
    // the inverse projection. Marker vertices map to wherever 2^28 maps.
    qe::qeTriMesh* computeBakedMesh() const;

    // Per mesh, in mesh order, a new set (owned by the caller) of the mesh
    // edges along which the baked surface folds away from the viewer, and of
    // its borders, in the mesh's model space; null for a mesh without any.
    // False, leaving out untouched, when out is not empty on entry; false
    // also for a cluster without meshes or triangles.
    bool computeSilhouetteEdges(std::vector<LineSegmentSet*>& out) const;

    // Appends to list one interval of the edge parameter (0 at a, 1 at b) per
    // triangle that hides part of the edge a->b; never clears list. Edge ends
    // off the baked grid are first clamped onto it.
    void computeOcclusionIntervals(const BakedVertex& a, const BakedVertex& b,
                                   std::vector<RationalInterval>& list) const;
    void computeOcclusionIntervalsIter(unsigned int node, const BakedVertex& a, const BakedVertex& b,
                                       const qe::qeBBox& box, std::vector<RationalInterval>& list) const;
    // Refits the box of node and of its subtree to the grid coordinates of
    // the triangles below it.
    void computeBakedBVHBBox(unsigned int node);
    // Builds the hierarchy over the baked triangles anew and refits it.
    // initialize() calls it with the default method; another method is for
    // comparing builders (the benchmarks do). Returns false, leaving no
    // hierarchy, when there is no triangle or the builder refuses.
    bool buildHierarchy(
        qe::qeLinearGenericBVHBuilder::SplitMethod method = qe::qeLinearGenericBVHBuilder::SPLIT_BINNED_SAH);

    // The hierarchy builder's view of the triangles: their world-space boxes.
    uint32_t getPrimitiveQuantity() const { return getTriangleQuantity(); }
    void computePrimitiveBBox(uint32_t triangle, qe::qeBBox& box) const;

    // Checks the baked data against its invariants: corners in range and on
    // the grid, counter-clockwise winding, plane records, per-mesh ranges,
    // and the hierarchy (structure and refitted boxes). For tests and
    // debugging; linear in the data.
    bool validate(std::string* why = nullptr) const;

    const DiscreteProjectionSpace* getProjectionSpace() const { return projectionSpace; }
    const std::vector<const qe::qeTriMesh*>& getMeshes() const { return meshes; }
    const std::vector<BakedVertex>& getVertices() const { return vertices; }
    const std::vector<uint32_t>& getTriangles() const { return triangles; }
    const std::vector<Wm4::Vector3<int64_t>>& getPlanes() const { return planes; }
    const std::vector<uint32_t>& getMeshFirstVertex() const { return meshFirstVertex; }
    const std::vector<uint32_t>& getMeshFirstTriangle() const { return meshFirstTriangle; }
    const std::vector<std::vector<uint32_t>>& getMeshClipRecords() const { return meshClipRecords; }
    const qe::qeGenericBVH& getHierarchy() const { return hierarchy; }
    uint32_t getTriangleQuantity() const { return static_cast<uint32_t>(planes.size()); }
    // One past the last baked triangle of mesh m.
    uint32_t getMeshTriangleEnd(uint32_t mesh) const;

private:
    // The traversal and refit kernels, defined where they are used.
    struct tKernels;

    const DiscreteProjectionSpace* projectionSpace;
    Executor* executor = nullptr;
    std::vector<const qe::qeTriMesh*> meshes;
    std::vector<BakedVertex> vertices;
    std::vector<uint32_t> triangles;
    std::vector<Wm4::Vector3<int64_t>> planes;
    std::vector<uint32_t> meshFirstVertex;
    std::vector<uint32_t> meshFirstTriangle;
    std::vector<std::vector<uint32_t>> meshClipRecords;
    qe::qeGenericBVH hierarchy;
    // Largest grid coordinate per axis when the data was baked; query edges
    // are clamped to it, which keeps every product inside the bit budget.
    BakedVertex gridLimit;
};

}  // namespace ctr

#endif
