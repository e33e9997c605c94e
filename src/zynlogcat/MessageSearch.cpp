#include "zynlogcat/MessageSearch.h"

#include <re2/filtered_re2.h>
#include <re2/re2.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include "zynlogcat/LetterSearch.h"

// One expression, with texts of which it needs at least one: looking for them is many times faster
// than the expression, and in most messages there is none.
class MessageSearch::Expression {
  public:
    Expression(const std::string& text, bool ignoreCase)
        : expression_(Multiline(text), Options(ignoreCase)) {
        // Compiled first by itself, so that an error message quotes the user's own text.
        if (const RE2 own(text, Options(ignoreCase)); !own.ok()) {
            throw std::invalid_argument(own.error());
        }
        FindNeeded(text, ignoreCase);
    }

    [[nodiscard]] bool Match(std::string_view text) const {
        for (const LetterSearch& needed : needed_) {
            if (needed.IsIn(text)) [[unlikely]] {
                return Search(text);
            }
        }
        return needed_.empty() && Search(text);
    }

  private:
    [[nodiscard]] bool Search(std::string_view text) const {
        return RE2::PartialMatch(re2::StringPiece(text.data(), text.size()), expression_);
    }

    // More texts than this take longer to look for than the expression.
    static constexpr std::size_t kMostNeeded = 3;
    static constexpr int kShortestNeeded = 3;

    static RE2::Options Options(bool ignoreCase) {
        RE2::Options options;
        options.set_case_sensitive(!ignoreCase);
        // Errors go to the user by the exception; the library's own log is switched off.
        options.set_log_errors(false);
        return options;
    }
    static std::string Multiline(const std::string& text) { return "(?m)" + text; }

    // Whether the needed texts mean what they say. Some letters beyond ASCII are forms of an ASCII
    // one (U+212A of "k", U+017F of "s"): where case does not matter, or where the expression may
    // name one, the ASCII letter need not be there.
    static bool IsPlain(const std::string& text) {
        const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
        return std::all_of(text.begin(), text.end(), isAscii) &&
               text.find("\\x") == std::string::npos;
    }
    static bool HasOtherForms(const std::string& needed) {
        return needed.find_first_of("ks") != std::string::npos;
    }

    void FindNeeded(const std::string& text, bool ignoreCase) {
        if (!IsPlain(text)) {
            return;
        }
        re2::FilteredRE2 filter(kShortestNeeded);
        int id = 0;
        if (filter.Add(Multiline(text), Options(ignoreCase), &id) != RE2::NoError) {
            return;
        }
        std::vector<std::string> texts;
        filter.Compile(&texts);
        // Expressions that may match without any of the texts.
        std::vector<int> without;
        filter.AllPotentials({}, &without);
        const bool anyCase = ignoreCase || text.find("(?") != std::string::npos;
        if (!without.empty() || texts.empty() ||
            (anyCase && std::any_of(texts.begin(), texts.end(), HasOtherForms))) {
            return;
        }
        // "code [0-9]" needs one of ten texts, which begin alike.
        const std::string common = CommonBeginning(texts);
        if (common.size() >= kShortestNeeded) {
            texts = {common};
        }
        if (texts.size() <= kMostNeeded) {
            for (std::string& needed : texts) {
                needed_.emplace_back(std::move(needed));
            }
        }
    }

    static std::string CommonBeginning(const std::vector<std::string>& texts) {
        std::string common = texts.front();
        for (const std::string& text : texts) {
            const auto [end, other] =
                std::mismatch(common.begin(), common.end(), text.begin(), text.end());
            common.erase(end, common.end());
        }
        return common;
    }

    RE2 expression_;
    std::vector<LetterSearch> needed_;
};

MessageSearch::MessageSearch(const std::vector<std::string>& expressions, bool ignoreCase) {
    for (const std::string& expression : expressions) {
        expressions_.push_back(std::make_unique<Expression>(expression, ignoreCase));
    }
}

MessageSearch::MessageSearch(MessageSearch&&) noexcept = default;
MessageSearch& MessageSearch::operator=(MessageSearch&&) noexcept = default;
MessageSearch::~MessageSearch() = default;

bool MessageSearch::Match(std::string_view text) const {
    for (const auto& expression : expressions_) {
        if (expression->Match(text)) {
            return true;
        }
    }
    return false;
}
