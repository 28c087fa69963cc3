// The CSV files of a load run: the final table and the history by second.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tools/runner/report.h"

namespace runner {
namespace {

// A field as CSV wants it: quoted when it holds a comma, quote or line end.
std::string field(const std::string &text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string out = "\"";
    for (char c : text) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + '"';
}

class CsvFile {
public:
    bool open(const std::string &path, std::string &error) {
        path_ = path;
        file_ = std::fopen(path.c_str(), "w");
        if (file_ == nullptr) error = "cannot write " + path + ": " + std::strerror(errno);
        return file_ != nullptr;
    }
    ~CsvFile() {
        if (file_) std::fclose(file_);
    }
    FILE *get() { return file_; }
    bool close(std::string &error) {
        bool ok = std::ferror(file_) == 0;
        ok = std::fclose(file_) == 0 && ok;
        file_ = nullptr;
        if (!ok) error = "cannot write " + path_ + ": " + std::strerror(errno);
        return ok;
    }

private:
    std::string path_;
    FILE *file_ = nullptr;
};

}  // namespace

bool write_csv_report(const RunReport &report, const std::string &prefix, std::string &error) {
    CsvFile stats;
    if (!stats.open(prefix + "_stats.csv", error)) return false;
    std::fprintf(stats.get(),
                 "name,kind,count,failed,calls_per_s,min_ms,p50_ms,p90_ms,p95_ms,p99_ms,max_ms\n");
    for (const StatsRow &r : report.rows) {
        std::fprintf(stats.get(), "%s,%s,%llu,%llu,%.3f", field(r.name).c_str(), r.kind.c_str(),
                     static_cast<unsigned long long>(r.count),
                     static_cast<unsigned long long>(r.failed), r.per_second);
        if (r.timed && r.count > 0)
            std::fprintf(stats.get(), ",%.3f,%.3f,%.3f,%.3f,%.3f,%.3f\n", r.min_ms, r.p50_ms,
                         r.p90_ms, r.p95_ms, r.p99_ms, r.max_ms);
        else
            std::fprintf(stats.get(), ",,,,,,\n");
    }
    if (!stats.close(error)) return false;

    CsvFile history;
    if (!history.open(prefix + "_history.csv", error)) return false;
    std::fprintf(history.get(), "second,name,count,failures,p50_ms,p95_ms,p99_ms,users\n");
    for (const SecondRow &r : report.history)
        std::fprintf(history.get(), "%lld,%s,%llu,%llu,%.3f,%.3f,%.3f,%d\n",
                     static_cast<long long>(r.second), field(r.name).c_str(),
                     static_cast<unsigned long long>(r.count),
                     static_cast<unsigned long long>(r.failures), r.p50_ms, r.p95_ms, r.p99_ms,
                     r.users);
    return history.close(error);
}

}  // namespace runner
