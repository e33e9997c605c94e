#include "zynverify/TextTable.h"

#include <algorithm>
#include <ostream>
#include <string_view>
#include <utility>

#include "Support/PrintableText.h"

namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kIndent = 4;
// Less room than this is not enough for a text.
constexpr std::size_t kLeastRest = 30;
constexpr std::size_t kLeastName = 16;

std::string Padded(const std::string& text, std::size_t width, TextTable::Side side) {
    const std::size_t length = CharacterCount(text);
    const std::string blanks(length < width ? width - length : 0, ' ');
    return side == TextTable::Side::kLeft ? text + blanks : blanks + text;
}

// Without its middle, if it is too long.
std::string Shortened(const std::string& name, std::size_t width) {
    constexpr std::string_view kMark = "...";
    const std::size_t length = CharacterCount(name);
    if (length <= width) {
        return name;
    }
    const std::size_t kept = width - kMark.size();
    const std::size_t head = BytesOfCharacters(name, kept / 2);
    const std::size_t tail = BytesOfCharacters(name, length - (kept - kept / 2));
    return name.substr(0, head).append(kMark).append(name, tail);
}

// The pieces in lines of at most this width.
std::vector<std::string> Lines(const std::vector<std::string>& pieces, std::size_t width) {
    std::vector<std::string> lines(1);
    std::size_t used = 0;
    for (std::string_view piece : pieces) {
        if (used != 0 && used + 1 + CharacterCount(piece) > width) {
            lines.emplace_back();
            used = 0;
        }
        if (used != 0) {
            lines.back() += ' ';
            ++used;
        }
        while (CharacterCount(piece) > width) {
            const std::size_t bytes = BytesOfCharacters(piece, width);
            lines.back().append(piece.substr(0, bytes));
            lines.emplace_back();
            used = 0;
            piece.remove_prefix(bytes);
        }
        lines.back().append(piece);
        used += CharacterCount(piece);
    }
    return lines;
}

void PutLine(std::ostream& out, std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

}  // namespace

// Where everything stands in a width.
class TextTable::Layout {
  public:
    Layout(const TextTable& table, std::size_t width) : columns_(table.columns_) {
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            std::size_t most = CharacterCount(columns_[i].title);
            for (const Row& row : table.rows_) {
                most = std::max(most, CharacterCount(row.cells[i]));
            }
            widths_.push_back(most);
            used_ += most + kGap;
        }
        // The names give way first.
        if (const std::size_t wanted = used_ + kLeastRest; wanted > width) {
            const std::size_t spare = widths_[0] > kLeastName ? widths_[0] - kLeastName : 0;
            const std::size_t less = std::min(spare, wanted - width);
            widths_[0] -= less;
            used_ -= less;
        }
        beside_ = used_ + kLeastRest <= width;
        restAt_ = beside_ ? used_ : kIndent;
        restWidth_ = std::max(width, restAt_ + kLeastRest) - restAt_;
    }

    void Put(std::ostream& out, const Row& row) const {
        std::string line;
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            const std::string& cell = row.cells[i];
            const Side side = i == 0 ? Side::kLeft : columns_[i].side;
            line += Padded(i == 0 ? Shortened(cell, widths_[0]) : cell, widths_[i], side);
            line.append(kGap, ' ');
        }
        std::vector<std::string> rest = Lines(row.pieces, restWidth_);
        if (!beside_ && !row.pieces.empty()) {
            PutLine(out, std::move(line));
            line.assign(restAt_, ' ');
        }
        PutLine(out, line + rest.front());
        for (std::size_t i = 1; i < rest.size(); ++i) {
            PutLine(out, std::string(restAt_, ' ') + rest[i]);
        }
    }

  private:
    const std::vector<Column>& columns_;
    std::vector<std::size_t> widths_;
    std::size_t used_ = 0;
    std::size_t restAt_ = 0;
    std::size_t restWidth_ = 0;
    bool beside_ = true;
};

TextTable::TextTable(std::vector<Column> columns, std::string rest)
    : columns_(std::move(columns)), rest_(std::move(rest)) {}

void TextTable::Add(std::vector<std::string> cells, std::vector<std::string> pieces) {
    rows_.push_back({std::move(cells), std::move(pieces)});
}

void TextTable::Print(std::ostream& out, std::size_t width) const {
    const Layout layout(*this, width);
    Row titles;
    for (const Column& column : columns_) {
        titles.cells.push_back(column.title);
    }
    titles.pieces.push_back(rest_);
    layout.Put(out, titles);
    for (const Row& row : rows_) {
        layout.Put(out, row);
    }
}

void PutWrapped(std::ostream& out, const std::string& text, std::size_t width) {
    for (const std::string& line : Lines(Words(text), std::max(width, kLeastRest))) {
        out << line << '\n';
    }
}

std::vector<std::string> Words(const std::string& text) {
    std::vector<std::string> words;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find(' ', begin), text.size());
        words.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return words;
}
