// A progress bar on standard error, fed by the library's progress notifier
// and the drawing's phases. Stopping is asked for by an interrupt.
#ifndef CONTOUR_PROGRESS_H
#define CONTOUR_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <string>

#include "ctr/drawing/Drawing.h"

namespace contour {

class ProgressBar : public DrawingMonitor {
public:
    // Draws nothing unless visible (standard error is a terminal and the
    // run is not quiet); it still answers shouldCancel.
    explicit ProgressBar(bool visible);
    ~ProgressBar() override;
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void phaseStarted(const char* name) override;
    bool shouldCancel() override;
    void setTotalProgress(double total) override;
    void advanceProgress(double amount) override;
    double getRemainingProgress() const override;
    // A batch's count: done of total parts ended.
    void partsEnded(size_t done, size_t total);
    // Wipes the bar off its line, so that messages start on a clean one.
    void clear();

private:
    void draw(bool now);

    bool m_visible;
    bool m_drawn = false;
    std::string m_phase;
    double m_total = 0.0;
    double m_done = 0.0;
    std::chrono::steady_clock::time_point m_lastDrawn;
};

}  // namespace contour

#endif
