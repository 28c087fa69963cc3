#include "tools/runner/thresholds.h"

#include <cmath>
#include <cstdlib>

namespace runner {
namespace {

std::string trim(const std::string &text) {
    size_t b = text.find_first_not_of(" \t");
    if (b == std::string::npos) return "";
    size_t e = text.find_last_not_of(" \t");
    return text.substr(b, e - b + 1);
}

bool read_number(const std::string &text, double &out) {
    if (text.empty() || text.find_first_not_of("0123456789.") != std::string::npos) return false;
    char *end = nullptr;
    out = std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size() && std::isfinite(out) && out <= 1e15;
}

// The number before one of the units (name, scale), or plain when one is
// "" (scale 1).
bool read_with_unit(const std::string &text,
                    const std::vector<std::pair<const char *, double>> &units, double &out) {
    for (const auto &u : units) {
        std::string unit = u.first;
        if (text.size() < unit.size() || text.compare(text.size() - unit.size(), unit.size(), unit))
            continue;
        double v = 0;
        if (read_number(text.substr(0, text.size() - unit.size()), v)) {
            out = v * u.second;
            return true;
        }
    }
    return false;
}

const struct {
    const char *word;
    Condition::Metric metric;
} metrics[] = {{"p50", Condition::Metric::P50},           {"p90", Condition::Metric::P90},
               {"p95", Condition::Metric::P95},           {"p99", Condition::Metric::P99},
               {"max", Condition::Metric::Max},           {"mean", Condition::Metric::Mean},
               {"failures", Condition::Metric::Failures}, {"rate", Condition::Metric::Rate},
               {"dropped", Condition::Metric::Dropped}};

const struct {
    const char *text;
    Condition::Op op;
} ops[] = {{"<=", Condition::Op::LessOrEqual},
           {">=", Condition::Op::GreaterOrEqual},
           {"<", Condition::Op::Less},
           {">", Condition::Op::Greater},
           {"=", Condition::Op::Equal}};

bool is_time(Condition::Metric m) { return m <= Condition::Metric::Mean; }

bool parse_condition(const std::string &text, Condition &c, std::string &error) {
    size_t at = text.find_first_of("<>=");
    std::string word = trim(text.substr(0, at));
    bool known = false;
    for (const auto &m : metrics)
        if (word == m.word) {
            c.metric = m.metric;
            known = true;
        }
    if (!known || at == std::string::npos) {
        error = "'" + text +
                "' is not METRIC OP VALUE (p50 p90 p95 p99 max mean failures rate "
                "dropped; < <= > >= =)";
        return false;
    }
    size_t len = 0;
    for (const auto &o : ops)
        if (text.compare(at, std::char_traits<char>::length(o.text), o.text) == 0) {
            c.op = o.op;
            len = std::char_traits<char>::length(o.text);
            break;
        }
    std::string value = trim(text.substr(at + len));
    size_t star = value.find("*baseline");
    bool ok;
    if (star != std::string::npos && star + 9 == value.size() &&
        (is_time(c.metric) || c.metric == Condition::Metric::Rate)) {
        ok = read_number(value.substr(0, star), c.baseline) && c.baseline > 0;
        c.value = 0;
    } else if (is_time(c.metric)) {
        ok = read_with_unit(value, {{"us", 0.001}, {"ms", 1}, {"s", 1000}, {"", 1}}, c.value);
    } else if (c.metric == Condition::Metric::Failures) {
        ok = read_with_unit(value, {{"%", 1}}, c.value) && c.value <= 100;
    } else if (c.metric == Condition::Metric::Rate) {
        ok = read_with_unit(value, {{"/s", 1}, {"/m", 1 / 60.0}, {"/h", 1 / 3600.0}}, c.value);
    } else {
        ok = read_number(value, c.value) && c.value == std::floor(c.value);
    }
    if (!ok) {
        error = "'" + text + "': the value is not " +
                (is_time(c.metric) ? "a time (5ms, 1.5s, 200us) or FACTOR*baseline"
                 : c.metric == Condition::Metric::Failures ? "a percentage (1%)"
                 : c.metric == Condition::Metric::Rate ? "a rate (100/s, 300/m) or FACTOR*baseline"
                                                       : "a count");
        return false;
    }
    return true;
}

const StatsRow *find_row(const std::vector<StatsRow> &rows, const std::string &name) {
    for (const StatsRow &r : rows)
        if (r.name == name) return &r;
    return nullptr;
}

// A row's measure of a metric, and whether the row has one.
bool measure(const StatsRow &r, Condition::Metric m, uint64_t dropped, double &out) {
    const bool resp = r.has_response;
    switch (m) {
        case Condition::Metric::P50:
            out = resp ? r.r_p50_ms : r.p50_ms;
            break;
        case Condition::Metric::P90:
            out = resp ? r.r_p90_ms : r.p90_ms;
            break;
        case Condition::Metric::P95:
            out = resp ? r.r_p95_ms : r.p95_ms;
            break;
        case Condition::Metric::P99:
            out = resp ? r.r_p99_ms : r.p99_ms;
            break;
        case Condition::Metric::Max:
            out = resp ? r.r_max_ms : r.max_ms;
            break;
        case Condition::Metric::Mean:
            out = resp ? r.r_mean_ms : r.mean_ms;
            break;
        case Condition::Metric::Failures:
            out =
                r.count ? 100.0 * static_cast<double>(r.failed) / static_cast<double>(r.count) : 0;
            return true;
        case Condition::Metric::Rate:
            out = r.per_second;
            return true;
        case Condition::Metric::Dropped:
            out = static_cast<double>(dropped);
            return true;
    }
    return r.timed && r.count > 0;
}

bool holds(double measured, Condition::Op op, double limit) {
    switch (op) {
        case Condition::Op::Less:
            return measured < limit;
        case Condition::Op::LessOrEqual:
            return measured <= limit;
        case Condition::Op::Greater:
            return measured > limit;
        case Condition::Op::GreaterOrEqual:
            return measured >= limit;
        case Condition::Op::Equal:
            return measured == limit;
    }
    return false;
}

std::string number(double v) {
    char buf[48];
    std::snprintf(buf, sizeof buf, "%.3f", v);
    return buf;
}

}  // namespace

bool parse_threshold(const std::string &text, Threshold &t, std::string &error) {
    if (text.size() > max_threshold_text) {
        error = "--threshold: longer than " + std::to_string(max_threshold_text) + " characters";
        return false;
    }
    size_t colon = text.rfind(':');
    t = Threshold{};
    t.text = text;
    t.name = colon == std::string::npos ? "" : trim(text.substr(0, colon));
    if (t.name.empty()) {
        error = "--threshold: '" + text + "' is not 'NAME: EXPR' (all requests: p95<5ms)";
        return false;
    }
    std::string rest = text.substr(colon + 1);
    for (size_t from = 0;;) {
        size_t and_at = rest.find(" and ", from);
        Condition c{};
        std::string part =
            trim(rest.substr(from, and_at == std::string::npos ? and_at : and_at - from));
        if (t.conditions.size() == max_conditions) {
            error = "--threshold: more than " + std::to_string(max_conditions) + " conditions";
            return false;
        }
        if (!parse_condition(part, c, error)) {
            error = "--threshold: " + error;
            return false;
        }
        t.conditions.push_back(c);
        if (and_at == std::string::npos) break;
        from = and_at + 5;
    }
    return true;
}

Verdict judge(const Threshold &t, const std::vector<StatsRow> &rows, uint64_t dropped,
              const std::vector<StatsRow> &baseline) {
    Verdict v;
    v.text = t.text;
    const StatsRow *row = find_row(rows, t.name);
    if (row == nullptr) {
        v.passed = false;
        v.detail = "no row of the table is named " + t.name;
        return v;
    }
    static const char *const names[] = {"p50",  "p90",      "p95",  "p99",    "max",
                                        "mean", "failures", "rate", "dropped"};
    for (const Condition &c : t.conditions) {
        const char *word = names[static_cast<int>(c.metric)];
        double measured = 0, limit = c.value;
        std::string part = word;
        const char *unit = is_time(c.metric)                         ? " ms"
                           : c.metric == Condition::Metric::Failures ? "%"
                           : c.metric == Condition::Metric::Rate     ? "/s"
                                                                     : "";
        auto shown = [&](double x) {
            return c.metric == Condition::Metric::Dropped ? std::to_string(static_cast<uint64_t>(x))
                                                          : number(x) + unit;
        };
        if (!measure(*row, c.metric, dropped, measured)) {
            v.passed = false;
            part += " not measured";
        } else {
            bool ok = true;
            part += " " + shown(measured);
            if (c.baseline > 0) {
                const StatsRow *base = find_row(baseline, t.name);
                double was = 0;
                ok = base != nullptr && measure(*base, c.metric, dropped, was);
                limit = c.baseline * was;
                part += ok ? " (limit " + shown(limit) + ")" : " (no baseline)";
            }
            if (!(ok && holds(measured, c.op, limit))) v.passed = false;
        }
        v.detail += (v.detail.empty() ? "" : ", ") + part;
    }
    return v;
}

}  // namespace runner
