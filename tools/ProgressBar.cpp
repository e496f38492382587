#include "ProgressBar.h"

#include <unistd.h>

#include <cstdio>

namespace {
const int kBarWidth = 40;
}

bool ProgressBar::wanted(uint64_t inputBytes) {
    return inputBytes > kThresholdBytes && isatty(STDERR_FILENO);
}

ProgressBar::~ProgressBar() {
    erase();
}

void ProgressBar::progressReset_32(unsigned int total) {
    ProgressMonitor::progressReset_32(total);
    m_total = total;
    m_nextRedraw = 0;
    draw(0);
}

void ProgressBar::setAmountConsumed2_32(unsigned int amount, bool& abort) {
    ProgressMonitor::setAmountConsumed2_32(amount, abort);
    if (amount < m_nextRedraw || m_total == 0) return;
    draw(static_cast<unsigned int>(uint64_t{amount} * 100 / m_total));
}

void ProgressBar::consumeRemaining(int code) {
    ProgressMonitor::consumeRemaining(code);
    erase();
}

void ProgressBar::draw(unsigned int percent) {
    if (percent > 100) percent = 100;
    // The amount at which the next whole percent is reached.
    m_nextRedraw = static_cast<unsigned int>((uint64_t{percent} + 1) * m_total / 100);
    if (m_visible && percent == m_shown) return;
    char bar[kBarWidth + 1];
    int filled = static_cast<int>(percent) * kBarWidth / 100;
    for (int i = 0; i < kBarWidth; ++i)
        bar[i] = i < filled ? '#' : '.';
    bar[kBarWidth] = '\0';
    std::fprintf(stderr, "\rparsing [%s] %3u%%", bar, percent);
    std::fflush(stderr);
    m_shown = percent;
    m_visible = true;
}

void ProgressBar::erase() {
    if (!m_visible) return;
    std::fprintf(stderr, "\r%*s\r", kBarWidth + 20, "");
    std::fflush(stderr);
    m_visible = false;
}
