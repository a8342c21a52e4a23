#include "qe/qeBaseGeometry.h"
#include "qe/qeLine.h"
#include "qe/qeMetadata.h"
#include "qe/qeProgressNotifierInterface.h"
#include "qe/qeSpatial.h"
#include "qe/qeTriMesh.h"

namespace qe {

const qeRtti qeSpatial::TYPE("qe.qeSpatial", &qeObject::TYPE);
const qeRtti qeBaseGeometry::TYPE("qe.qeBaseGeometry", &qeSpatial::TYPE);
const qeRtti qeTriMesh::TYPE("qe.qeTriMesh", &qeBaseGeometry::TYPE);
const qeRtti qeLine::TYPE("qe.qeLine", &qeBaseGeometry::TYPE);
const qeRtti qeMetadata::TYPE("qe.qeMetadata", &qeObject::TYPE);
const qeRtti qeOutlineMetadata::TYPE("qe.qeOutlineMetadata", &qeMetadata::TYPE);

void qeSpatial::UpdateGS() {
    if (!WorldIsCurrent) World = Local;
    UpdateWorldBound();
}

void qeSpatial::UpdateWorldBound() {
    const qeBBox model = computeModelBound();
    WorldBound.makeEmpty();
    if (!model.isEmpty()) {
        for (int corner = 0; corner < 8; ++corner) {
            const Wm4::Vector3<float> point(corner & 1 ? model.Max[0] : model.Min[0],
                                            corner & 2 ? model.Max[1] : model.Min[1],
                                            corner & 4 ? model.Max[2] : model.Min[2]);
            WorldBound.include(World.ApplyForward(point, true));
        }
    }
    WorldBoundIsCurrent = true;
}

qeBaseGeometry::qeBaseGeometry(int geometryType, qeVertexBuffer* vertices, qeIndexBuffer* indices)
    : VBuffer(vertices), IBuffer(indices), m_geometryType(geometryType) {}

void qeBaseGeometry::UpdateMS(bool updateModelBound, bool, int) {
    if (!updateModelBound) return;
    ModelBound.makeEmpty();
    if (VBuffer && VBuffer->GetAttributes().HasPosition())
        for (int i = 0; i < VBuffer->GetVertexQuantity(); ++i) ModelBound.include(VBuffer->Position3(i));
}

void qeBaseGeometry::copyGeometryState(qeBaseGeometry& target) const {
    target.VBuffer = VBuffer;
    target.IBuffer = IBuffer;
    target.ModelBound = ModelBound;
    target.Local = Local;
    target.World = World;
    target.WorldIsCurrent = WorldIsCurrent;
    target.WorldBound = WorldBound;
    target.WorldBoundIsCurrent = WorldBoundIsCurrent;
    target.m_metadata = m_metadata;
}

qeTriMesh::qeTriMesh(qeVertexBuffer* vertices, qeIndexBuffer* indices)
    : qeBaseGeometry(GT_TRIMESH, vertices, indices) {}

int qeTriMesh::GetTriangleQuantity() const { return IBuffer ? IBuffer->GetIndexQuantity() / 3 : 0; }

bool qeTriMesh::GetTriangle(int i, int& v0, int& v1, int& v2) const {
    if (i < 0 || i >= GetTriangleQuantity()) return false;
    const unsigned int* indices = IBuffer->GetData() + 3 * static_cast<size_t>(i);
    v0 = static_cast<int>(indices[0]);
    v1 = static_cast<int>(indices[1]);
    v2 = static_cast<int>(indices[2]);
    return true;
}

qeLine::qeLine(int vertexQuantity, int indexQuantity, bool contiguous)
    : qeBaseGeometry(contiguous ? GT_POLYLINE_OPEN : GT_POLYLINE_SEGMENTS, nullptr, nullptr) {
    if (vertexQuantity > 0) {
        qeAttributes attributes;
        attributes.SetPositionChannels(3);
        VBuffer = new qeVertexBuffer(attributes, vertexQuantity);
    }
    if (indexQuantity > 0) IBuffer = new qeIndexBuffer(indexQuantity, qeIndexBuffer::IBT_LINE_LIST);
}

bool qeLine::Clone(qeRttiInterface*& target) const {
    if (!target) {
        target = new qeLine(*this);
        return true;
    }
    qeLine* line = dynamic_cast<qeLine*>(target);
    if (!line) return false;
    if (line != this) *line = *this;
    return true;
}

void qeLine::setDirtyDown(bool keepWorldTransformation) {
    if (!keepWorldTransformation) WorldIsCurrent = false;
    WorldBoundIsCurrent = false;
}

qeProgressNotifierInterface::~qeProgressNotifierInterface() = default;

}  // namespace qe
