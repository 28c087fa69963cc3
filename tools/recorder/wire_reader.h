// A bounded CDR reader for the recorder: values of a captured message read
// where they lie, every length checked against what is left.
#ifndef ORBELLE_RECORDER_WIRE_READER_H
#define ORBELLE_RECORDER_WIRE_READER_H

#include <cstdint>
#include <cstring>
#include <string>

namespace recorder {

// A bounded CDR reader over bytes; alignment counts from where the bytes
// begin (the message's first byte, or an encapsulation's). Once a read
// fails, every later read fails too.
class Reader {
public:
    Reader(const std::string &bytes, size_t from, bool little)
        : bytes_(bytes), pos_(from), little_(little) {}
    bool ok() const { return ok_; }
    size_t pos() const { return pos_; }
    size_t left() const { return ok_ ? bytes_.size() - pos_ : 0; }

    void align(size_t n) {
        size_t pad = (n - pos_ % n) % n;
        if (left() < pad)
            ok_ = false;
        else
            pos_ += pad;
    }
    uint8_t octet() {
        if (left() < 1) return fail();
        return static_cast<uint8_t>(bytes_[pos_++]);
    }
    uint16_t ushort() {
        align(2);
        if (left() < 2) return fail();
        auto a = static_cast<uint8_t>(bytes_[pos_]), b = static_cast<uint8_t>(bytes_[pos_ + 1]);
        pos_ += 2;
        return static_cast<uint16_t>(little_ ? a | b << 8 : b | a << 8);
    }
    uint64_t ulonglong() {
        align(8);
        if (left() < 8) return fail();
        uint64_t v = 0;
        for (int i = 0; i < 8; ++i) {
            auto byte = static_cast<uint8_t>(bytes_[pos_ + static_cast<size_t>(i)]);
            v |= static_cast<uint64_t>(byte) << (little_ ? 8 * i : 8 * (7 - i));
        }
        pos_ += 8;
        return v;
    }
    uint32_t ulong() {
        align(4);
        if (left() < 4) return fail();
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) {
            auto byte = static_cast<uint8_t>(bytes_[pos_ + static_cast<size_t>(i)]);
            v |= static_cast<uint32_t>(byte) << (little_ ? 8 * i : 8 * (3 - i));
        }
        pos_ += 4;
        return v;
    }
    // A counted octet sequence; its count is checked against what is left
    // before anything is copied.
    std::string octets() {
        uint32_t n = ulong();
        if (left() < n) return fail(), std::string();
        std::string out = bytes_.substr(pos_, n);
        pos_ += n;
        return out;
    }
    bool little() const { return little_; }
    // n bytes without a count before them.
    std::string raw(size_t n) {
        if (left() < n) return fail(), std::string();
        std::string out = bytes_.substr(pos_, n);
        pos_ += n;
        return out;
    }
    void skip_octets() {
        uint32_t n = ulong();
        if (left() < n)
            ok_ = false;
        else
            pos_ += n;
    }
    // A string: its count includes a terminating null, which must be there.
    std::string string() {
        std::string s = octets();
        if (!ok_ || s.empty() || s.back() != '\0') return fail(), std::string();
        s.pop_back();
        return s;
    }
    void skip_service_contexts() {
        uint32_t n = ulong();
        // Each context takes at least eight bytes.
        if (left() / 8 < n) {
            ok_ = false;
            return;
        }
        for (uint32_t i = 0; i < n && ok_; ++i) {
            ulong();
            skip_octets();
        }
    }

private:
    uint8_t fail() {
        ok_ = false;
        return 0;
    }
    const std::string &bytes_;
    size_t pos_;
    bool little_;
    bool ok_ = true;
};

}  // namespace recorder

#endif
