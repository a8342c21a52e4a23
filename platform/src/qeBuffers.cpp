#include <algorithm>

#include "qe/qeIndexBuffer.h"
#include "qe/qeVertexBuffer.h"

namespace qe {

namespace {

size_t countOrZero(int quantity) { return quantity > 0 ? static_cast<size_t>(quantity) : 0u; }

// The shared Clone contract: a null target gets a copy, a target of the same
// class is assigned, any other target is refused untouched.
template <class T>
bool cloneInto(const T& source, qeRttiInterface*& target) {
    if (!target) {
        target = new T(source);
        return true;
    }
    T* typed = dynamic_cast<T*>(target);
    if (!typed) return false;
    if (typed != &source) *typed = source;
    return true;
}

}  // namespace

const qeRtti qeVertexBuffer::TYPE("qe.qeVertexBuffer", &qeObject::TYPE);
const qeRtti qeIndexBuffer::TYPE("qe.qeIndexBuffer", &qeObject::TYPE);

qeVertexBuffer::qeVertexBuffer(const qeAttributes& attributes, int vertexQuantity)
    : m_attributes(attributes),
      m_vertexQuantity(static_cast<int>(countOrZero(vertexQuantity))),
      m_positions(attributes.HasPosition() ? countOrZero(vertexQuantity) : 0u),
      m_normals(attributes.HasNormal() ? countOrZero(vertexQuantity) : 0u) {}

bool qeVertexBuffer::Clone(qeRttiInterface*& target) const { return cloneInto(*this, target); }

qeIndexBuffer::qeIndexBuffer(int indexQuantity, IndexBufferType type)
    : m_indices(countOrZero(indexQuantity), 0u), m_type(type) {}

bool qeIndexBuffer::Clone(qeRttiInterface*& target) const { return cloneInto(*this, target); }

void qeIndexBuffer::resizeIndexBuffer(int indexQuantity) { m_indices.resize(countOrZero(indexQuantity), 0u); }

}  // namespace qe
