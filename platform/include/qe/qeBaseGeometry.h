// Geometry: a vertex buffer and an index buffer, placed by qeSpatial.
#ifndef QE_QEBASEGEOMETRY_H
#define QE_QEBASEGEOMETRY_H

#include <vector>

#include "qe/qeIndexBuffer.h"
#include "qe/qeMetadata.h"
#include "qe/qePointer.h"
#include "qe/qeSpatial.h"
#include "qe/qeVertexBuffer.h"

namespace qe {

class qeBaseGeometry : public qeSpatial {
public:
    // Primitive kinds; the numbering is part of the framework's interface.
    enum GeometryType {
        GT_POLYPOINT = 0,
        GT_POLYLINE_SEGMENTS = 1,
        GT_POLYLINE_OPEN = 2,
        GT_POLYLINE_CLOSED = 3,
        GT_TRIMESH = 4,
    };

    const qeRtti& GetType() const override { return TYPE; }
    int GetGeometryType() const { return m_geometryType; }

    // Refreshes the model-space state after the buffers changed: the model
    // bound when updateModelBound is true. updateNormals and normalSource are
    // accepted for interface compatibility; this layer keeps normals as given.
    void UpdateMS(bool updateModelBound = true, bool updateNormals = false, int normalSource = 0);

    qePointer<qeVertexBuffer> VBuffer;
    qePointer<qeIndexBuffer> IBuffer;
    qeBBox ModelBound;

    int GetMetadataQuantity() const { return static_cast<int>(m_metadata.size()); }
    qeMetadata* GetMetadata(int i) const { return m_metadata[static_cast<size_t>(i)]; }
    void AttachMetadata(qeMetadata* metadata) { m_metadata.push_back(metadata); }

    static const qeRtti TYPE;

protected:
    qeBaseGeometry(int geometryType, qeVertexBuffer* vertices, qeIndexBuffer* indices);
    qeBBox computeModelBound() const override { return ModelBound; }
    // Copies the buffers (shared), placement, bounds and metadata list.
    void copyGeometryState(qeBaseGeometry& target) const;

private:
    int m_geometryType;
    std::vector<qePointer<qeMetadata>> m_metadata;
};

}  // namespace qe

#endif
