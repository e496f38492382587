#include "foundation/ProgressMonitor.h"

void ProgressMonitor::progressReset_32(unsigned int total) {
    m_total = total;
    m_consumed = 0;
    m_remainingCode = 0;
    m_finished = false;
}

void ProgressMonitor::setAmountConsumed2_32(unsigned int amount, bool& /*abort*/) {
    m_consumed = amount;
}

void ProgressMonitor::consumeRemaining(int code) {
    m_remainingCode = code;
    m_consumed = m_total;
    m_finished = true;
}
