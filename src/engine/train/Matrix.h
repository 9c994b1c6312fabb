// The training data, as the engine reads them.
#ifndef SYLVORA_ENGINE_TRAIN_MATRIX_H
#define SYLVORA_ENGINE_TRAIN_MATRIX_H

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "base/BlockReader.h"

namespace sylvora {
namespace engine {

// A table of doubles: an array of rows, or some rows of a borrowed block. A plain value; immutable
// and thread-safe. The caller owns the values.
class Matrix {
  public:
    // rows[row][column].
    Matrix(const double* const* rows, int rowCount, int columnCount)
        : rowV(rows), numRows(rowCount), numColumns(columnCount) {}
    // All rows of a block or, if `chosen` is not null, its rows (*chosen)[0], (*chosen)[1], ...
    explicit Matrix(std::shared_ptr<const BlockReader> data,
                    std::shared_ptr<const std::vector<int>> chosen = nullptr)
        : block(std::move(data)),
          chosenV(std::move(chosen)),
          numRows(chosenV ? static_cast<int>(chosenV->size()) : block->NumRows()),
          numColumns(block->NumColumns()) {}

    int NumRows() const { return numRows; }
    int NumColumns() const { return numColumns; }
    double At(int row, int column) const {
        return rowV != nullptr ? rowV[row][column] : block->At(BlockRow(row), column);
    }
    // Calls visit(row, value) for all rows of a column, or for the rows [begin, end), in ascending
    // order.
    template <typename Visit>
    void ForColumn(int column, const Visit& visit) const {
        ForColumn(column, 0, numRows, visit);
    }
    template <typename Visit>
    void ForColumn(int column, int begin, int end, const Visit& visit) const {
        if (rowV != nullptr) {
            for (int row = begin; row < end; ++row) visit(row, rowV[row][column]);
        } else if (chosenV != nullptr) {
            for (int row = begin; row < end; ++row) visit(row, At(row, column));
        } else {
            block->ForColumn(column, begin, end, visit);
        }
    }
    // Whether there are rows, with equal values in a column and no NaN. Ends at the first other
    // value.
    bool IsConstant(int column) const {
        constexpr int kPiece = 256;
        if (numRows == 0) return false;
        const double first = At(0, column);
        bool fSame = true;
        for (int begin = 0, end; begin < numRows && fSame; begin = end) {
            end = begin + std::min(kPiece, numRows - begin);
            ForColumn(column, begin, end,
                      [&](int, double value) { fSame = fSame && value == first; });
        }
        return fSame;
    }
    // The rows (*chosen)[0], (*chosen)[1], ... of this matrix, which must be of a block.
    Matrix Rows(const std::shared_ptr<const std::vector<int>>& chosen) const {
        if (chosenV == nullptr) return Matrix(block, chosen);
        auto rows = std::make_shared<std::vector<int>>();
        rows->reserve(chosen->size());
        for (const int row : *chosen) rows->push_back(BlockRow(row));
        return Matrix(block, std::move(rows));
    }
    // Writes a row of a block to values[0, NumColumns()).
    void ReadRow(int row, double* values) const {
        const int at = BlockRow(row);
        block->ReadRows(at, at + 1, numColumns, values);
    }

  private:
    int BlockRow(int row) const {
        return chosenV != nullptr ? (*chosenV)[static_cast<size_t>(row)] : row;
    }

    const double* const* rowV = nullptr;
    std::shared_ptr<const BlockReader> block;         // null: the values are in rowV
    std::shared_ptr<const std::vector<int>> chosenV;  // by row: the row of the block
    int numRows;
    int numColumns;
};

// A row of a matrix, for walks that need only a few of its values.
class MatrixRow {
  public:
    MatrixRow(const Matrix& data, int number) : matrix(data), row(number) {}
    double operator[](int column) const { return matrix.At(row, column); }

  private:
    const Matrix& matrix;
    int row;
};

}  // namespace engine
}  // namespace sylvora

#endif  // SYLVORA_ENGINE_TRAIN_MATRIX_H
