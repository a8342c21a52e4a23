// Typed records that a scene attaches to its geometry.
#ifndef QE_QEMETADATA_H
#define QE_QEMETADATA_H

#include "qe/qeIndexBuffer.h"
#include "qe/qeObject.h"
#include "qe/qePointer.h"

namespace qe {

class qeMetadata : public qeObject {
public:
    const qeRtti& GetType() const override { return TYPE; }
    virtual unsigned int GetMetadataTypeId() const = 0;

    static const qeRtti TYPE;
};

// Ready-made feature lines of a mesh: a line index buffer over the mesh's own
// vertex buffer, two indices per segment.
class qeOutlineMetadata : public qeMetadata {
public:
    static constexpr unsigned int MetadataTypeId = 0x4F55544Cu;  // "OUTL"

    explicit qeOutlineMetadata(qeIndexBuffer* lines = nullptr) : m_lines(lines) {}

    const qeRtti& GetType() const override { return TYPE; }
    unsigned int GetMetadataTypeId() const override { return MetadataTypeId; }

    qePointer<qeIndexBuffer> getIBuffer() const { return m_lines; }
    void setIBuffer(qeIndexBuffer* lines) { m_lines = lines; }

    static const qeRtti TYPE;

private:
    qePointer<qeIndexBuffer> m_lines;
};

}  // namespace qe

#endif
