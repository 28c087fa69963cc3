// Data files: a CSV table with a header row, and the way a script's data
// line hands its rows out, one per iteration.
#ifndef ORBELLE_RUNNER_CSV_H
#define ORBELLE_RUNNER_CSV_H

#include <cstddef>
#include <string>
#include <vector>

namespace runner {

struct CsvTable {
    std::vector<std::string> columns;
    std::vector<std::vector<std::string>> rows;
};

// Reads CSV text: fields separated by commas, "quoted" fields may hold
// commas, line breaks and doubled quotes; a leading byte-order mark and CR-LF
// line ends are accepted. Every row must have as many fields as the header.
// False with "file:line: message" for an unterminated quote, a row of the
// wrong width, a missing or duplicated header name, or no rows at all.
bool parse_csv(const std::string &file, const std::string &text, CsvTable &table,
               std::string &error);

enum class RowMode { Sequential, Random, Unique };

// Hands out the rows of one data line. Sequential wraps around; unique gives
// user vu of users rows vu-1, vu-1+users, ... (from 0) and then no more.
class DataSource {
public:
    DataSource(CsvTable table, RowMode mode, int vu, int users)
        : table_(std::move(table)), mode_(mode), vu_(vu), users_(users) {}

    const CsvTable &table() const { return table_; }
    // The index of the next row; false when a unique source is used up.
    // random_row is the row a random source takes.
    bool next(size_t random_row, size_t &row);

private:
    CsvTable table_;
    RowMode mode_;
    int vu_, users_;
    size_t taken_ = 0;
};

}  // namespace runner

#endif
