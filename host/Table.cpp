#include "host/Table.h"

#include <algorithm>

#include "host/Terminal.h"

namespace Host {

std::string Table::text(bool colour) const {
    std::vector<std::size_t> widths(columns_.size());
    for (std::size_t c = 0; c < columns_.size(); ++c) {
        widths[c] = columns_[c].title.size();
        for (const auto& row : rows_) widths[c] = std::max(widths[c], terminalColumns(row[c]));
    }
    const auto line = [&](auto&& cellOf) {
        std::string made;
        std::size_t gap = 0;
        for (std::size_t c = 0; c < columns_.size(); ++c) {
            if (columns_[c].title == "\n") continue;
            const std::string& cell = cellOf(c);
            const std::size_t room = widths[c] - std::min(widths[c], terminalColumns(cell));
            const bool right = columns_[c].align == Align::right;
            if (right) gap += room;
            // Blanks are written when something follows them.
            if (!cell.empty()) {
                made.append(gap, ' ') += cell;
                gap = 0;
            }
            gap += (right ? 0 : room) + 2;
        }
        return made;
    };
    std::string text;
    const std::string titles =
        line([&](std::size_t c) -> const std::string& { return columns_[c].title; });
    text += (colour ? "\033[2m" + titles + "\033[0m" : titles) + '\n';
    for (const auto& row : rows_)
        text += line([&](std::size_t c) -> const std::string& { return row[c]; }) + '\n';
    return text;
}

}  // namespace Host
