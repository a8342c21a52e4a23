#include <chrono>
#include <cstdint>

#include "ctr/GeometricFeaturesGenerator.h"
#include "ctr/TrianglesIntersection.h"
#include "generator/GeneratorInternal.h"
#include "parallel/Chunks.h"

namespace ctr {

LineSegmentSet* GeometricFeaturesGenerator::tInternal::computeSilhouetteEdges(unsigned int cluster) const {
    if (cluster >= bakedTriangles.size()) return nullptr;
    OwnedSets perMesh(0);
    bakedTriangles[cluster].computeSilhouetteEdges(perMesh.sets);
    return LineSegmentSet::FuseLineSegmentSets(perMesh.sets);
}

bool GeometricFeaturesGenerator::tInternal::creasesBesideSilhouettes(unsigned int cluster) const {
    return executor && cluster < clusterMeshes.size() && cluster < bakedTriangles.size() &&
           !(prepared && cluster == 0);
}

void GeometricFeaturesGenerator::tInternal::computeCreasesAndSilhouettes(unsigned int cluster,
                                                                        qe::qePointer<LineSegmentSet>& creases,
                                                                        qe::qePointer<LineSegmentSet>& silhouettes,
                                                                        double* seconds) const {
    const auto timed = [seconds](int which, const auto& find) {
        const auto start = std::chrono::steady_clock::now();
        find();
        if (seconds)
            seconds[which] = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    if (!creasesBesideSilhouettes(cluster)) {
        timed(0, [&] { creases = computeCreaseEdges(cluster); });
        timed(1, [&] { silhouettes = computeSilhouetteEdges(cluster); });
        return;
    }
    // Each set is owned by its pointer as soon as it is made, so that neither
    // leaks when the other throws.
    ForEachTask(executor, 2, [&](size_t which) {
        timed(static_cast<int>(which), [&] {
            if (which == 0)
                creases = ExtractCreaseEdges(clusterMeshes[cluster], nullptr);
            else
                silhouettes = computeSilhouetteEdges(cluster);
        });
    });
}

LineSegmentSet* GeometricFeaturesGenerator::tInternal::computeIntersectionEdges(
    unsigned int cluster, qe::qePointer<LineSegmentSet>* hidden) const {
    if (cluster >= bakedTriangles.size()) return nullptr;
    // Only the cluster's own triangles cut each other; hide-only meshes do
    // not take part.
    TrianglesIntersection intersection(bakedTriangles[cluster]);
    intersection.setProgressNotifier(progressNotifier);
    intersection.setExecutor(executor);
    return intersection.computeIntersectionEdges(hidden);
}

void GeometricFeaturesGenerator::computeGeometricFeatures(GeometricFeatures& features, unsigned int cluster,
                                                          bool removeCommonSegments) {
    computeGeometricFeatures(features, cluster, removeCommonSegments, nullptr);
}

void GeometricFeaturesGenerator::computeGeometricFeatures(GeometricFeatures& features, unsigned int cluster,
                                                          bool removeCommonSegments,
                                                          qe::qePointer<LineSegmentSet>* hiddenIntersectionEdges) {
    if (hiddenIntersectionEdges) *hiddenIntersectionEdges = nullptr;
    internal->removedDuplicateCreases = 0;
    const tInternal& state = *internal;
    qe::qeProgressNotifierInterface* notifier = state.progressNotifier;
    const auto cancelled = [notifier]() { return notifier && notifier->shouldCancel(); };
    const auto segments = [](const qe::qePointer<LineSegmentSet>& set) -> uint32_t {
        return set && set->IBuffer ? static_cast<uint32_t>(set->IBuffer->GetIndexQuantity()) >> 1 : 0u;
    };

    // Announces kFinished on every way out.
    struct tSteps {
        FeatureStepObserver* observer;
        void start(FeatureStep step) const {
            if (observer) observer->stepStarted(step);
        }
        ~tSteps() { start(FeatureStep::kFinished); }
    } steps{state.stepObserver};

    // One step with an executor, side by side or not, so that a host's
    // timing has the same steps for a prepared model as for fresh meshes.
    if (state.executor) {
        steps.start(FeatureStep::kCreasesAndSilhouettes);
        state.computeCreasesAndSilhouettes(cluster, features.creaseEdges, features.silhouetteEdges);
    } else {
        steps.start(FeatureStep::kCreases);
        features.creaseEdges = state.computeCreaseEdges(cluster);
        if (cancelled()) return;
        steps.start(FeatureStep::kSilhouettes);
        features.silhouetteEdges = state.computeSilhouetteEdges(cluster);
    }
    if (removeCommonSegments) {
        steps.start(FeatureStep::kCommonSegments);
        LineSegmentSet::RemoveCommonSegments(features.creaseEdges, features.silhouetteEdges);
        // A crease set whose every segment was a silhouette is no set at all.
        if (features.creaseEdges && !features.creaseEdges->IBuffer) features.creaseEdges = nullptr;
    }
    // Duplicates share their key, so the common segments took all copies of
    // a crease or none: removing them now or after the occlusion leaves the
    // same first copies.
    if (state.removeDuplicateCreases && features.creaseEdges)
        internal->removedDuplicateCreases = LineSegmentSet::RemoveDuplicateSegments(features.creaseEdges);
    if (notifier) {
        if (cancelled()) return;
        const uint32_t triangles =
            cluster < state.bakedTriangles.size() ? state.bakedTriangles[cluster].getTriangleQuantity() : 0u;
        // Summed in 32 bits and passed on through float, as the work total
        // has always been announced.
        const uint32_t total = 2u * triangles + segments(features.creaseEdges) + segments(features.silhouetteEdges);
        notifier->setTotalProgress(static_cast<double>(static_cast<float>(total)));
    }
    steps.start(FeatureStep::kOcclusion);
    if (features.creaseEdges) computeOcclusion(*features.creaseEdges, cluster);
    if (cancelled()) return;
    if (features.silhouetteEdges) computeOcclusion(*features.silhouetteEdges, cluster);
    if (cancelled()) return;
    steps.start(FeatureStep::kIntersections);
    features.intersectionEdges = state.computeIntersectionEdges(cluster, hiddenIntersectionEdges);
}

}  // namespace ctr
