// The private state of GeometricFeaturesGenerator.
#ifndef CTR_GENERATOR_GENERATORINTERNAL_H
#define CTR_GENERATOR_GENERATORINTERNAL_H

#include <vector>

#include "qe/qeProgressNotifierInterface.h"

#include "ctr/BakedTriangles.h"
#include "ctr/DiscreteProjectionSpace.h"
#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/LineSegmentSet.h"

namespace ctr {

class GeometricFeaturesGenerator::tInternal {
public:
    void initBakedTriangles();
    // Per mesh of the cluster, its outline metadata's lines when it carries
    // any, else its crease edges; fused into one world-space set. Null for an
    // unknown cluster or when no mesh has a line.
    LineSegmentSet* computeCreaseEdges(unsigned int cluster) const;

    // The baked triangles point at this member: tInternal never moves.
    DiscreteProjectionSpace projectionSpace;
    std::vector<std::vector<const qe::qeTriMesh*>> clusterMeshes;
    std::vector<std::vector<const qe::qeTriMesh*>> clusterOccluders;
    std::vector<BakedTriangles> bakedTriangles;
    std::vector<BakedTriangles> occluderTriangles;
    qe::qeProgressNotifierInterface* progressNotifier = nullptr;
};

}  // namespace ctr

#endif
