#include "table.h"

#include <algorithm>

#include "text.h"

namespace Gxf {

/// 0 for a column that is left out.
std::vector<std::size_t> Table::widths() const {
    std::vector<std::size_t> result;
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        std::size_t widest = 0;
        for (auto const& row : m_rows) {
            widest = std::max(widest, displayWidth(row[i]));
        }
        result.push_back(widest == 0 ? 0 : std::max(widest, displayWidth(m_columns[i].heading)));
    }
    return result;
}

std::string Table::text() const {
    std::vector<std::size_t> const width = widths();
    std::string text;
    auto const addLine = [&](auto const& cellOf) {
        std::string line;
        for (std::size_t i = 0; i < m_columns.size(); ++i) {
            if (width[i] == 0) {
                continue;
            }
            std::string const cell = cellOf(i);
            std::string const blanks(width[i] - displayWidth(cell), ' ');
            line += line.empty() ? "" : "  ";
            line += m_columns[i].align == right ? blanks + cell : cell + blanks;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    };
    addLine([this](std::size_t i) { return std::string(m_columns[i].heading); });
    for (auto const& row : m_rows) {
        addLine([&row](std::size_t i) { return row[i]; });
    }
    return text;
}

} // namespace Gxf
