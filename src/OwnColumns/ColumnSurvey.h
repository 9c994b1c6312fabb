// What a rank finds out about the columns of its share before they are dealt out.
#ifndef SYLVORA_OWNCOLUMNS_COLUMNSURVEY_H
#define SYLVORA_OWNCOLUMNS_COLUMNSURVEY_H

#include <cstdint>
#include <string>
#include <vector>

#include "ColumnDealing.h"
#include "Ranks.h"
#include "RowSource.h"

namespace sylvora {

// Reads the share once. Every rank surveys its own; the collective members join the results.
class ColumnSurvey {
  public:
    // `firstRow` is the number of the share's first row among the rows of all ranks, of which there
    // are `numAll`. Every rank has the same number of columns here, whatever a source without rows
    // says. Throws std::bad_alloc.
    ColumnSurvey(RowSource& source, int columnCount, std::int64_t firstRow, std::int64_t numAll);

    // Collective. Why a value cannot be used, in the words of a training by one process; empty if
    // all can be. The same at all ranks.
    std::string Complaint(Ranks& ranks) const;
    // Collective: joins the findings of all ranks.
    void Join(Ranks& ranks);

    // After Join: whether a column has values that are no floats, and what it costs.
    bool IsWide(int column) const { return fWideV[static_cast<size_t>(column)] != 0; }
    std::vector<int> Costs() const;

  private:
    // A cell whose value cannot be used; rows are numbered across all ranks.
    struct Cell {
        std::int64_t row = -1;  // -1: none
        int column = 0;
        bool fNan = false;
    };

    void TakeRow(std::int64_t row, const double* values);
    void TakeUnusable(std::int64_t row, const double* values);

    const int numColumns;
    const bool fNanRefused, fInfiniteRefused;
    std::int64_t stride;  // every row whose number is a multiple of it is in the sketches
    std::vector<char> fWideV;
    std::vector<ValueSketch> sketchV;
    Cell firstRefused;   // in the order of rows
    Cell firstInfinite;  // in the order of columns
};

}  // namespace sylvora

#endif  // SYLVORA_OWNCOLUMNS_COLUMNSURVEY_H
