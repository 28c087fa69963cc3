#include "tools/runner/baseline.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <unordered_map>

#include "tools/runner/csv.h"

namespace runner {
namespace {

bool read_field(const std::string &text, double &out) {
    if (text.empty()) return false;
    char *end = nullptr;
    errno = 0;
    double v = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size() || errno != 0 || !std::isfinite(v) || v < 0) return false;
    out = v;
    return true;
}

double change(double now, double was) {
    if (!(was > 0)) return std::numeric_limits<double>::quiet_NaN();
    return (now - was) / was * 100;
}

}  // namespace

bool parse_baseline(const std::string &file, const std::string &text, std::vector<StatsRow> &rows,
                    std::string &error) {
    CsvTable table;
    if (!parse_csv(file, text, table, error)) return false;
    auto column = [&](const char *name) -> int {
        for (size_t i = 0; i < table.columns.size(); ++i)
            if (table.columns[i] == name) return static_cast<int>(i);
        return -1;
    };
    const char *needed[] = {"name", "count", "failed", "calls_per_s", "p50_ms", "p95_ms", "p99_ms"};
    for (const char *n : needed)
        if (column(n) < 0) {
            error = file + ": not a stats file of orbelle-run: no column " + n;
            return false;
        }
    struct Field {
        const char *column;
        double StatsRow::*member;
        bool response;
    };
    static const Field fields[] = {{"calls_per_s", &StatsRow::per_second, false},
                                   {"min_ms", &StatsRow::min_ms, false},
                                   {"p50_ms", &StatsRow::p50_ms, false},
                                   {"p90_ms", &StatsRow::p90_ms, false},
                                   {"p95_ms", &StatsRow::p95_ms, false},
                                   {"p99_ms", &StatsRow::p99_ms, false},
                                   {"max_ms", &StatsRow::max_ms, false},
                                   {"mean_ms", &StatsRow::mean_ms, false},
                                   {"response_p50_ms", &StatsRow::r_p50_ms, true},
                                   {"response_p90_ms", &StatsRow::r_p90_ms, true},
                                   {"response_p95_ms", &StatsRow::r_p95_ms, true},
                                   {"response_p99_ms", &StatsRow::r_p99_ms, true},
                                   {"response_max_ms", &StatsRow::r_max_ms, true},
                                   {"response_mean_ms", &StatsRow::r_mean_ms, true}};
    rows.clear();
    for (size_t line = 0; line < table.rows.size(); ++line) {
        const std::vector<std::string> &cells = table.rows[line];
        StatsRow r;
        r.name = cells[static_cast<size_t>(column("name"))];
        double count = 0, failed = 0;
        if (!read_field(cells[static_cast<size_t>(column("count"))], count) ||
            !read_field(cells[static_cast<size_t>(column("failed"))], failed)) {
            error = file + ":" + std::to_string(line + 2) + ": count and failed must be numbers";
            return false;
        }
        r.count = static_cast<uint64_t>(std::min(count, 1e18));
        r.failed = static_cast<uint64_t>(std::min(failed, 1e18));
        // Empty time columns: a name without times (a check) or without a
        // response time (a closed run).
        r.timed = false;
        for (const Field &f : fields) {
            int at = column(f.column);
            if (at < 0) continue;
            const std::string &cell = cells[static_cast<size_t>(at)];
            if (cell.empty()) continue;
            if (!read_field(cell, r.*f.member)) {
                error = file + ":" + std::to_string(line + 2) + ": " + f.column +
                        " is not a number: " + cell.substr(0, 40);
                return false;
            }
            if (f.response)
                r.has_response = true;
            else if (f.member != &StatsRow::per_second)
                r.timed = true;
        }
        rows.push_back(std::move(r));
    }
    return true;
}

bool read_baseline(const std::string &path, std::vector<StatsRow> &rows, std::string &error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot read the baseline " + path + ": " + std::strerror(errno);
        return false;
    }
    std::string text(max_baseline_bytes + 1, '\0');
    in.read(&text[0], static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(in.gcount()));
    if (text.size() > max_baseline_bytes) {
        error = path + ": larger than " + std::to_string(max_baseline_bytes >> 20) +
                " MB: not a stats file of orbelle-run";
        return false;
    }
    return parse_baseline(path, text, rows, error);
}

std::vector<BaselineDelta> compare_to_baseline(const std::vector<StatsRow> &now,
                                               const std::vector<StatsRow> &baseline) {
    std::vector<BaselineDelta> out;
    std::unordered_map<std::string, const StatsRow *> by_name;
    for (const StatsRow &b : baseline) by_name.emplace(b.name, &b);
    const double none = std::numeric_limits<double>::quiet_NaN();
    for (const StatsRow &r : now) {
        BaselineDelta d{r.name, none, none, none, none};
        auto found = by_name.find(r.name);
        const StatsRow *was = found == by_name.end() ? nullptr : found->second;
        if (was != nullptr) {
            bool resp = r.has_response && was->has_response;
            if (r.timed && was->timed) {
                d.p50 = change(resp ? r.r_p50_ms : r.p50_ms, resp ? was->r_p50_ms : was->p50_ms);
                d.p95 = change(resp ? r.r_p95_ms : r.p95_ms, resp ? was->r_p95_ms : was->p95_ms);
                d.p99 = change(resp ? r.r_p99_ms : r.p99_ms, resp ? was->r_p99_ms : was->p99_ms);
            }
            d.rate = change(r.per_second, was->per_second);
        }
        out.push_back(d);
    }
    return out;
}

}  // namespace runner
