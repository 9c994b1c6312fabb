// The exchange of values in blocks of rows; see CellExchange.h.
#include "CellExchange.h"

#include <algorithm>
#include <cstring>

#include "Ranks.h"

namespace sylvora {
namespace {

constexpr size_t kSentBytes = size_t{1} << 22;  // by a rank at once, if it is more than one row

// Copies every `stride`-th of `count` doubles to an array of Values.
template <typename Value>
void Gather(const double* from, size_t stride, int count, char* to) {
    for (int i = 0; i < count; ++i, from += stride, to += sizeof(Value)) {
        const Value value = static_cast<Value>(*from);
        std::memcpy(to, &value, sizeof value);
    }
}

}  // namespace

CellExchange::CellExchange(const CellPlan& cells, RowSource& source, int rank)
    : plan(cells), share(source), columnVV(cells.numRowsV.size()), mine(static_cast<size_t>(rank)) {
    const size_t numRanks = plan.numRowsV.size();
    const int numColumns = static_cast<int>(plan.ownerV.size());
    std::vector<size_t> bytesV(numRanks);  // of a row, by receiver
    for (int c = 0; c < numColumns; ++c) {
        const size_t owner = static_cast<size_t>(plan.ownerV[static_cast<size_t>(c)]);
        columnVV[owner].push_back(c);
        bytesV[owner] += plan.SizeOf(c);
    }
    const size_t bytesOfRow = *std::max_element(bytesV.begin(), bytesV.end());
    const size_t mostRows =
        static_cast<size_t>(*std::max_element(plan.numRowsV.begin(), plan.numRowsV.end()));
    const size_t wanted = std::max(kSentBytes / (bytesOfRow * numRanks), size_t{1});
    numAtOnce = static_cast<int>(std::min(wanted, mostRows));
    numBytes = static_cast<size_t>(numAtOnce) * bytesOfRow;
    rowV.resize(static_cast<size_t>(numAtOnce) * static_cast<size_t>(numColumns));
    sentV.resize(numBytes * numRanks);
    receivedV.resize(numBytes * numRanks);
}

// How many rows rank `from` sends when each rank has sent `begin` rows or all that it has.
int CellExchange::RowsAt(size_t from, int begin) const {
    return std::min(numAtOnce, std::max(plan.numRowsV[from] - begin, 0));
}

void CellExchange::Run(Communicator& communicator, const std::vector<char*>& storedV) {
    const int mostRows = *std::max_element(plan.numRowsV.begin(), plan.numRowsV.end());
    for (int begin = 0; begin < mostRows; begin += std::min(numAtOnce, mostRows - begin)) {
        if (const int count = RowsAt(mine, begin); count > 0) Pack(begin, count);
        const bool fLost = communicator.Cancelled() ||
                           communicator.AllToAll(sentV.data(), numBytes, receivedV.data()) != 0;
        if (fLost) throw RanksLost();
        size_t first = static_cast<size_t>(begin);
        for (size_t from = 0; from < columnVV.size(); ++from) {
            Unpack(from, RowsAt(from, begin), first, storedV);
            first += static_cast<size_t>(plan.numRowsV[from]);
        }
    }
}

void CellExchange::Pack(int begin, int count) {
    share.Read(begin, begin + count, rowV.data());
    share.Release(begin + count);
    const size_t width = plan.ownerV.size();
    for (size_t to = 0; to < columnVV.size(); ++to) {
        char* at = sentV.data() + to * numBytes;
        for (const int column : columnVV[to]) {
            const double* const values = rowV.data() + column;
            if (plan.SizeOf(column) == sizeof(float)) {
                Gather<float>(values, width, count, at);
            } else {
                Gather<double>(values, width, count, at);
            }
            at += static_cast<size_t>(count) * plan.SizeOf(column);
        }
    }
}

// Stores `count` rows from a rank as the rows `row`, `row` + 1, ... of all.
void CellExchange::Unpack(size_t from, int count, size_t row,
                          const std::vector<char*>& storedV) const {
    const char* at = receivedV.data() + from * numBytes;
    for (const int column : columnVV[mine]) {
        const size_t size = plan.SizeOf(column);
        const size_t bytes = static_cast<size_t>(count) * size;
        if (bytes == 0) return;
        std::memcpy(storedV[static_cast<size_t>(column)] + row * size, at, bytes);
        at += bytes;
    }
}

}  // namespace sylvora
