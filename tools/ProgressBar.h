#ifndef XMLTREE_TOOLS_PROGRESSBAR_H
#define XMLTREE_TOOLS_PROGRESSBAR_H

#include <cstdint>

#include "foundation/ProgressMonitor.h"

// A one-line bar on standard error, redrawn only when the percentage
// changes, so the parser's call at every closing tag stays a comparison.
class ProgressBar : public ProgressMonitor {
  public:
    // Inputs above this many bytes get a bar when standard error is a terminal.
    static constexpr uint64_t kThresholdBytes = 8000000;
    static bool wanted(uint64_t inputBytes);

    ProgressBar() {}
    ~ProgressBar() override;

    void progressReset_32(unsigned int total) override;
    void setAmountConsumed2_32(unsigned int amount, bool& abort) override;
    void consumeRemaining(int code) override;

    // Takes the bar off the screen so that other output starts on a clean
    // line; it comes back at the next percent.
    void erase();

  private:
    void draw(unsigned int percent);

    unsigned int m_total = 0;
    unsigned int m_nextRedraw = 0;  // amount at which the next percent starts
    unsigned int m_shown = 0;
    bool m_visible = false;
};

#endif
