// Live metrics of a load run in the Prometheus text format, served over
// HTTP by the parent: counters and latency histograms per name and
// outcome, every request together, users running, the target and achieved
// rate and the dropped iterations. No metrics library: a handful of
// counters and fixed buckets.
#ifndef ORBELLE_RUNNER_METRICS_H
#define ORBELLE_RUNNER_METRICS_H

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "tools/runner/events.h"

namespace runner {

// What the parent knows of the run as a whole, at a scrape.
struct RunGauges {
    int users = 0;
    double target_per_s = 0;  // the open model's target; 0 in the closed model
    double achieved_per_s = 0;
    uint64_t dropped = 0;
    bool open = false;
};

class Metrics {
public:
    // The histograms' upper bounds, in seconds: loopback calls to slow
    // transactions.
    static constexpr std::array<double, 16> bounds = {0.0001, 0.00025, 0.0005, 0.001, 0.0025, 0.005,
                                                      0.01,   0.025,   0.05,   0.1,   0.25,   0.5,
                                                      1,      2.5,     5,      10};

    // Counts one event, as the aggregator does (the same names and kinds).
    void add(const Event &event);
    // The whole text of a scrape.
    std::string render(const RunGauges &gauges) const;

private:
    struct Series {
        std::array<uint64_t, bounds.size()> buckets{};  // not cumulative
        uint64_t count = 0;
        double sum_s = 0;
    };
    static void count(Series &s, double seconds);
    void render_histogram(std::string &out, const char *metric,
                          const std::map<std::string, std::map<std::string, Series>> &by) const;
    // By kind, name and outcome ("ok", "failed"): the service time, and
    // under a rate the response time (from when the iteration was due).
    std::map<std::string, std::map<std::string, Series>> timed_;  // key: kind \x1f name
    std::map<std::string, std::map<std::string, Series>> response_;
    std::map<std::string, uint64_t> checks_;  // key: name \x1f outcome
    uint64_t requests_ok_ = 0, requests_failed_ = 0;
};

// A label value as the text format wants it: backslash, quote and line
// end escaped.
std::string prometheus_label(const std::string &value);

}  // namespace runner

#endif
