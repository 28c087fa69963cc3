// Runs: the records of a sequence of numbers, which a script's list holds one
// per element, taken as a run while tracing is off. A run leaves every
// record, and puts on the wire or reads from it, exactly what the
// record-by-record way does; it only skips the per-record dispatch.
#ifndef ORBELLE_SCRIPT_RUNS_H
#define ORBELLE_SCRIPT_RUNS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "data/typecode.h"
#include "orbelle/host.h"

class CDR;

// A record that the record-by-record way sends as a 4-byte number read from
// its text: a long, unsigned long or enum going in, not the opaque "*".
inline bool sends_word(const ScriptParm *p) {
    constexpr uint32_t words = 1u << tk_long | 1u << tk_ulong | 1u << tk_enum;
    auto type = static_cast<uint32_t>(p->type);
    if (type >= 32 || ((words >> type) & 1u) == 0) return false;
    if (p->flags != PARM_IN && (p->flags != PARM_INOUT || p->valuesize != 0)) return false;
    const char *name = p->name;
    return name == nullptr || name[0] != '*' || name[1] != '\0';
}

// Runs of records that only go out (flags in), noted while the Request is
// built: the Reply has nothing for them, so its reading passes over each run
// without a look at its records. A few runs are noted, the longest lists
// rarely have more; the others are read past one by one.
class InRuns {
public:
    void clear() { count_ = 0; }
    void add(ScriptParm *first, ScriptParm *last) {
        if (count_ == room) return;
        first_[count_] = first;
        last_[count_] = last;
        ++count_;
    }
    // The last record of the run that p begins, or null when p begins none.
    ScriptParm *run_from(const ScriptParm *p) const {
        for (int i = 0; i < count_; ++i)
            if (first_[i] == p) return last_[i];
        return nullptr;
    }

private:
    static constexpr int room = 8;
    ScriptParm *first_[room];
    ScriptParm *last_[room];
    int count_ = 0;
};

// Writes first and the records behind it that send words, as long as they
// follow each other, to the stream, each record left as a single write
// leaves it. Returns the last record written, or null when the stream could
// not grow for the first: the record-by-record way goes on from there. The
// records written are noted in runs when all of them are in records.
ScriptParm *marshal_words(ScriptParm *first, CDR &stream, InRuns &runs);

// The name the next element of a sequence has when the list was made by
// iiop_get_parms: base "[" k "]", with k counting from the element the
// reading is at. A name seen equal to it needs no character by character
// check; any other name is checked the long way.
class ElementName {
public:
    ElementName(const char *base, size_t base_length, int32_t k);
    // Whether name is the expected one.
    bool matches(const char *name) const { return length_ != 0 && std::strcmp(name, text_) == 0; }
    // Where the index of the expected name ends (at its closing bracket).
    size_t index_end() const { return length_ - 1; }
    // Expects the element after.
    void advance() {
        if (length_ == 0) return;
        size_t i = length_ - 2;  // the last digit
        if (text_[i] != '9')
            ++text_[i];
        else
            carry(i);
    }

private:
    // From 9 to 0 at i and leftwards, one digit more past the first.
    void carry(size_t i);
    // Longer basenames are never expected: matches is false for them.
    static constexpr size_t room = 128;
    char text_[room];
    size_t length_ = 0;  // 0: nothing expected
};

#endif
