// The primitives a hierarchy is built over, as boxes.
#ifndef QE_QEBVHPRIMITIVECONTAINER_H
#define QE_QEBVHPRIMITIVECONTAINER_H

#include <cstdint>
#include <vector>

#include "qe/qeBBox.h"
#include "qe/qeMemory.h"

namespace qe {

class qeBVHPrimitiveContainer {
public:
    virtual ~qeBVHPrimitiveContainer();

    uint32_t size() const { return static_cast<uint32_t>(m_boxes.size()); }
    const qeBBox& getBBox(uint32_t primitive) const { return m_boxes[primitive]; }
    // Box centres, kept beside the boxes because the builder bins them often.
    const Wm4::Vector3<float>& getCentroid(uint32_t primitive) const { return m_centroids[primitive]; }

    void clear() {
        m_boxes.clear();
        m_centroids.clear();
    }
    void reserve(uint32_t quantity) {
        qeReserveLarge(m_boxes, quantity);
        qeReserveLarge(m_centroids, quantity);
    }
    void add(const qeBBox& box) {
        m_boxes.push_back(box);
        m_centroids.push_back(box.center());
    }
    // For filling from several threads: resize once, then set each
    // primitive from any thread, each exactly once.
    void resize(uint32_t quantity) {
        reserve(quantity);
        m_boxes.resize(quantity);
        m_centroids.resize(quantity);
    }
    void set(uint32_t primitive, const qeBBox& box) {
        m_boxes[primitive] = box;
        m_centroids[primitive] = box.center();
    }

private:
    qeLargeVector<qeBBox> m_boxes;
    qeLargeVector<Wm4::Vector3<float>> m_centroids;
};

// Asks a source for every primitive's box once and keeps them. Source must
// offer getPrimitiveQuantity() and computePrimitiveBBox(index, box).
template <class Source>
class qeBVHPrimitiveContainerCache : public qeBVHPrimitiveContainer {
public:
    explicit qeBVHPrimitiveContainerCache(const Source& source) {
        const uint32_t quantity = source.getPrimitiveQuantity();
        reserve(quantity);
        qeBBox box;
        for (uint32_t i = 0; i < quantity; ++i) {
            source.computePrimitiveBBox(i, box);
            add(box);
        }
    }
};

}  // namespace qe

#endif
