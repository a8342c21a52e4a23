#include "qe/qeObject.h"

#include "qe/qeCancelInterface.h"

namespace qe {

bool qeRtti::IsDerived(const qeRtti& type) const {
    for (const qeRtti* search = this; search; search = search->m_base)
        if (search == &type) return true;
    return false;
}

const qeRtti qeRttiInterface::TYPE("qe.qeRttiInterface", nullptr);
const qeRtti qeObject::TYPE("qe.qeObject", &qeRttiInterface::TYPE);

qeRttiInterface::~qeRttiInterface() = default;

bool qeRttiInterface::Clone(qeRttiInterface*&) const { return false; }

qeObject::~qeObject() = default;

void qeObject::DecrementReferences() {
    if (--m_references == 0) delete this;
}

qeCancelInterfaceReadOnly::~qeCancelInterfaceReadOnly() = default;

}  // namespace qe
