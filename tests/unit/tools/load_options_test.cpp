// The load options read and checked together, as orbelle-run's command
// line gives them, and the metrics text a scraper reads.
#include "tools/runner/load_options.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support.h"
#include "tools/runner/metrics.h"
#ifndef _WIN32
#include "tools/runner/metrics_http.h"
#endif

namespace runner {
namespace {

// Reads words as a command line, the options of load_options.h only (the
// rest as main reads them: --users, --duration, --iterations);
// "" when they settle, else the first error.
std::string settle(const std::vector<std::string> &words, LoadOptions &load) {
    std::vector<char *> argv{const_cast<char *>("orbelle-run")};
    for (const std::string &w : words) argv.push_back(const_cast<char *>(w.c_str()));
    bool users = false, iterations = false, any = false;
    std::string error;
    for (int i = 1; i < static_cast<int>(argv.size()); ++i) {
        std::string arg = argv[static_cast<size_t>(i)];
        if (arg == "--users") {
            users = true;
            load.users = std::stoi(argv[static_cast<size_t>(++i)]);
        } else if (arg == "--duration") {
            load.duration_s = std::stod(argv[static_cast<size_t>(++i)]);
        } else if (arg == "--iterations") {
            iterations = true;
            ++i;
        } else if (read_load_option(static_cast<int>(argv.size()), argv.data(), i, load, error) !=
                   OptionRead::Taken) {
            return error.empty() ? "not ours: " + arg : error;
        }
    }
    return settle_load_options(load, users, iterations, any, error) ? "" : error;
}

TEST(LoadOptions, SettleTogetherOrSayWhy) {
    // "" when the words settle, else the start of the message.
    const std::pair<const char *, std::vector<std::string>> cases[] = {
        {"", {"--users", "4", "--rate", "300/m", "--duration", "10"}},
        {"", {"--users", "4", "--rate", "10", "--stages", "10s:50,10s:0"}},
        {"", {"--stages", "10s:5,10s:0"}},
        {"",
         {"--users", "4", "--rate", "10", "--arrivals", "poisson", "--queue", "0", "--duration",
          "1"}},
        {"",
         {"--users", "2", "--duration", "1", "--threshold", "all requests: p95<5ms",
          "--abort-on-threshold", "--threshold-grace", "30s"}},
        {"--rate needs --users", {"--rate", "10", "--duration", "1"}},
        {"--rate runs for --duration", {"--users", "2", "--rate", "10", "--iterations", "3"}},
        {"--rate needs --duration or --stages", {"--users", "2", "--rate", "10"}},
        {"--stages without --rate gives the users", {"--users", "2", "--stages", "1s:2"}},
        {"--stages runs for their time", {"--stages", "1s:2", "--iterations", "3"}},
        {"--stages: '1s:2.5'", {"--stages", "1s:2.5"}},
        {"--stages: no stage has a user", {"--stages", "1s:0"}},
        {"--stages takes", {"--stages", ""}},
        {"--arrivals and --queue", {"--users", "2", "--duration", "1", "--arrivals", "poisson"}},
        {"--arrivals takes", {"--users", "2", "--duration", "1", "--arrivals", "bursty"}},
        {"--queue takes", {"--users", "2", "--duration", "1", "--queue", "-1"}},
        {"", {"--users", "2", "--rate", "5", "--duration", "1", "--queue", "1000000"}},
        {"--queue takes a count from 0 to 1000000",
         {"--users", "2", "--rate", "5", "--duration", "1", "--queue", "1000001"}},
        {"--abort-on-threshold needs --threshold",
         {"--users", "2", "--duration", "1", "--abort-on-threshold"}},
        {"--metrics-hold needs", {"--users", "2", "--duration", "1", "--metrics-hold", "2"}},
        {"--threshold needs a value", {"--users", "2", "--duration", "1", "--threshold"}},
        {"--threshold-grace", {"--users", "2", "--duration", "1", "--threshold-grace", "2d"}},
    };
    for (const auto &[start, words] : cases) {
        LoadOptions load;
        std::string error = settle(words, load);
        std::string line;
        for (const std::string &w : words) line += w + " ";
        // an expected error is the start of the message; no error is no message
        EXPECT_EQ(*start ? error.substr(0, std::strlen(start)) : error, start)
            << line << ": " << error;
    }
    // The closed model's stages give the users: the most of any stage.
    LoadOptions load;
    ASSERT_EQ(settle({"--stages", "10s:5,1m:12,10s:0"}, load), "");
    EXPECT_EQ(std::make_tuple(load.users, load.stages.size()), std::make_tuple(12, size_t{3}));
    // Thresholds stop at their limit.
    std::vector<std::string> many{"--users", "2", "--duration", "1"};
    for (size_t i = 0; i <= max_thresholds; ++i)
        many.insert(many.end(), {"--threshold", "all requests: p95<5ms"});
    LoadOptions full;
    EXPECT_EQ(settle(many, full), "at most 100 thresholds");
}

TEST(Metrics, TextFormatWithCumulativeBucketsAndEscapedNames) {
    Metrics m;
    auto add = [&](const char *kind, const std::string &name, double ms, bool ok,
                   double wait_ms = -1) {
        m.add(Event{0, 1, 1, kind, name, "", 0, ms, wait_ms, ok, false, 0, 0, ""});
    };
    add("call", "invoke a twoway", 0.3, true);
    add("call", "invoke a twoway", 3, true);
    add("call", "invoke a twoway", 30000, false);  // beyond the last bound
    add("call", "params a", 0.01, true);           // not a request
    add("check", "check ^a", 0, false);
    add("transaction", "transaction \"q\"\\\n", 1, true);
    add("iteration", "iteration", 2, true, 6);  // under a rate: 2 ms of service, 8 ms after due
    add("other", "ignored", 1, true);
    RunGauges g{3, 12.5, 12, 4, true};
    const std::string text = m.render(g);
    // A series of the histograms: metric{kind,name,outcome[,le]} value.
    auto series = [](const std::string &metric, const char *kind, const std::string &name,
                     const char *outcome, const char *le, const char *value) {
        return "orbelle_" + metric + "{kind=\"" + kind + "\",name=\"" + name + "\",outcome=\"" +
               outcome + (le ? "\",le=\"" + std::string(le) : "") + "\"} " + value + "\n";
    };
    const std::string call = "invoke a twoway";
    testsupport::expect_has(
        text,
        {"orbelle_requests_total{outcome=\"ok\"} 2\n",
         "orbelle_requests_total{outcome=\"failed\"} 1\n",
         series("duration_seconds_bucket", "call", call, "ok", "0.00025", "0"),
         series("duration_seconds_bucket", "call", call, "ok", "0.0005", "1"),
         series("duration_seconds_bucket", "call", call, "ok", "10", "2"),
         series("duration_seconds_sum", "call", call, "ok", nullptr, "0.0033"),
         series("duration_seconds_bucket", "call", call, "failed", "10", "0"),
         series("duration_seconds_bucket", "call", call, "failed", "+Inf", "1"),
         series("duration_seconds_count", "transaction", "transaction \\\"q\\\"\\\\\\n", "ok",
                nullptr, "1"),
         "orbelle_checks_total{name=\"check ^a\",outcome=\"failed\"} 1\n",
         series("duration_seconds_bucket", "iteration", "iteration", "ok", "0.0025", "1"),
         series("response_seconds_bucket", "iteration", "iteration", "ok", "0.005", "0"),
         series("response_seconds_bucket", "iteration", "iteration", "ok", "0.01", "1"),
         "orbelle_users 3\n", "orbelle_target_iterations_per_second 12.5\n",
         "orbelle_dropped_iterations_total 4\n", "# TYPE orbelle_duration_seconds histogram\n"});
    testsupport::expect_lacks(text, {"ignored", "orbelle_response_seconds_count{kind=\"call\""});
    // The closed model has no target nor drops.
    g.open = false;
    EXPECT_EQ(m.render(g).find("orbelle_target"), std::string::npos);
}

#ifndef _WIN32
TEST(Metrics, ListenAddressesReadOrRefused) {
    uint32_t address = 0;
    uint16_t port = 1;
    const std::pair<const char *, uint16_t> read[] = {
        {"127.0.0.1:9464", 9464}, {"localhost:0", 0}, {"0.0.0.0:65535", 65535}};
    for (const auto &[text, want] : read) {
        std::string error;
        EXPECT_TRUE(parse_listen_address(text, address, port, error)) << text << ": " << error;
        EXPECT_EQ(port, want) << text;
    }
    for (const char *text : {"127.0.0.1:65536", "127.0.0.1:", ":9464", "9464", "example.org:80",
                             "127.0.0.1:-1", "127.0.0.1:999999"}) {
        std::string error;
        EXPECT_FALSE(parse_listen_address(text, address, port, error)) << text;
        EXPECT_EQ(error.rfind("--metrics takes", 0), 0u) << error;
    }
}
#endif

}  // namespace
}  // namespace runner
