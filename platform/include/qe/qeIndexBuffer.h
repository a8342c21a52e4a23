// A list of 32-bit vertex indices: triangles (three per primitive) or line
// segments (two per primitive).
#ifndef QE_QEINDEXBUFFER_H
#define QE_QEINDEXBUFFER_H

#include <vector>

#include "qe/qeObject.h"

namespace qe {

class qeIndexBuffer : public qeObject {
public:
    enum IndexBufferType { IBT_TRIANGLE_LIST = 0, IBT_LINE_LIST = 1 };

    // indexQuantity indices, all zero. A negative count is taken as 0.
    qeIndexBuffer(int indexQuantity, IndexBufferType type);

    const qeRtti& GetType() const override { return TYPE; }
    bool Clone(qeRttiInterface*& target) const override;

    IndexBufferType GetIndexBufferType() const { return m_type; }
    int GetIndexQuantity() const { return static_cast<int>(m_indices.size()); }
    unsigned int* GetData() { return m_indices.data(); }
    const unsigned int* GetData() const { return m_indices.data(); }

    // Keeps the leading indices; new ones are zero. A negative count is taken as 0.
    void resizeIndexBuffer(int indexQuantity);

    static const qeRtti TYPE;

private:
    std::vector<unsigned int> m_indices;
    IndexBufferType m_type;
};

}  // namespace qe

#endif
