// Triangle list geometry: three indices per triangle.
#ifndef QE_QETRIMESH_H
#define QE_QETRIMESH_H

#include "qe/qeBaseGeometry.h"

namespace qe {

class qeTriMesh : public qeBaseGeometry {
public:
    // Either buffer may be null; the mesh takes a reference on both.
    qeTriMesh(qeVertexBuffer* vertices, qeIndexBuffer* indices);

    const qeRtti& GetType() const override { return TYPE; }

    // Index count / 3; 0 without an index buffer.
    virtual int GetTriangleQuantity() const;
    // False, with the outputs untouched, when i is out of range.
    virtual bool GetTriangle(int i, int& v0, int& v1, int& v2) const;

    static const qeRtti TYPE;
};

}  // namespace qe

#endif
