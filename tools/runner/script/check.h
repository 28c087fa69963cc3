// The check of scripts before anything is sent: what the script says about
// itself (objects bound before use, variables set before use, transactions
// that close) and, given the descriptions, what it says about the
// interfaces it calls (operations, parameter names, values, comparisons).
#ifndef ORBELLE_RUNNER_SCRIPT_CHECK_H
#define ORBELLE_RUNNER_SCRIPT_CHECK_H

#include <map>
#include <string>
#include <vector>

#include "tools/runner/csv.h"
#include "tools/runner/script.h"
#include "tools/runner/script/describe.h"
#include "tools/runner/script/mistakes.h"

namespace runner {

// The columns of each data line of a script, by line number.
using DataColumns = std::map<int, std::vector<std::string>>;

// A data file read for the data line of a script, by line number: its path
// as the script reaches it and its table, whose rows are checked against the
// types of the values they fill.
struct DataFile {
    std::string path;
    const CsvTable *table = nullptr;
};
using DataFiles = std::map<int, DataFile>;

// Adds every mistake of script to mistakes. Without descriptions only what
// the script says about itself is checked.
void check_script(const Script &script, const DataFiles &data, Descriptions *descriptions,
                  Mistakes &mistakes);

// Checks what the script says about itself; false with the first mistake
// ("file:line:column: message") in error.
bool check_script(const Script &script, const DataColumns &columns, std::string &error);
bool check_script(const Script &script, std::string &error);

}  // namespace runner

#endif
