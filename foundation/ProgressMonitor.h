#ifndef XMLTREE_FOUNDATION_PROGRESSMONITOR_H
#define XMLTREE_FOUNDATION_PROGRESSMONITOR_H

// Receives progress reports during a parse. The default bodies only record
// the figures; subclass it to show progress or to ask for an abort.
class ProgressMonitor {
public:
    // All figures 0.
    ProgressMonitor() {}
    virtual ~ProgressMonitor() {}

    // Starts a run of `total` units (bytes of text).
    virtual void progressReset_32(unsigned int total);
    // Reports the absolute amount done so far. Set `abort` to true to ask the
    // caller to stop; the default leaves it alone.
    virtual void setAmountConsumed2_32(unsigned int amount, bool& abort);
    // Marks the rest of the run as done.
    virtual void consumeRemaining(int code);

    // The figures the default bodies recorded: the run's size, the last
    // amount reported, the code given to consumeRemaining, and whether it
    // was called.
    unsigned int getTotal() const { return m_total; }
    unsigned int getAmountConsumed() const { return m_consumed; }
    int getRemainingCode() const { return m_remainingCode; }
    bool isFinished() const { return m_finished; }

private:
    unsigned int m_total = 0;
    unsigned int m_consumed = 0;
    int m_remainingCode = 0;
    bool m_finished = false;
};

#endif
