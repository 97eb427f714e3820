#pragma once

#include <string>
#include <vector>

namespace Gxf {

/// A table with aligned columns under headings. A column whose cells are all empty is left out.
class Table {
  public:
    enum Align { left, right };

    struct Column {
        char const* heading;
        Align align;
    };

    explicit Table(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    /// REQUIRES: as many cells as columns, in UTF-8.
    void add(std::vector<std::string> row) { m_rows.push_back(std::move(row)); }

    std::string text() const;

  private:
    std::vector<std::size_t> widths() const;

    std::vector<Column> m_columns;
    std::vector<std::vector<std::string>> m_rows;
};

} // namespace Gxf
