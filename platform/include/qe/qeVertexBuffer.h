// Per-vertex positions and optional normals.
#ifndef QE_QEVERTEXBUFFER_H
#define QE_QEVERTEXBUFFER_H

#include <vector>

#include "Wm4Vector3.h"
#include "qe/qeAttributes.h"
#include "qe/qeObject.h"

namespace qe {

class qeVertexBuffer : public qeObject {
public:
    // vertexQuantity vertices, all channels zero. A negative count is taken as 0.
    // Any position channel count makes three-float positions; likewise normals.
    qeVertexBuffer(const qeAttributes& attributes, int vertexQuantity);

    const qeRtti& GetType() const override { return TYPE; }
    bool Clone(qeRttiInterface*& target) const override;

    const qeAttributes& GetAttributes() const { return m_attributes; }
    int GetVertexQuantity() const { return m_vertexQuantity; }

    // Indices must lie in [0, GetVertexQuantity()); the buffer must carry the
    // channel asked for.
    Wm4::Vector3<float>& Position3(int i) { return m_positions[static_cast<size_t>(i)]; }
    const Wm4::Vector3<float>& Position3(int i) const { return m_positions[static_cast<size_t>(i)]; }
    Wm4::Vector3<float>& Normal3(int i) { return m_normals[static_cast<size_t>(i)]; }
    const Wm4::Vector3<float>& Normal3(int i) const { return m_normals[static_cast<size_t>(i)]; }

    static const qeRtti TYPE;

private:
    qeAttributes m_attributes;
    int m_vertexQuantity;
    std::vector<Wm4::Vector3<float>> m_positions;
    std::vector<Wm4::Vector3<float>> m_normals;
};

}  // namespace qe

#endif
