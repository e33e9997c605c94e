// The regular expressions that messages are searched for.
#ifndef ZYN_ZYNLOGCAT_MESSAGESEARCH_H
#define ZYN_ZYNLOGCAT_MESSAGESEARCH_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Expressions of RE2, whose time grows with the length of the text only. Texts are UTF-8: a byte
// that is none matches nothing. `^` and `$` also match at line feeds. Memory: at most 8 MiB for
// each expression. One thread.
class MessageSearch {
  public:
    // Throws std::invalid_argument with RE2's words for an expression that is none.
    MessageSearch(const std::vector<std::string>& expressions, bool ignoreCase);
    MessageSearch(MessageSearch&&) noexcept;
    MessageSearch& operator=(MessageSearch&&) noexcept;
    ~MessageSearch();

    [[nodiscard]] bool Empty() const noexcept { return expressions_.empty(); }

    // Whether any expression matches anywhere in the text.
    [[nodiscard]] bool Match(std::string_view text) const;

  private:
    class Expression;
    std::vector<std::unique_ptr<Expression>> expressions_;
};

#endif
