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
    // Acquire and release: every write another holder made through its
    // reference happens before the destructor runs.
    if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

qeCancelInterfaceReadOnly::~qeCancelInterfaceReadOnly() = default;

}  // namespace qe
