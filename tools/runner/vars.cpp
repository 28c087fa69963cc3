#include "tools/runner/vars.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>

namespace runner {
namespace {

bool read_whole(const std::string &text, long long &out) {
    if (text.empty()) return false;
    errno = 0;
    char *end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0') return false;
    out = v;
    return true;
}

}  // namespace

bool substitute(const std::string &text,
                const std::function<std::optional<std::string>(const std::string &)> &name_value,
                std::string &out, std::string &error) {
    out.clear();
    size_t pos = 0;
    while (true) {
        size_t start = text.find("${", pos);
        if (start == std::string::npos) break;
        size_t end = text.find('}', start + 2);
        if (end == std::string::npos) {
            error = "'${' without a closing '}'";
            return false;
        }
        out.append(text, pos, start - pos);
        std::optional<std::string> value = name_value(text.substr(start + 2, end - start - 2));
        if (value)
            out += *value;
        else
            out.append(text, start, end + 1 - start);
        pos = end + 1;
    }
    out.append(text, pos, std::string::npos);
    return true;
}

std::vector<std::string> variable_names(const std::string &text) {
    std::vector<std::string> names;
    for (size_t start = text.find("${"); start != std::string::npos;
         start = text.find("${", start + 2)) {
        size_t end = text.find('}', start + 2);
        if (end == std::string::npos) break;
        names.push_back(text.substr(start + 2, end - start - 2));
        start = end - 1;
    }
    return names;
}

bool is_builtin(const std::string &name) {
    return name == "VU" || name == "ITERATION" || name == "TIME_MS" ||
           name.rfind("RANDOM:", 0) == 0;
}

bool random_bounds(const std::string &name, long long &min, long long &max) {
    if (name.rfind("RANDOM:", 0) != 0) return false;
    size_t dots = name.find("..", 7);
    if (dots == std::string::npos) return false;
    return read_whole(name.substr(7, dots - 7), min) && read_whole(name.substr(dots + 2), max) &&
           min <= max;
}

bool read_range(const std::string &text, long limit, long &min, long &max) {
    size_t dots = text.find("..");
    long long lo = 0, hi = 0;
    if (dots == std::string::npos) {
        if (!read_whole(text, lo)) return false;
        hi = lo;
    } else if (!read_whole(text.substr(0, dots), lo) || !read_whole(text.substr(dots + 2), hi)) {
        return false;
    }
    if (lo < 0 || hi < lo || hi > limit) return false;
    min = static_cast<long>(lo);
    max = static_cast<long>(hi);
    return true;
}

long long Variables::uniform(long long min, long long max) {
    return std::uniform_int_distribution<long long>(min, max)(random_);
}

bool Variables::expand(const std::string &text, std::string &out, std::string &error) {
    std::string missing;
    auto value = [&](const std::string &name) -> std::optional<std::string> {
        auto it = values_.find(name);
        if (it != values_.end()) return it->second;
        if (name == "VU") return std::to_string(vu_);
        if (name == "ITERATION") return std::to_string(iteration_);
        if (name == "TIME_MS")
            return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(
                                      std::chrono::system_clock::now().time_since_epoch())
                                      .count());
        long long min = 0, max = 0;
        if (random_bounds(name, min, max)) return std::to_string(uniform(min, max));
        if (missing.empty()) missing = name;
        return std::nullopt;
    };
    if (!substitute(text, value, out, error)) return false;
    if (missing.empty()) return true;
    error = is_builtin(missing) ? "'${" + missing + "}' takes whole numbers MIN..MAX, MIN <= MAX"
                                : "variable " + missing + " is not set";
    return false;
}

}  // namespace runner
