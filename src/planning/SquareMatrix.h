#pragma once

#include <cstddef>
#include <vector>

namespace Morvantix {

// A dense n by n table in one contiguous block, row after row. The planner walks rows in its inner
// loop, so a row is handed out as a plain pointer.
template <typename T> class SquareMatrix
{
public:
    SquareMatrix(int size, T fill)
        : m_size(size)
        , m_cells(static_cast<std::size_t>(size) * static_cast<std::size_t>(size), fill)
    { }

    int size() const { return m_size; }

    T& at(int row, int column) { return m_cells[offset(row, column)]; }
    const T& at(int row, int column) const { return m_cells[offset(row, column)]; }

    T* row(int row) { return m_cells.data() + offset(row, 0); }
    const T* row(int row) const { return m_cells.data() + offset(row, 0); }

private:
    std::size_t offset(int row, int column) const
    {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(m_size)
            + static_cast<std::size_t>(column);
    }

    int m_size;
    std::vector<T> m_cells;
};

} // namespace Morvantix
