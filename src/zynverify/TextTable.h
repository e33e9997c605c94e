// A table for people: columns as wide as what stands in them, and a last one that is broken into
// lines so that the whole fits a width.
#ifndef ZYN_ZYNVERIFY_TEXTTABLE_H
#define ZYN_ZYNVERIFY_TEXTTABLE_H

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

// Widths count characters. The first column, of names, stands to the left, and long names lose
// their middle when room is short; the columns of kLeft stand to the left too, the others, of
// numbers, to the right. Where little room is left for the last column its text goes into lines of
// its own below the others.
class TextTable {
  public:
    enum class Side { kLeft, kRight };
    struct Column {
        std::string title;
        Side side = Side::kRight;
    };

    // columns: all but the last, at least one; rest: the last one's title.
    TextTable(std::vector<Column> columns, std::string rest);

    // One text per column but the last, whose text comes in pieces that are not broken unless one
    // alone is too long; between them stands a blank, or a line end.
    void Add(std::vector<std::string> cells, std::vector<std::string> pieces);

    [[nodiscard]] bool Empty() const noexcept { return rows_.empty(); }

    // The titles, and the rows in the order in which they were added.
    void Print(std::ostream& out, std::size_t width) const;

  private:
    struct Row {
        std::vector<std::string> cells;
        std::vector<std::string> pieces;
    };
    class Layout;

    std::vector<Column> columns_;
    std::string rest_;
    std::vector<Row> rows_;
};

// A text in lines of at most this width, broken between words.
void PutWrapped(std::ostream& out, const std::string& text, std::size_t width);

// A text's words.
[[nodiscard]] std::vector<std::string> Words(const std::string& text);

#endif
