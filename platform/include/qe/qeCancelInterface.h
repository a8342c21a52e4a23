// Cancellation as seen by a long computation: it polls, the host decides.
#ifndef QE_QECANCELINTERFACE_H
#define QE_QECANCELINTERFACE_H

namespace qe {

class qeCancelInterfaceReadOnly {
public:
    virtual ~qeCancelInterfaceReadOnly();
    virtual bool isCancelled() const = 0;
};

// A read-only view over a flag that someone else owns and may set; the flag
// must outlive the proxy.
class qeCancelInterfaceProxyReadOnly : public qeCancelInterfaceReadOnly {
public:
    explicit qeCancelInterfaceProxyReadOnly(const bool& flag) : m_flag(&flag) {}
    bool isCancelled() const override { return *m_flag; }

private:
    const bool* m_flag;
};

}  // namespace qe

#endif
