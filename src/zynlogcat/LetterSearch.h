// A quick search for a short text whatever the case of its letters, for texts that mostly lack it.
#ifndef ZYN_ZYNLOGCAT_LETTERSEARCH_H
#define ZYN_ZYNLOGCAT_LETTERSEARCH_H

#include <string>
#include <string_view>

// May see the text where it is not (it also takes '@' for '`' and the like), never the other way
// round: for a look before a costlier one.
class LetterSearch {
  public:
    // needed: ASCII, not empty.
    explicit LetterSearch(std::string needed);

    // kReadSlack bytes behind the text are readable.
    [[nodiscard]] bool IsIn(std::string_view text) const noexcept;

  private:
    [[nodiscard]] bool IsAt(const char* text) const noexcept;

    std::string needed_;
};

#endif
