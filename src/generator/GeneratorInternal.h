// The private state of GeometricFeaturesGenerator.
#ifndef CTR_GENERATOR_GENERATORINTERNAL_H
#define CTR_GENERATOR_GENERATORINTERNAL_H

#include <vector>

#include "qe/qeProgressNotifierInterface.h"

#include "ctr/BakedTriangles.h"
#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/Executor.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/LineSegmentSet.h"
#include "ctr/PreparedModel.h"

namespace ctr {

// Per-mesh line sets, deleted with the list once they have been fused.
struct OwnedSets {
    std::vector<LineSegmentSet*> sets;
    explicit OwnedSets(size_t count) : sets(count, nullptr) {}
    ~OwnedSets() {
        for (LineSegmentSet* set : sets) delete set;
    }
    OwnedSets(const OwnedSets&) = delete;
    OwnedSets& operator=(const OwnedSets&) = delete;
};

// Per mesh of meshes (null entries skipped), its outline metadata's lines
// when it carries any, else its crease edges; fused into one world-space set.
// Null when no mesh has a line. Runs on executor when there is one.
LineSegmentSet* ExtractCreaseEdges(const std::vector<const qe::qeTriMesh*>& meshes, Executor* executor);

class GeometricFeaturesGenerator::tInternal {
public:
    void initBakedTriangles();
    // Per mesh of the cluster, its outline metadata's lines when it carries
    // any, else its crease edges; fused into one world-space set. Null for an
    // unknown cluster or when no mesh has a line. Cluster 0 of a prepared
    // model gets a copy of the prepared set.
    LineSegmentSet* computeCreaseEdges(unsigned int cluster) const;
    // The silhouette edges of the cluster's baked meshes, fused into one
    // world-space set; null when there are none.
    LineSegmentSet* computeSilhouetteEdges(unsigned int cluster) const;
    // Whether computeCreasesAndSilhouettes runs the two side by side: with
    // an executor, unless the creases are a prepared model's copy.
    bool creasesBesideSilhouettes(unsigned int cluster) const;
    // Both sets, side by side when creasesBesideSilhouettes: they read the
    // meshes and the bake and share nothing else. Each then runs on one
    // thread, as an executor need not take a loop from inside another.
    // seconds, when given, gets the time each took.
    void computeCreasesAndSilhouettes(unsigned int cluster, qe::qePointer<LineSegmentSet>& creases,
                                      qe::qePointer<LineSegmentSet>& silhouettes, double* seconds = nullptr) const;
    // The visible pieces of the lines where the cluster's triangles cut each
    // other; null when there are none or when cancelled. hidden, when given,
    // gets their hidden pieces.
    LineSegmentSet* computeIntersectionEdges(unsigned int cluster,
                                             qe::qePointer<LineSegmentSet>* hidden = nullptr) const;

    // The baked triangles point at this member: tInternal never moves.
    DiscreteProjectionSpace projectionSpace;
    std::vector<std::vector<const qe::qeTriMesh*>> clusterMeshes;
    std::vector<std::vector<const qe::qeTriMesh*>> clusterOccluders;
    std::vector<BakedTriangles> bakedTriangles;
    std::vector<BakedTriangles> occluderTriangles;
    qe::qeProgressNotifierInterface* progressNotifier = nullptr;
    Executor* executor = nullptr;
    FeatureStepObserver* stepObserver = nullptr;
    bool removeDuplicateCreases = false;
    int removedDuplicateCreases = 0;
    // Set by setPreparedModel, cleared by setSingleExportCluster.
    const PreparedModel* prepared = nullptr;
};

}  // namespace ctr

#endif
