// The mistakes found in scripts and data files before anything is sent:
// each with its place, all of them listed at once (up to a limit), and the
// nearest valid names for a name that is not known.
#ifndef ORBELLE_RUNNER_SCRIPT_MISTAKES_H
#define ORBELLE_RUNNER_SCRIPT_MISTAKES_H

#include <cstddef>
#include <string>
#include <vector>

namespace runner {

class Mistakes {
public:
    // Notes "file:line:column: message" (column 0 leaves the column out).
    // Past limits::max_script_mistakes only the count grows.
    void add(const std::string &file, int line, int column, const std::string &message);
    // A message that already names its place.
    void add(const std::string &placed);

    bool empty() const { return count_ == 0; }
    // Whether no more are kept: what is added now is only counted.
    bool full() const;
    size_t count() const { return count_; }
    // Every mistake kept, one a line, and a closing line when some were
    // left out.
    std::string text() const;
    const std::vector<std::string> &list() const { return list_; }

private:
    std::vector<std::string> list_;
    size_t count_ = 0;
};

// Up to three of candidates (distinct names) nearest to name in spelling, nearest first, as
// " (did you mean `a`, `b`?)"; empty when none is near enough to be meant.
// Only the first limits::max_suggestion_candidates candidates are looked at.
std::string did_you_mean(const std::string &name, const std::vector<std::string> &candidates);

}  // namespace runner

#endif
