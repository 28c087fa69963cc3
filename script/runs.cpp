#include "script/runs.h"

#include <algorithm>
#include <cstring>

#include "data/cdr.h"
#include "repository/flatname.h"
#include "script/decimal.h"
#include "script/plain.h"

namespace {
// Words are written a block at a time into the room the stream has, which
// grows only when not one more word fits: in the steps single writes take.
constexpr uint32_t block_words = 256;
}  // namespace

ScriptParm *marshal_words(ScriptParm *first, CDR &stream, InRuns &runs) {
    ScriptParm *written = nullptr;
    // The flags of all records written, or-ed: in (1) alone, or in-out (3).
    int32_t flags = 0;
    ScriptParm *p = first;
    while (p != nullptr && sends_word(p)) {
        // Aligns the cursor; the words then go where it points.
        auto *at = reinterpret_cast<uint32_t *>(stream.put_run(4, 0));
        if (at == nullptr) break;
        uint32_t fit = std::min(stream.space_left / 4, block_words);
        if (fit == 0) {
            if (stream.grow(0) == 0) break;
            continue;
        }
        uint32_t n = 0;
        for (; p != nullptr && n < fit && sends_word(p); p = p->next) {
            auto word = static_cast<uint32_t>(decimal_wrapping(p->strval));
            std::memcpy(at + n++, &word, 4);
            p->ptr = nullptr;
            if (p->strval != nullptr) p->valuesize = 0;
            flags |= p->flags;
            written = p;
        }
        // Within the room: this only moves the cursor past the words.
        stream.put_run(4, n);
    }
    if (written != nullptr && flags == PARM_IN) runs.add(first, written);
    return written;
}

ElementName::ElementName(const char *base, size_t base_length, int32_t k) {
    char digits[16];
    char *digits_end = digits + sizeof digits;
    char *first = format_decimal(digits_end, k);
    auto n = static_cast<size_t>(digits_end - first);
    if (k < 0 || base_length + n + 3 > room) return;
    std::memcpy(text_, base, base_length);
    text_[base_length] = flat_index_open;
    std::memcpy(text_ + base_length + 1, first, n);
    length_ = base_length + 1 + n + 1;
    text_[length_ - 1] = flat_index_close;
    text_[length_] = '\0';
}

void ElementName::carry(size_t i) {
    while (text_[i] == '9') text_[i--] = '0';
    if (text_[i] != flat_index_open) {
        ++text_[i];
        return;
    }
    // 9 to 10, 99 to 100: one digit more.
    if (length_ + 2 > room) {
        length_ = 0;
        return;
    }
    std::memmove(text_ + i + 2, text_ + i + 1, length_ - i);
    text_[i + 1] = '1';
    ++length_;
}
