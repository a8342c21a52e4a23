// A model prepared once to be drawn from many cameras. What a view computes
// without its camera (the crease and outline edges of the meshes, in world
// space) is computed here once; each view then bakes the meshes for its own
// camera in a generator of its own and starts from a copy of those edges.
#ifndef CTR_PREPAREDMODEL_H
#define CTR_PREPAREDMODEL_H

#include <vector>

#include "qe/qePointer.h"

#include "ctr/Executor.h"
#include "ctr/Export.h"
#include "ctr/LineSegmentSet.h"

namespace qe {
class qeTriMesh;
}

namespace ctr {

// Usage: prepare once, then per camera
//
//     GeometricFeaturesGenerator generator;
//     generator.setProjectionSpace(space);
//     generator.setPreparedModel(&model);
//     generator.computeGeometricFeatures(features, 0, true);
//
// which gives the features that setSingleExportCluster with the same meshes
// and occluders gives, bit for bit.
//
// Lifetime: the meshes and occluders are borrowed, not copied. They must not
// change (vertices, indices, placement, outline metadata) and must outlive
// the prepared model, which must in turn outlive every generator it is set
// on.
//
// Threads: the prepared model is immutable once constructed. Any number of
// generators on any threads may use one prepared model at the same time; each
// view owns its generator, its bake and its copy of the edges. The only state
// they share is the world-space vertex buffer of the edges, which no step
// writes (its reference count is atomic).
class CTR_API PreparedModel {
public:
    // Extracts the edges of meshes (null entries skipped) on executor when
    // one is given (only for the duration of the constructor); occluders
    // (null or empty for none) hide lines and are only kept for the views.
    PreparedModel(const std::vector<const qe::qeTriMesh*>& meshes, const std::vector<const qe::qeTriMesh*>* occluders,
                  Executor* executor = nullptr);
    ~PreparedModel();
    PreparedModel(const PreparedModel&) = delete;
    PreparedModel& operator=(const PreparedModel&) = delete;

    const std::vector<const qe::qeTriMesh*>& getMeshes() const { return meshes; }
    const std::vector<const qe::qeTriMesh*>& getOccluders() const { return occluders; }

    // Per mesh, its outline metadata's lines when it carries any, else its
    // crease edges; fused into one world-space set without occlusion data.
    // Null when no mesh has a line. Shared by every view: never to be edited.
    const LineSegmentSet* getCreaseEdges() const { return creaseEdges; }

    // A set for one view to edit (common segments removed, occlusion stored):
    // the vertex buffer shared, the index buffer, flags and occlusion data its
    // own, everything else as getCreaseEdges() has it. A new set with no
    // reference yet (the caller owns it), or null when there are no edges.
    LineSegmentSet* copyCreaseEdges() const;

private:
    std::vector<const qe::qeTriMesh*> meshes;
    std::vector<const qe::qeTriMesh*> occluders;
    qe::qePointer<LineSegmentSet> creaseEdges;
};

}  // namespace ctr

#endif
