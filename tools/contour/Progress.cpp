#include "Progress.h"

#include <algorithm>
#include <cstdio>

#include "ctr/drawing/OutputFile.h"

namespace contour {

namespace {

// Redrawing more often only costs terminal time.
constexpr std::chrono::milliseconds kRedrawInterval(100);
constexpr int kBarWidth = 30;

}  // namespace

ProgressBar::ProgressBar(bool visible) : m_visible(visible) {}

ProgressBar::~ProgressBar() { clear(); }

void ProgressBar::phaseStarted(const char* name) {
    m_phase = name;
    draw(true);
}

bool ProgressBar::shouldCancel() { return InterruptRequested(); }

void ProgressBar::setTotalProgress(double total) {
    m_total = total;
    m_done = 0.0;
    draw(true);
}

void ProgressBar::advanceProgress(double amount) {
    m_done += amount;
    draw(false);
}

double ProgressBar::getRemainingProgress() const { return std::max(0.0, m_total - m_done); }

void ProgressBar::partsEnded(size_t done, size_t total) {
    m_total = static_cast<double>(total);
    m_done = static_cast<double>(done);
    m_phase = std::to_string(done) + "/" + std::to_string(total) + " parts";
    draw(true);
}

void ProgressBar::clear() {
    if (!m_drawn) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    m_drawn = false;
}

void ProgressBar::draw(bool now) {
    if (!m_visible) return;
    const auto time = std::chrono::steady_clock::now();
    if (!now && m_drawn && time - m_lastDrawn < kRedrawInterval) return;
    m_lastDrawn = time;
    // Only the occlusion and intersection steps count their work; the bar
    // shows how far they are and stays full afterwards.
    const double fraction = m_total > 0.0 ? std::clamp(m_done / m_total, 0.0, 1.0) : 0.0;
    const int filled = static_cast<int>(fraction * kBarWidth);
    char bar[kBarWidth + 1];
    for (int i = 0; i < kBarWidth; ++i) bar[i] = i < filled ? '#' : '.';
    bar[kBarWidth] = '\0';
    std::fprintf(stderr, "\r\033[Kcontour: [%s] %3d%% %s", bar, static_cast<int>(fraction * 100.0), m_phase.c_str());
    std::fflush(stderr);
    m_drawn = true;
}

}  // namespace contour
