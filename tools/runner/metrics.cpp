#include "tools/runner/metrics.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace runner {
namespace {

constexpr char separator = '\x1f';  // between parts of a key: no name holds it

std::string number(double v) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.9g", v);
    return buf;
}

}  // namespace

std::string prometheus_label(const std::string &value) {
    std::string out;
    out.reserve(value.size());
    for (char c : value) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '"')
            out += "\\\"";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

void Metrics::add(const Event &event) {
    std::string_view kind = event.kind;
    const char *outcome = event.ok ? "ok" : "failed";
    if (kind == "check") {
        ++checks_[event.name + separator + outcome];
        return;
    }
    if (kind != "call" && kind != "transaction" && kind != "iteration") return;
    if (kind == "call" && event.name.compare(0, 7, "invoke ") == 0)
        ++(event.ok ? requests_ok_ : requests_failed_);
    std::string key = std::string(kind) + separator + event.name;
    count(timed_[key][outcome], std::max(0.0, event.ms) / 1000);
    if (event.wait_ms >= 0)
        count(response_[key][outcome], std::max(0.0, event.ms + event.wait_ms) / 1000);
}

void Metrics::count(Series &s, double seconds) {
    size_t at = static_cast<size_t>(std::lower_bound(bounds.begin(), bounds.end(), seconds) -
                                    bounds.begin());
    if (at < bounds.size()) ++s.buckets[at];
    ++s.count;
    s.sum_s += seconds;
}

void Metrics::render_histogram(
    std::string &out, const char *metric,
    const std::map<std::string, std::map<std::string, Series>> &by) const {
    const std::string name = metric;
    for (const auto &[key, outcomes] : by) {
        size_t cut = key.find(separator);
        std::string labels = "kind=\"" + key.substr(0, cut) + "\",name=\"" +
                             prometheus_label(key.substr(cut + 1)) + "\",outcome=\"";
        for (const auto &[outcome, s] : outcomes) {
            std::string l = labels + outcome + "\"";
            uint64_t below = 0;
            for (size_t i = 0; i < bounds.size(); ++i) {
                below += s.buckets[i];
                out += name + "_bucket{" + l + ",le=\"" + number(bounds[i]) + "\"} " +
                       std::to_string(below) + "\n";
            }
            out += name + "_bucket{" + l + ",le=\"+Inf\"} " + std::to_string(s.count) + "\n";
            out += name + "_sum{" + l + "} " + number(s.sum_s) + "\n";
            out += name + "_count{" + l + "} " + std::to_string(s.count) + "\n";
        }
    }
}

std::string Metrics::render(const RunGauges &g) const {
    std::string out;
    out +=
        "# HELP orbelle_requests_total Requests sent (the calls of invoke commands), by outcome.\n"
        "# TYPE orbelle_requests_total counter\n";
    out += "orbelle_requests_total{outcome=\"ok\"} " + std::to_string(requests_ok_) + "\n";
    out += "orbelle_requests_total{outcome=\"failed\"} " + std::to_string(requests_failed_) + "\n";
    out +=
        "# HELP orbelle_duration_seconds Time of calls, transactions and iterations, by kind, "
        "name and outcome.\n# TYPE orbelle_duration_seconds histogram\n";
    render_histogram(out, "orbelle_duration_seconds", timed_);
    if (!response_.empty()) {
        out +=
            "# HELP orbelle_response_seconds Under a rate: time of transactions and iterations "
            "from when their iteration was due.\n# TYPE orbelle_response_seconds histogram\n";
        render_histogram(out, "orbelle_response_seconds", response_);
    }
    out +=
        "# HELP orbelle_checks_total Checks, by name and outcome.\n"
        "# TYPE orbelle_checks_total counter\n";
    for (const auto &[key, count] : checks_) {
        size_t cut = key.find(separator);
        out += "orbelle_checks_total{name=\"" + prometheus_label(key.substr(0, cut)) +
               "\",outcome=\"" + key.substr(cut + 1) + "\"} " + std::to_string(count) + "\n";
    }
    out += "# HELP orbelle_users Users running.\n# TYPE orbelle_users gauge\norbelle_users " +
           std::to_string(g.users) + "\n";
    out +=
        "# HELP orbelle_achieved_iterations_per_second Iterations ended in the last second.\n"
        "# TYPE orbelle_achieved_iterations_per_second gauge\n"
        "orbelle_achieved_iterations_per_second " +
        number(g.achieved_per_s) + "\n";
    if (g.open) {
        out +=
            "# HELP orbelle_target_iterations_per_second The open model's target rate.\n"
            "# TYPE orbelle_target_iterations_per_second gauge\n"
            "orbelle_target_iterations_per_second " +
            number(g.target_per_s) + "\n";
        out +=
            "# HELP orbelle_dropped_iterations_total Iterations due while every user was busy.\n"
            "# TYPE orbelle_dropped_iterations_total counter\n"
            "orbelle_dropped_iterations_total " +
            std::to_string(g.dropped) + "\n";
    }
    return out;
}

}  // namespace runner
