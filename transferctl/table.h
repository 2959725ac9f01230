// Rows in columns: aligned for people, separated by tabs for scripts.
#pragma once

#include <string>
#include <vector>

namespace transferctl {

struct Column {
    enum class Side { kLeft, kRight };
    std::string title;
    Side side = Side::kLeft;
};

// One value in both forms: with unit and exact. Both safe to show.
struct Cell {
    std::string human;
    std::string exact;
};

// A cell for a name or other text of any bytes.
Cell textCell(const std::string& text);

class Table {
public:
    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    // As many cells as there are columns.
    void add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }

    // Titles and rows in columns as wide as their widest cell on a terminal; nothing for no rows.
    std::string aligned() const;

    // A line for each row, exact values between tabs, no titles.
    std::string tabbed() const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<Cell>> rows_;
};

}  // namespace transferctl
