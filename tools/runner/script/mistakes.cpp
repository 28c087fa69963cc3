#include "tools/runner/script/mistakes.h"

#include <algorithm>
#include <utility>

#include "orbelle/limits.h"

namespace runner {
namespace {

// Names longer than this are not spelled by hand; comparing them costs the
// product of two lengths, so they are left out of suggestions.
constexpr size_t longest_suggested = 64;

// The edit distance of a and b (insertions, deletions, replacements, and
// swaps of two neighbours), or more than most when it exceeds most.
size_t distance(const std::string &a, const std::string &b, size_t most) {
    size_t n = a.size(), m = b.size();
    if ((n > m ? n - m : m - n) > most) return most + 1;
    std::vector<size_t> before(m + 1), previous(m + 1), row(m + 1);
    for (size_t j = 0; j <= m; ++j) previous[j] = j;
    for (size_t i = 1; i <= n; ++i) {
        row[0] = i;
        size_t smallest = row[0];
        for (size_t j = 1; j <= m; ++j) {
            size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
            row[j] = std::min({previous[j] + 1, row[j - 1] + 1, previous[j - 1] + cost});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
            smallest = std::min(smallest, row[j]);
        }
        if (smallest > most) return most + 1;
        std::swap(before, previous);
        std::swap(previous, row);
    }
    return previous[m];
}

}  // namespace

void Mistakes::add(const std::string &file, int line, int column, const std::string &message) {
    std::string place = file + ":" + std::to_string(line);
    if (column > 0) place += ":" + std::to_string(column);
    add(place + ": " + message);
}

void Mistakes::add(const std::string &placed) {
    if (count_++ < limits::max_script_mistakes) list_.push_back(placed);
}

bool Mistakes::full() const { return count_ >= limits::max_script_mistakes; }

std::string Mistakes::text() const {
    std::string out;
    for (const std::string &line : list_) out += line + "\n";
    if (count_ > list_.size())
        out += std::to_string(count_ - list_.size()) + " more mistake" +
               (count_ - list_.size() == 1 ? "" : "s") + " not shown (the first " +
               std::to_string(list_.size()) + " are)\n";
    if (!out.empty()) out.pop_back();
    return out;
}

std::string did_you_mean(const std::string &name, const std::vector<std::string> &candidates) {
    if (name.size() > longest_suggested) return "";
    // A third of the name may be wrong, and at least two characters.
    size_t most = std::max<size_t>(2, name.size() / 3);
    std::vector<std::pair<size_t, const std::string *>> near;
    size_t looked = 0;
    for (const std::string &candidate : candidates) {
        if (looked++ == limits::max_suggestion_candidates) break;
        if (candidate.size() > longest_suggested || candidate == name) continue;
        size_t d = distance(name, candidate, most);
        // A name that ends the candidate (a member written without its
        // parameter) is meant as much as a near spelling.
        bool tail = candidate.size() > name.size() &&
                    candidate.compare(candidate.size() - name.size(), name.size(), name) == 0 &&
                    std::string(".:^").find(candidate[candidate.size() - name.size() - 1]) !=
                        std::string::npos;
        if (tail) d = std::min<size_t>(d, 1);
        if (d <= most) near.emplace_back(d, &candidate);
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto &x, const auto &y) { return x.first < y.first; });
    std::string out;
    for (size_t i = 0; i < near.size() && i < 3; ++i)
        out += (out.empty() ? "" : ", ") + ("`" + *near[i].second + "`");
    return out.empty() ? "" : " (did you mean " + out + "?)";
}

}  // namespace runner
