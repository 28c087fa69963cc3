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
                 "name,kind,count,failed,calls_per_s,min_ms,p50_ms,p90_ms,p95_ms,p99_ms,max_ms,"
                 "mean_ms,response_p50_ms,response_p90_ms,response_p95_ms,response_p99_ms,"
                 "response_max_ms,response_mean_ms,dropped\n");
    for (const StatsRow &r : report.rows) {
        std::fprintf(stats.get(), "%s,%s,%llu,%llu,%.3f", field(r.name).c_str(), r.kind.c_str(),
                     static_cast<unsigned long long>(r.count),
                     static_cast<unsigned long long>(r.failed), r.per_second);
        if (r.timed && r.count > 0)
            std::fprintf(stats.get(), ",%.3f,%.3f,%.3f,%.3f,%.3f,%.3f,%.3f", r.min_ms, r.p50_ms,
                         r.p90_ms, r.p95_ms, r.p99_ms, r.max_ms, r.mean_ms);
        else
            std::fprintf(stats.get(), ",,,,,,,");
        if (r.has_response)
            std::fprintf(stats.get(), ",%.3f,%.3f,%.3f,%.3f,%.3f,%.3f", r.r_p50_ms, r.r_p90_ms,
                         r.r_p95_ms, r.r_p99_ms, r.r_max_ms, r.r_mean_ms);
        else
            std::fprintf(stats.get(), ",,,,,,");
        if (report.open_model && r.kind == "iteration")
            std::fprintf(stats.get(), ",%llu\n", static_cast<unsigned long long>(report.dropped));
        else
            std::fprintf(stats.get(), ",\n");
    }
    if (!stats.close(error)) return false;

    CsvFile history;
    if (!history.open(prefix + "_history.csv", error)) return false;
    std::fprintf(history.get(),
                 "second,name,count,failures,p50_ms,p95_ms,p99_ms,users,iterations,target,"
                 "dropped\n");
    for (const SecondRow &r : report.history) {
        std::fprintf(
            history.get(), "%lld,%s,%llu,%llu,%.3f,%.3f,%.3f,%d", static_cast<long long>(r.second),
            field(r.name).c_str(), static_cast<unsigned long long>(r.count),
            static_cast<unsigned long long>(r.failures), r.p50_ms, r.p95_ms, r.p99_ms, r.users);
        if (r.name == kAllCalls && report.open_model)
            std::fprintf(history.get(), ",%llu,%.3f,%llu\n",
                         static_cast<unsigned long long>(r.iterations), r.target,
                         static_cast<unsigned long long>(r.dropped));
        else if (r.name == kAllCalls)  // the closed model has no target
            std::fprintf(history.get(), ",%llu,,\n", static_cast<unsigned long long>(r.iterations));
        else
            std::fprintf(history.get(), ",,,\n");
    }
    if (!history.close(error)) return false;

    // The spectrum of each timed name: service time, and the response time
    // where it was measured.
    CsvFile spectrum;
    if (!spectrum.open(prefix + "_percentiles.csv", error)) return false;
    std::fprintf(spectrum.get(), "name,time,percentile,ms\n");
    for (const StatsRow &r : report.rows) {
        for (const auto &p : r.spectrum)
            std::fprintf(spectrum.get(), "%s,service,%.6f,%.3f\n", field(r.name).c_str(), p.first,
                         p.second);
        for (const auto &p : r.r_spectrum)
            std::fprintf(spectrum.get(), "%s,response,%.6f,%.3f\n", field(r.name).c_str(), p.first,
                         p.second);
    }
    return spectrum.close(error);
}

}  // namespace runner
