#ifndef XMLTREE_FOUNDATION_INPUTLIMIT_H
#define XMLTREE_FOUNDATION_INPUTLIMIT_H

// Internal to the library: the largest text a parse accepts. The parse
// cursor is a signed 32-bit index and one byte goes to the terminating NUL,
// so a text may hold at most INT_MAX - 1 bytes; a longer one is refused
// ("Input too large") rather than cut.

#include <climits>
#include <cstddef>

namespace xmltree {

constexpr std::size_t kMaxParseInput = static_cast<std::size_t>(INT_MAX) - 1;

// The limit in force: kMaxParseInput unless a test lowered it.
std::size_t parseInputLimit() noexcept;

// Lowers the limit, so that tests can check the refusal without 2 GiB of
// input; 0 restores kMaxParseInput.
void setParseInputLimitForTesting(std::size_t bytes) noexcept;

}  // namespace xmltree

#endif
