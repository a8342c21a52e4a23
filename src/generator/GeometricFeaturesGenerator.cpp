#include "ctr/GeometricFeaturesGenerator.h"

#include "qe/qeCancelInterface.h"
#include "qe/qeMetadata.h"
#include "qe/qeTriMesh.h"

#include "ctr/PreparedModel.h"
#include "generator/GeneratorInternal.h"
#include "parallel/Chunks.h"

namespace ctr {

namespace {

// The crease angle of the feature computation, in degrees.
constexpr float kCreaseAngleDegrees = 5.0f;

// The first outline record attached to a mesh, if any.
const qe::qeOutlineMetadata* FindOutline(const qe::qeTriMesh& mesh) {
    for (int i = 0; i < mesh.GetMetadataQuantity(); ++i) {
        const qe::qeMetadata* metadata = mesh.GetMetadata(i);
        if (metadata && metadata->GetMetadataTypeId() == qe::qeOutlineMetadata::MetadataTypeId)
            return static_cast<const qe::qeOutlineMetadata*>(metadata);
    }
    return nullptr;
}

}  // namespace

GeometricFeaturesGenerator::GeometricFeaturesGenerator() : internal(new tInternal) {}

GeometricFeaturesGenerator::~GeometricFeaturesGenerator() = default;

void GeometricFeaturesGenerator::setProjectionSpace(const DiscreteProjectionSpace& space) {
    internal->projectionSpace = space;
}

void GeometricFeaturesGenerator::setProgressNotifier(qe::qeProgressNotifierInterface* notifier) {
    internal->progressNotifier = notifier;
}

void GeometricFeaturesGenerator::setExecutor(Executor* executor) { internal->executor = executor; }

void GeometricFeaturesGenerator::setStepObserver(FeatureStepObserver* observer) { internal->stepObserver = observer; }

void GeometricFeaturesGenerator::setRemoveDuplicateCreases(bool remove) { internal->removeDuplicateCreases = remove; }

int GeometricFeaturesGenerator::getRemovedDuplicateCreases() const { return internal->removedDuplicateCreases; }

FeatureStepObserver::~FeatureStepObserver() = default;

void GeometricFeaturesGenerator::setSingleExportCluster(const std::vector<const qe::qeTriMesh*>& meshes,
                                                        const std::vector<const qe::qeTriMesh*>* occluders) {
    internal->prepared = nullptr;
    internal->clusterMeshes.assign(1, meshes);
    if (occluders && !occluders->empty())
        internal->clusterOccluders.assign(1, *occluders);
    else
        internal->clusterOccluders.clear();
    internal->initBakedTriangles();
}

void GeometricFeaturesGenerator::setPreparedModel(const PreparedModel* model) {
    if (!model) {
        internal->prepared = nullptr;
        internal->clusterMeshes.clear();
        internal->clusterOccluders.clear();
        internal->initBakedTriangles();
        return;
    }
    setSingleExportCluster(model->getMeshes(), &model->getOccluders());
    internal->prepared = model;
}

BakedTriangles& GeometricFeaturesGenerator::getBakedTriangles(unsigned int cluster) {
    return internal->bakedTriangles[cluster];
}

void GeometricFeaturesGenerator::tInternal::initBakedTriangles() {
    const size_t clusterCount = clusterMeshes.size();
    bakedTriangles.clear();
    occluderTriangles.clear();
    bakedTriangles.resize(clusterCount);
    occluderTriangles.resize(clusterCount);
    const std::vector<const qe::qeTriMesh*> none;
    for (size_t i = 0; i < clusterCount; ++i) {
        bakedTriangles[i].setProjectionSpace(&projectionSpace);
        bakedTriangles[i].setExecutor(executor);
        bakedTriangles[i].setMeshes(clusterMeshes[i]);
        bakedTriangles[i].initialize();
        occluderTriangles[i].setProjectionSpace(&projectionSpace);
        occluderTriangles[i].setExecutor(executor);
        occluderTriangles[i].setMeshes(i < clusterOccluders.size() ? clusterOccluders[i] : none);
        occluderTriangles[i].initialize();
    }
}

LineSegmentSet* ExtractCreaseEdges(const std::vector<const qe::qeTriMesh*>& meshes, Executor* executor) {
    OwnedSets perMesh(meshes.size());
    // Crease extraction of the feature computation is never cancelled.
    const bool neverCancelled = false;
    const qe::qeCancelInterfaceProxyReadOnly proxy(neverCancelled);
    // Meshes are independent; each one's set lands in its own slot, so the
    // fused set keeps the mesh order.
    ForEachTask(executor, meshes.size(), [&](size_t m) {
        const qe::qeTriMesh* mesh = meshes[m];
        if (!mesh) return;
        if (const qe::qeOutlineMetadata* outline = FindOutline(*mesh))
            perMesh.sets[m] = LineSegmentSet::GetOutlineEdgesFromTriMesh(mesh, outline->getIBuffer());
        else
            perMesh.sets[m] = LineSegmentSet::GetCreaseEdgesFromTriMesh(mesh, proxy, kCreaseAngleDegrees, false);
    });
    return LineSegmentSet::FuseLineSegmentSets(perMesh.sets);
}

LineSegmentSet* GeometricFeaturesGenerator::tInternal::computeCreaseEdges(unsigned int cluster) const {
    if (cluster >= clusterMeshes.size()) return nullptr;
    // The prepared model made the same set from the same meshes once.
    if (prepared && cluster == 0) return prepared->copyCreaseEdges();
    return ExtractCreaseEdges(clusterMeshes[cluster], executor);
}

}  // namespace ctr
