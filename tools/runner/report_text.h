// The texts of the HTML report: escaped HTML, numbers as the tables and
// the JSON element show them, and dates in UTC.
#ifndef ORBELLE_RUNNER_REPORT_TEXT_H
#define ORBELLE_RUNNER_REPORT_TEXT_H

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

namespace runner {
namespace report_text {

// Shown in a table cell that has no number.
inline constexpr char kNoNumber[] = "\u2013";

// Appends text with & < > " ' escaped and control characters but tab and
// line ends shown as U+FFFD.
void put_text(std::string &out, std::string_view text);
// The start of text, at most max bytes, not cut inside a UTF-8 sequence.
std::string_view clip(std::string_view text, size_t max);
std::string number(double value, std::chars_format format, int precision);
// decimals after the point; kNoNumber for what is not finite.
std::string fixed(double value, int decimals);
// Milliseconds with three significant digits or more (0.042, 1.25, 12.5,
// 1234): a call on loopback takes well under a millisecond.
std::string ms(double value);
// A number in the JSON element: null where JSON has none.
void put_json_number(std::string &out, double value);
// "2026-11-23 09:06:05 UTC" for milliseconds since the epoch.
std::string utc_time(int64_t epoch_ms);

}  // namespace report_text
}  // namespace runner

#endif
