// The entry of the library: a camera, one export cluster of meshes baked into
// the discrete projection space, and the feature lines computed from them.
#ifndef CTR_GEOMETRICFEATURESGENERATOR_H
#define CTR_GEOMETRICFEATURESGENERATOR_H

#include <memory>
#include <vector>

#include "qe/qePointer.h"
#include "qe/qeProgressNotifierInterface.h"

#include "ctr/BakedTriangles.h"
#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/Executor.h"
#include "ctr/Export.h"
#include "ctr/LineSegmentSet.h"

namespace qe {
class qeTriMesh;
}

namespace ctr {

class PreparedModel;

// The three line sets of one feature computation; any of them may be null.
struct CTR_API GeometricFeatures {
    qe::qePointer<LineSegmentSet> creaseEdges;
    qe::qePointer<LineSegmentSet> silhouetteEdges;
    qe::qePointer<LineSegmentSet> intersectionEdges;
};

// The steps of computeGeometricFeatures, in the order they run. With an
// executor, creases and silhouettes are the single step
// kCreasesAndSilhouettes instead of kCreases and kSilhouettes: creases still
// to be extracted (no prepared model) are found beside the silhouettes, one
// thread each.
enum class FeatureStep {
    kCreases,
    kSilhouettes,
    kCommonSegments,
    kOcclusion,
    kIntersections,
    kFinished,
    kCreasesAndSilhouettes
};

// Told on the calling thread as each step of computeGeometricFeatures begins,
// and with kFinished when the call returns (also when a notifier stopped it
// early), so that a host can time or label the steps. A step that the call
// does not take (kCommonSegments when not asked for) is not announced.
class CTR_API FeatureStepObserver {
public:
    virtual ~FeatureStepObserver();
    virtual void stepStarted(FeatureStep step) = 0;
};

// Set the camera first, then the cluster: baking reads the camera once, and
// the baked triangles keep a pointer to the generator's own copy of it. The
// meshes are borrowed and must outlive the generator's use of them.
class CTR_API GeometricFeaturesGenerator {
public:
    class tInternal;

    GeometricFeaturesGenerator();
    ~GeometricFeaturesGenerator();
    GeometricFeaturesGenerator(const GeometricFeaturesGenerator&) = delete;
    GeometricFeaturesGenerator& operator=(const GeometricFeaturesGenerator&) = delete;

    // Copies the camera. Does not re-bake an existing cluster.
    void setProjectionSpace(const DiscreteProjectionSpace& space);
    // Not owned; null removes it.
    void setProgressNotifier(qe::qeProgressNotifierInterface* notifier);
    // Not owned; null (the default) runs everything on the calling thread.
    // Set it before the cluster to bake in parallel too. The results are the
    // same with any executor; the notifier is only ever called from the
    // thread that called the generator.
    void setExecutor(Executor* executor);
    // Not owned; null (the default) for none.
    void setStepObserver(FeatureStepObserver* observer);
    // With true, computeGeometricFeatures removes the creases that an earlier
    // crease repeats (LineSegmentSet::RemoveDuplicateSegments) once the
    // common segments are gone and before the occlusion, which then has
    // fewer segments to hide: the set is the one that removing them
    // afterwards leaves, as occlusion is computed segment by segment. A mesh
    // with split normals yields each of its creases twice. False (the
    // default) leaves them in. The number removed by the latest computation
    // is getRemovedDuplicateCreases().
    void setRemoveDuplicateCreases(bool remove);
    int getRemovedDuplicateCreases() const;
    // Makes cluster 0 of meshes (whose lines are wanted) and occluders (which
    // only hide lines; null or empty for none) and bakes both lists.
    void setSingleExportCluster(const std::vector<const qe::qeTriMesh*>& meshes,
                                const std::vector<const qe::qeTriMesh*>* occluders);
    // The same with the meshes and occluders of a prepared model, whose crease
    // and outline edges computeGeometricFeatures then copies instead of
    // extracting them again: the features are those that setSingleExportCluster
    // with the same lists gives, bit for bit. The model is borrowed and must
    // outlive the generator's use of it; null empties the cluster list.
    // setSingleExportCluster forgets the model.
    void setPreparedModel(const PreparedModel* model);
    // No range check.
    BakedTriangles& getBakedTriangles(unsigned int cluster);

    // Fills features for the cluster: crease and outline edges, silhouette
    // edges, and (when removeCommonSegments) creases that a silhouette
    // repeats removed, both with their hidden parts; then the visible pieces
    // of the intersection lines. A notifier may stop it between the steps;
    // what was reached stays in features.
    void computeGeometricFeatures(GeometricFeatures& features, unsigned int cluster, bool removeCommonSegments);
    // The same, and when hiddenIntersectionEdges is given, the hidden pieces
    // of the intersection lines into it (see
    // TrianglesIntersection::computeIntersectionEdges); null when there are
    // none or the computation stopped before them. The crease and silhouette
    // sets carry their hidden parts already (see BakeHiddenSegments).
    void computeGeometricFeatures(GeometricFeatures& features, unsigned int cluster, bool removeCommonSegments,
                                  qe::qePointer<LineSegmentSet>* hiddenIntersectionEdges);

    // Clips every segment of set to the view and stores, per segment, its
    // clip record and the merged parameter intervals in which the cluster's
    // triangles hide it. Intervals already in the set are merged with the new
    // ones. A segment out of view, seen end-on, or naming a vertex that does
    // not exist counts as wholly hidden.
    void computeOcclusion(LineSegmentSet& set, unsigned int cluster);

    // A step after computeGeometricFeatures, for a host that wants the
    // cluster's hide-only meshes to hide intersection lines as they hide
    // creases and silhouettes (computeGeometricFeatures tests intersection
    // lines against the cluster's own triangles only, and is left so).
    //
    // Each segment of features.intersectionEdges is clipped and put on the
    // grid as computeOcclusion does it and tested against the occluder
    // triangles alone with the same exact query; the set is then replaced by
    // its visible pieces (BakeVisibleSegments: cut where the hidden parts
    // begin and end, at the 3D points that project there), or by null when
    // the occluders hide all of it. With hiddenIntersectionEdges given, the
    // pieces the occluders hide (BakeHiddenSegments: the same cuts, so the two
    // sides meet on identical points) are appended after the pieces it holds
    // (it may be null), in one world-space set without occlusion data.
    //
    // A segment that no occluder hides keeps its end points exactly, and
    // without occluders or intersection lines nothing changes at all. A
    // segment out of view or seen end-on once back on the grid (a round-off
    // effect: the pieces come from grid points) is kept whole. Runs on the
    // executor when there is one, with the same result; the notifier is
    // only asked whether to stop, and a stop (false) leaves both sets as
    // they were. Returns true otherwise, also when there is nothing to do.
    bool hideIntersectionsBehindOccluders(GeometricFeatures& features, unsigned int cluster,
                                          qe::qePointer<LineSegmentSet>* hiddenIntersectionEdges);

    // The generator's state, for code built against the library's internal
    // headers (its definition is not public).
    const tInternal& getInternal() const { return *internal; }

private:
    std::unique_ptr<tInternal> internal;
};

}  // namespace ctr

#endif
