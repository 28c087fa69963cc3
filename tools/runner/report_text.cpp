#include "tools/runner/report_text.h"

#include <cmath>

namespace runner {
namespace report_text {
namespace {

int64_t floor_div(int64_t a, int64_t b) { return a / b - (a % b != 0 && (a < 0) != (b < 0)); }

}  // namespace

void put_text(std::string &out, std::string_view text) {
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            case '\t':
            case '\n':
            case '\r':
                out += c;
                break;
            default:
                // Other control characters are errors in a page: show that one was there.
                if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
                    out += "\uFFFD";
                else
                    out += c;
        }
    }
}

// The start of text, at most max bytes, not cut inside a UTF-8 sequence.
std::string_view clip(std::string_view text, size_t max) {
    if (text.size() <= max) return text;
    size_t end = max;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end);
}

std::string number(double value, std::chars_format format, int precision) {
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value, format, precision);
    if (result.ec != std::errc())
        result =
            std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
    return std::string(buffer, result.ptr);
}

std::string fixed(double value, int decimals) {
    if (!std::isfinite(value)) return kNoNumber;
    return number(value, std::chars_format::fixed, decimals);
}

// Milliseconds with three significant digits or more (0.042, 1.25, 12.5,
// 1234): a call on loopback takes well under a millisecond.
std::string ms(double value) {
    return fixed(value, value < 1 ? 3 : value < 10 ? 2 : value < 1000 ? 1 : 0);
}

// A number in the JSON element: null where JSON has none.
void put_json_number(std::string &out, double value) {
    if (std::isfinite(value))
        out += number(value, std::chars_format::general, 6);
    else
        out += "null";
}

// "2026-11-23 09:06:05 UTC" for milliseconds since the epoch; days become a
// date of the proleptic Gregorian calendar by whole eras of 400 years.
std::string utc_time(int64_t epoch_ms) {
    const int64_t seconds = floor_div(epoch_ms, 1000);
    int64_t days = floor_div(seconds, 86400);
    const int64_t of_day = seconds - days * 86400;
    days += 719468;  // from 1970-01-01 to 0000-03-01
    const int64_t era = floor_div(days, 146097);
    const int64_t day_of_era = days - era * 146097;
    const int64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const int64_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const int64_t month_index = (5 * day_of_year + 2) / 153;  // March is 0
    const int64_t day = day_of_year - (153 * month_index + 2) / 5 + 1;
    const int64_t month = month_index < 10 ? month_index + 3 : month_index - 9;
    auto two = [](int64_t n) { return (n < 10 ? "0" : "") + std::to_string(n); };
    std::string year = std::to_string(year_of_era + era * 400 + (month <= 2));
    if (year.size() < 4) year.insert(0, 4 - year.size(), '0');
    return year + "-" + two(month) + "-" + two(day) + " " + two(of_day / 3600) + ":" +
           two(of_day / 60 % 60) + ":" + two(of_day % 60) + " UTC";
}

}  // namespace report_text
}  // namespace runner
