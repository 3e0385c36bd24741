// Rows of texts, in columns, for people.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Host {

class Table {
  public:
    enum class Align { left, right };
    struct Column {
        std::string title;
        Align align = Align::left;
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    // The column is not shown.
    void hide(std::size_t column) { columns_[column].title = "\n"; }
    // As many texts as there are columns, each printable.
    void row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    bool empty() const { return rows_.empty(); }

    // With a line of titles; a title is dim if `colour`.
    std::string text(bool colour) const;

  private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace Host
