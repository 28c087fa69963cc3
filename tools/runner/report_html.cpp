// The HTML report of a load run: one page that holds everything it shows.
// The settings, the final table and the failures are plain HTML, readable
// without scripts; the charts are drawn by the inlined uPlot from a JSON
// element that holds numbers only, so no text from a server or a script ever
// reaches a script. Every text from the model is escaped.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <string_view>

#include "tools/runner/report.h"
#include "tools/runner/report_assets.h"
#include "tools/runner/report_text.h"

namespace runner {
using report_text::clip;
using report_text::fixed;
using report_text::ms;
using report_text::put_json_number;
using report_text::put_text;
using report_text::utc_time;

namespace {

// An error text can hold a whole reply of a server; the failures table shows
// its start, which is enough to recognise the failure.
constexpr size_t kMaxExampleBytes = 2000;

class Page {
public:
    explicit Page(const RunReport &report) : report_(report) {}

    std::string render() {
        out_.reserve(assets::uplot_js.size() + assets::uplot_css.size() + assets::page_js.size() +
                     assets::page_css.size() + 16384);
        const std::string title = report_.title.empty() ? "Load run" : report_.title;
        out_ += "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n";
        out_ += "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
        put_text(out_, title);
        out_ += "</title>\n<style>\n";
        out_ += assets::uplot_css;
        out_ += "\n</style>\n<style>\n";
        out_ += assets::page_css;
        out_ += "\n</style>\n</head>\n<body>\n<main>\n<h1>";
        put_text(out_, title);
        out_ += "</h1>\n";
        when();
        verdicts();
        cards();
        settings();
        results();
        responses();
        deltas();
        failures();
        charts();
        out_ += "</main>\n<script type=\"application/json\" id=\"run-data\">";
        history_json();
        out_ += "</script>\n<script>\n";
        out_ += assets::uplot_js;
        out_ += "\n</script>\n<script>\n";
        out_ += assets::page_js;
        out_ += "\n</script>\n</body>\n</html>\n";
        return std::move(out_);
    }

private:
    void when() {
        out_ += "<p class=\"when\">";
        if (report_.started_ms > 0)
            out_ += "Started " + utc_time(report_.started_ms) + ", ran ";
        else
            out_ += "Ran ";
        out_ += fixed(report_.duration_s, 1) + " s.</p>\n";
    }

    void card(const std::string &value, const char *label, bool bad = false) {
        out_ += bad ? "<div class=\"card bad\"><b>" : "<div class=\"card\"><b>";
        out_ += value + "</b><span>" + label + "</span></div>\n";
    }

    // The headline figures of every request together.
    void cards() {
        auto all = std::find_if(report_.rows.begin(), report_.rows.end(),
                                [](const StatsRow &row) { return row.name == kAllCalls; });
        if (all == report_.rows.end()) return;
        out_ += "<div class=\"cards\">\n";
        card(std::to_string(all->count), kAllCalls);
        std::string failed = std::to_string(all->failed);
        if (all->count > 0)
            failed +=
                " (" +
                fixed(100.0 * static_cast<double>(all->failed) / static_cast<double>(all->count),
                      2) +
                "%)";
        card(failed, "failed", all->failed > 0);
        card(fixed(all->per_second, 1), "per second");
        card(ms(all->p50_ms), "p50 ms");
        card(ms(all->p95_ms), "p95 ms");
        card(ms(all->p99_ms), "p99 ms");
        out_ += "</div>\n";
    }

    // The thresholds' verdicts open the report, as they open the summary.
    void verdicts() {
        if (report_.verdicts.empty()) return;
        out_ += "<h2>Thresholds</h2>\n<table class=\"verdicts\">\n";
        for (const Verdict &v : report_.verdicts) {
            out_ += v.passed ? "<tr><td class=\"good\">passed</td><td class=\"text\">"
                             : "<tr><td class=\"bad\">BREACHED</td><td class=\"text\">";
            put_text(out_, v.text);
            out_ += "</td><td class=\"text\">";
            put_text(out_, v.detail);
            out_ += "</td></tr>\n";
        }
        out_ += "</table>\n";
    }

    // Under a rate: the response time, from when each iteration was due.
    void responses() {
        bool any = false;
        for (const StatsRow &row : report_.rows) any = any || row.has_response;
        if (!any && !report_.open_model) return;
        out_ += "<h2>Response time, from when each iteration was due</h2>\n";
        out_ += "<p class=\"none\">Dropped iterations (due while every user was busy): " +
                std::to_string(report_.dropped) + ".</p>\n";
        if (!any) return;
        out_ +=
            "<table class=\"stats\">\n<tr><th>name</th><th>service p50 ms</th>"
            "<th>p50 ms</th><th>p90 ms</th><th>p95 ms</th><th>p99 ms</th><th>max ms</th></tr>\n";
        for (const StatsRow &row : report_.rows) {
            if (!row.has_response) continue;
            out_ += "<tr><td>";
            put_text(out_, row.name);
            out_ += "</td>";
            for (double value :
                 {row.p50_ms, row.r_p50_ms, row.r_p90_ms, row.r_p95_ms, row.r_p99_ms, row.r_max_ms})
                out_ += "<td>" + ms(value) + "</td>";
            out_ += "</tr>\n";
        }
        out_ += "</table>\n";
    }

    void deltas() {
        if (report_.baseline.empty()) return;
        out_ += "<h2>Against the baseline ";
        put_text(out_, report_.baseline);
        out_ +=
            "</h2>\n<table class=\"stats\">\n<tr><th>name</th><th>p50</th><th>p95</th>"
            "<th>p99</th><th>per second</th></tr>\n";
        for (const BaselineDelta &d : report_.deltas) {
            out_ += "<tr><td>";
            put_text(out_, d.name);
            out_ += "</td>";
            for (double value : {d.p50, d.p95, d.p99, d.rate})
                out_ += std::isfinite(value) ? "<td>" + std::string(value >= 0 ? "+" : "") +
                                                   fixed(value, 1) + "%</td>"
                                             : std::string("<td>new</td>");
            out_ += "</tr>\n";
        }
        out_ += "</table>\n";
    }

    void settings() {
        if (report_.settings.empty()) return;
        out_ += "<h2>Settings</h2>\n<table class=\"settings\">\n";
        for (const auto &[name, value] : report_.settings) {
            out_ += "<tr><th>";
            put_text(out_, name);
            out_ += "</th><td>";
            put_text(out_, value);
            out_ += "</td></tr>\n";
        }
        out_ += "</table>\n";
    }

    void results() {
        out_ += "<h2>Results</h2>\n";
        if (report_.rows.empty()) {
            out_ += "<p class=\"none\">Nothing was counted.</p>\n";
            return;
        }
        out_ +=
            "<table class=\"stats\">\n<tr><th>name</th><th class=\"kind\">kind</th><th>count</th>"
            "<th>failed</th><th>calls/s</th><th>min ms</th><th>p50 ms</th><th>p90 ms</th>"
            "<th>p95 ms</th><th>p99 ms</th><th>max ms</th></tr>\n";
        for (const StatsRow &row : report_.rows) {
            out_ += row.name == kAllCalls ? "<tr class=\"all\"><td>" : "<tr><td>";
            put_text(out_, row.name);
            out_ += "</td><td class=\"kind\">";
            put_text(out_, row.kind);
            out_ += "</td><td>" + std::to_string(row.count) + "</td>";
            out_ += row.failed > 0 ? "<td class=\"bad\">" : "<td>";
            out_ += std::to_string(row.failed) + "</td><td>" + fixed(row.per_second, 1) + "</td>";
            for (double value :
                 {row.min_ms, row.p50_ms, row.p90_ms, row.p95_ms, row.p99_ms, row.max_ms})
                out_ += "<td>" + (row.timed ? ms(value) : std::string()) + "</td>";
            out_ += "</tr>\n";
        }
        out_ += "</table>\n";
    }

    void failures() {
        out_ += "<h2>Failures</h2>\n";
        if (report_.failures.empty()) {
            out_ += "<p class=\"none\">No failures.</p>\n";
            return;
        }
        out_ +=
            "<table class=\"failures\">\n<tr><th>id</th><th>count</th>"
            "<th class=\"text\">example</th></tr>\n";
        for (const FailureRow &row : report_.failures) {
            out_ += "<tr><td>";
            put_text(out_, row.id);
            out_ += "</td><td class=\"bad\">" + std::to_string(row.count) +
                    "</td><td class=\"text\"><pre class=\"example\">";
            std::string_view example = clip(row.example, kMaxExampleBytes);
            put_text(out_, example);
            if (example.size() < row.example.size()) out_ += "\u2026";
            out_ += "</pre></td></tr>\n";
        }
        out_ += "</table>\n";
    }

    // The run's seconds, from the rows of every request together, in order and
    // each once (a later row for a second already seen is left out).
    void pick_seconds() {
        for (const SecondRow &row : report_.history)
            if (row.name == kAllCalls) seconds_.push_back(&row);
        std::stable_sort(
            seconds_.begin(), seconds_.end(),
            [](const SecondRow *a, const SecondRow *b) { return a->second < b->second; });
        seconds_.erase(std::unique(seconds_.begin(), seconds_.end(),
                                   [](const SecondRow *a, const SecondRow *b) {
                                       return a->second == b->second;
                                   }),
                       seconds_.end());
    }

    void charts() {
        pick_seconds();
        for (const StatsRow &row : report_.rows)
            if (row.timed && row.count > 0 && !row.spectrum.empty()) named_.push_back(&row);
        out_ += "<h2>Over time</h2>\n<section id=\"charts\" data-seconds=\"" +
                std::to_string(seconds_.size()) + "\">\n";
        if (seconds_.empty()) {
            out_ += "<p class=\"none\">The run has no whole second to chart.</p>\n</section>\n";
            return;
        }
        out_ += "<div class=\"charts\">\n";
        static const char *const figures[][2] = {
            {"throughput", "Requests per second"},
            {"failures", "Failures per second"},
            {"latency", "Latency p50, p95, p99 (ms)"},
            {"users", "Users running"},
            {"rate", "Iterations per second: achieved, target, dropped"}};
        for (const auto &figure : figures)
            out_ += std::string("<figure id=\"chart-") + figure[0] + "\"><figcaption>" + figure[1] +
                    "</figcaption></figure>\n";
        // One name at a time, chosen here: the names are text of the
        // scripts, so they stay in the page's HTML, escaped, and the data
        // refer to them by number.
        out_ += "</div>\n<p class=\"choice\"><label>Name <select id=\"name-choice\">";
        // The first transaction with seconds to chart, else every request
        // together, is shown first.
        std::set<std::string_view> charted;  // names with a second to chart
        for (const SecondRow &row : report_.history)
            if (row.count > 0) charted.insert(row.name);
        size_t shown = named_.size();
        for (size_t i = 0; i < named_.size() && shown == named_.size(); ++i)
            if (named_[i]->kind == "transaction" && charted.count(named_[i]->name)) shown = i;
        for (size_t i = 0; i < named_.size() && shown == named_.size(); ++i)
            if (named_[i]->name == kAllCalls) shown = i;
        for (size_t i = 0; i < named_.size(); ++i) {
            out_ += "<option value=\"" + std::to_string(i) + (i == shown ? "\" selected>" : "\">");
            put_text(out_, named_[i]->name);
            out_ += "</option>";
        }
        out_ += "</select></label></p>\n<div class=\"charts\">\n";
        out_ +=
            "<figure id=\"chart-name\"><figcaption>Latency of the name over time, p50, p95, p99 "
            "(ms)</figcaption></figure>\n<figure id=\"chart-spectrum\"><figcaption>Latency by "
            "percentile, service and response time (ms)</figcaption></figure>\n";
        out_ +=
            "</div>\n<noscript><p class=\"none\">The charts need JavaScript; the tables above "
            "hold the run's figures.</p></noscript>\n</section>\n";
    }

    template <typename Value>
    void json_array(const char *key, Value value) {
        out_ += std::string("\"") + key + "\":[";
        for (size_t i = 0; i < seconds_.size(); ++i) {
            if (i > 0) out_ += ',';
            put_json_number(out_, value(*seconds_[i]));
        }
        out_ += ']';
    }

    // One array per measure, one entry per second; latency is null in a
    // second without requests, so that the chart shows a gap, not a zero.
    void history_json() {
        auto latency = [](double SecondRow::*field) {
            return
                [field](const SecondRow &row) { return row.count > 0 ? row.*field : std::nan(""); };
        };
        out_ += '{';
        json_array("seconds", [](const SecondRow &row) { return double(row.second); });
        out_ += ',';
        json_array("calls", [](const SecondRow &row) { return double(row.count); });
        out_ += ',';
        json_array("failures", [](const SecondRow &row) { return double(row.failures); });
        out_ += ',';
        json_array("p50", latency(&SecondRow::p50_ms));
        out_ += ',';
        json_array("p95", latency(&SecondRow::p95_ms));
        out_ += ',';
        json_array("p99", latency(&SecondRow::p99_ms));
        out_ += ',';
        json_array("users", [](const SecondRow &row) { return double(row.users); });
        const bool open = report_.open_model;
        out_ += ',';
        json_array("iterations", [](const SecondRow &row) { return double(row.iterations); });
        out_ += ',';
        json_array("target",
                   [open](const SecondRow &row) { return open ? row.target : std::nan(""); });
        out_ += ',';
        json_array("dropped", [open](const SecondRow &row) {
            return open ? double(row.dropped) : std::nan("");
        });
        names_json();
        out_ += '}';
    }

    void put_numbers(const std::vector<double> &values) {
        out_ += '[';
        for (size_t i = 0; i < values.size(); ++i) {
            if (i > 0) out_ += ',';
            put_json_number(out_, values[i]);
        }
        out_ += ']';
    }

    // Per timed name, in the order of the select: p50/p95/p99 by second
    // (null where the name had nothing) and the spectrum, its x the
    // percentile p as 1/(1-p) for a log scale (the maximum left out).
    void names_json() {
        std::map<std::string, size_t> index;
        for (size_t i = 0; i < named_.size(); ++i) index.emplace(named_[i]->name, i);
        std::map<int64_t, size_t> at;
        for (size_t i = 0; i < seconds_.size(); ++i) at.emplace(seconds_[i]->second, i);
        const double none = std::nan("");
        std::vector<std::vector<double>> p50(named_.size(),
                                             std::vector<double>(seconds_.size(), none));
        auto p95 = p50, p99 = p50;
        for (const SecondRow &row : report_.history) {
            auto name = index.find(row.name);
            auto second = at.find(row.second);
            if (name == index.end() || second == at.end() || row.count == 0) continue;
            p50[name->second][second->second] = row.p50_ms;
            p95[name->second][second->second] = row.p95_ms;
            p99[name->second][second->second] = row.p99_ms;
        }
        out_ += ",\"names\":[";
        for (size_t i = 0; i < named_.size(); ++i) {
            const StatsRow &row = *named_[i];
            out_ += i ? ",{\"p50\":" : "{\"p50\":";
            put_numbers(p50[i]);
            out_ += ",\"p95\":";
            put_numbers(p95[i]);
            out_ += ",\"p99\":";
            put_numbers(p99[i]);
            std::vector<double> x, service, response;
            for (size_t k = 0; k < row.spectrum.size(); ++k) {
                double p = row.spectrum[k].first;
                if (p >= 100) break;
                x.push_back(1 / (1 - p / 100));
                service.push_back(row.spectrum[k].second);
                response.push_back(k < row.r_spectrum.size() ? row.r_spectrum[k].second : none);
            }
            out_ += ",\"x\":";
            put_numbers(x);
            out_ += ",\"service\":";
            put_numbers(service);
            out_ += ",\"response\":";
            put_numbers(response);
            out_ += '}';
        }
        out_ += ']';
    }

    const RunReport &report_;
    std::string out_;
    std::vector<const SecondRow *> seconds_;
    std::vector<const StatsRow *> named_;  // the timed rows, as the select lists them
};

}  // namespace

bool write_html_report(const RunReport &report, const std::string &path, std::string &error) {
    const std::string page = Page(report).render();
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        error = "cannot write the report " + path + ": " + std::strerror(errno);
        return false;
    }
    out.write(page.data(), static_cast<std::streamsize>(page.size()));
    out.close();
    if (!out) {
        error = "cannot write the report " + path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace runner
