// Line geometry: a vertex buffer and a line index buffer, with the colour and
// width a renderer draws it with.
#ifndef QE_QELINE_H
#define QE_QELINE_H

#include "Wm4ColorRGBA.h"
#include "qe/qeBaseGeometry.h"

namespace qe {

class qeLine : public qeBaseGeometry {
public:
    // A positive vertexQuantity creates a position-only vertex buffer of that
    // many vertices, a positive indexQuantity a line index buffer (type 1) of
    // that many indices; otherwise the buffer stays null. contiguous marks the
    // indices as one open strip rather than separate pairs.
    qeLine(int vertexQuantity, int indexQuantity, bool contiguous);

    const qeRtti& GetType() const override { return TYPE; }
    // Shares the buffers and copies placement, bounds, metadata, colour and
    // width. Accepts a null target (a new qeLine) or any qeLine.
    bool Clone(qeRttiInterface*& target) const override;

    const Wm4::ColorRGBA& getColor() const { return m_color; }
    void setColor(const Wm4::ColorRGBA& color) { m_color = color; }
    float getWidth() const { return m_width; }
    void setWidth(float width) { m_width = width; }

    // Marks the world bound out of date, and the world transformation too
    // unless keepWorldTransformation; the next UpdateGS recomputes them. With
    // no children in this layer, "down" ends at the object itself.
    void setDirtyDown(bool keepWorldTransformation);

    static const qeRtti TYPE;

private:
    Wm4::ColorRGBA m_color = Wm4::ColorRGBA::BLACK;
    float m_width = 1.0f;
};

}  // namespace qe

#endif
