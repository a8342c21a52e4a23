// A placed object: local and world transformations and bounds. There is no
// parent link in this layer, so the world transformation is whatever the host
// stores, or the local one after UpdateGS.
#ifndef QE_QESPATIAL_H
#define QE_QESPATIAL_H

#include "qe/qeBBox.h"
#include "qe/qeGenericTransformation.h"
#include "qe/qeObject.h"

namespace qe {

class qeSpatial : public qeObject {
public:
    const qeRtti& GetType() const override { return TYPE; }

    // Unless WorldIsCurrent, copies Local into World; then refreshes WorldBound.
    virtual void UpdateGS();
    virtual void UpdateWorldBound();

    qeGenericTransformation<float> Local;
    qeGenericTransformation<float> World;
    bool WorldIsCurrent = false;
    qeBBox WorldBound;
    bool WorldBoundIsCurrent = false;

    static const qeRtti TYPE;

protected:
    qeSpatial() = default;
    // Bound of the object in its own model space; empty for the base.
    virtual qeBBox computeModelBound() const { return qeBBox(); }
};

}  // namespace qe

#endif
