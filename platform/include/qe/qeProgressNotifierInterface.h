// Progress and cancellation as a long computation reports them; the host
// implements it. All calls come from the thread running the computation.
#ifndef QE_QEPROGRESSNOTIFIERINTERFACE_H
#define QE_QEPROGRESSNOTIFIERINTERFACE_H

namespace qe {

class qeProgressNotifierInterface {
public:
    virtual ~qeProgressNotifierInterface();

    // True asks the computation to stop at its next check.
    virtual bool shouldCancel() = 0;
    // Announces the amount of work that the following advances add up to.
    virtual void setTotalProgress(double total) = 0;
    // Reports that amount of the announced work as done.
    virtual void advanceProgress(double amount) = 0;
    // The announced work not yet reported done, for a computation that
    // spreads what is left over steps it only now can count. A notifier that
    // does not keep count may leave it at 0: such steps then advance by 0.
    virtual double getRemainingProgress() const { return 0.0; }
};

}  // namespace qe

#endif
