// Rows in columns: aligned for people, separated by tabs for scripts.
#include "transferctl/table.h"

#include <algorithm>
#include <cstddef>

#include "transferctl/shown_text.h"

namespace transferctl {
namespace {

constexpr const char* kGap = "  ";

// Nothing stands behind the last text of a line.
std::string withoutTrail(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

std::string padded(const std::string& text, std::size_t width, Column::Side side) {
    const std::string padding(width - displayWidth(text), ' ');
    return side == Column::Side::kLeft ? text + padding : padding + text;
}

}  // namespace

Cell textCell(const std::string& text) {
    const std::string shown = shownSafely(text);
    return {shown, shown};
}

std::string Table::aligned() const {
    if (rows_.empty()) {
        return {};
    }
    std::vector<std::string> lines(rows_.size() + 1);
    for (std::size_t column = 0; column < columns_.size(); ++column) {
        std::size_t width = displayWidth(columns_[column].title);
        for (const std::vector<Cell>& row : rows_) {
            width = std::max(width, displayWidth(row[column].human));
        }
        const std::string gap = column > 0 ? kGap : "";
        const Column::Side side = columns_[column].side;
        lines[0] += gap + padded(columns_[column].title, width, side);
        for (std::size_t row = 0; row < rows_.size(); ++row) {
            lines[row + 1] += gap + padded(rows_[row][column].human, width, side);
        }
    }
    std::string text;
    for (const std::string& line : lines) {
        text += withoutTrail(line);
    }
    return text;
}

std::string Table::tabbed() const {
    std::string text;
    for (const std::vector<Cell>& row : rows_) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            text += (column > 0 ? "\t" : "") + row[column].exact;
        }
        text += '\n';
    }
    return text;
}

}  // namespace transferctl
