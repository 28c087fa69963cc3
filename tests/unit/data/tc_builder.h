// Builds TypeCodes and CDR bodies byte by byte for the data tests, in either
// byte order, with alignment measured from the first byte of each
// encapsulation (which the library's streams agree with, since every
// encapsulation starts on a 4-byte boundary).
#ifndef ORBELLE_TEST_TC_BUILDER_H
#define ORBELLE_TEST_TC_BUILDER_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "data/stdtypes.h"
#include "data/typecode.h"

namespace tcb {

using Bytes = std::vector<uint8_t>;

class Enc {
public:
    // An encapsulation starts with its byte-order octet; a plain body does not.
    explicit Enc(bool big = false, bool encapsulation = true) : big_(big) {
        if (encapsulation) b_.push_back(big ? 0 : 1);
    }
    Enc &pad(size_t a) {
        while (b_.size() % a != 0) b_.push_back(0);
        return *this;
    }
    Enc &octet(uint8_t v) { return num(v, 1); }
    Enc &ushort(uint16_t v) { return num(v, 2); }
    Enc &ulong(uint32_t v) { return num(v, 4); }
    Enc &ulonglong(uint64_t v) { return num(v, 8); }
    Enc &str(const std::string &s) {
        ulong(static_cast<uint32_t>(s.size() + 1));
        b_.insert(b_.end(), s.begin(), s.end());
        b_.push_back(0);
        return *this;
    }
    // A TypeCode built by the same builder; starts with a word.
    Enc &tc(const Bytes &t) {
        pad(4);
        b_.insert(b_.end(), t.begin(), t.end());
        return *this;
    }
    Enc &raw(const Bytes &r) {
        b_.insert(b_.end(), r.begin(), r.end());
        return *this;
    }
    const Bytes &bytes() const { return b_; }
    // An unsigned number of width bytes, aligned to its width.
    Enc &num(uint64_t v, size_t width) {
        pad(width);
        for (size_t i = 0; i < width; ++i) {
            size_t shift = big_ ? (width - 1 - i) * 8 : i * 8;
            b_.push_back(static_cast<uint8_t>(v >> shift));
        }
        return *this;
    }

private:
    bool big_;
    Bytes b_;
};

// TypeCodes as they stand on the wire (kind word first).
struct Tc {
    bool big = false;

    // Strings get bound 0, unbounded.
    Bytes simple(int32_t kind) const {
        if (kind == tk_string || kind == tk_wstring) return bounded(kind, 0);
        return Enc(big, false).ulong(kind).bytes();
    }
    Bytes bounded(int32_t kind, uint32_t bound) const {
        return Enc(big, false).ulong(kind).ulong(bound).bytes();
    }
    Bytes complex(int32_t kind, const Enc &body) const {
        const auto size = static_cast<uint32_t>(body.bytes().size());
        return Enc(big, false).ulong(kind).ulong(size).raw(body.bytes()).bytes();
    }
    Enc body() const { return Enc(big); }

    Bytes structure(const std::string &id,
                    const std::vector<std::pair<std::string, Bytes>> &members,
                    int32_t kind = tk_struct) const {
        Enc e = body();
        e.str(id).str("S").ulong(static_cast<uint32_t>(members.size()));
        for (const auto &m : members) e.str(m.first).tc(m.second);
        return complex(kind, e);
    }
    struct Arm {
        uint32_t label;
        Bytes type;
    };
    // Labels in the width of the discriminator, as this engine reads them.
    Bytes union_of(const Bytes &disc, int32_t disc_kind, int32_t default_index,
                   const std::vector<Arm> &arms) const {
        Enc e = body();
        e.str("IDL:U:1.0").str("U").tc(disc).ulong(static_cast<uint32_t>(default_index));
        e.ulong(static_cast<uint32_t>(arms.size()));
        bool narrow = disc_kind == tk_boolean || disc_kind == tk_char;
        bool half = disc_kind == tk_short || disc_kind == tk_ushort || disc_kind == tk_wchar;
        for (const auto &a : arms) e.num(a.label, narrow ? 1 : half ? 2 : 4).str("m").tc(a.type);
        return complex(tk_union, e);
    }
    Bytes sequence(const Bytes &element, uint32_t bound = 0) const {
        return complex(tk_sequence, body().tc(element).ulong(bound));
    }
    Bytes array(const Bytes &element, uint32_t length) const {
        return complex(tk_array, body().tc(element).ulong(length));
    }
    Bytes alias(const Bytes &aliased) const {
        return complex(tk_alias, body().str("IDL:A:1.0").str("A").tc(aliased));
    }
    Bytes enumeration(uint32_t count) const {
        Enc e = body();
        e.str("IDL:E:1.0").str("E").ulong(count);
        for (uint32_t i = 0; i < count; ++i) e.str("e" + std::to_string(i));
        return complex(tk_enum, e);
    }
};

// A TypeCode over little-endian wire bytes (the kind word and what follows),
// with the bytes kept alive beside it.
class Held {
public:
    explicit Held(const Bytes &wire) : wire_(wire) {
        auto kind = static_cast<int32_t>(word(0));
        bool body = wire_.size() >= 8 && kind != tk_string && kind != tk_wstring;
        tc_ = body ? new TypeCode(kind, word(4), wire_.data() + 8, 0) : new TypeCode(kind);
        if (!body && wire_.size() >= 8) tc_->length = word(4);
    }
    ~Held() { delete tc_; }
    TypeCode *get() const { return tc_; }
    TypeCode *operator->() const { return tc_; }

private:
    uint32_t word(size_t at) const {
        return wire_[at] | wire_[at + 1] << 8 | wire_[at + 2] << 16 |
               static_cast<uint32_t>(wire_[at + 3]) << 24;
    }
    Bytes wire_;
    TypeCode *tc_;
};

// Tests of values: the standard TypeCodes built, a little-endian builder,
// an environment.
struct DataTest : ::testing::Test {
    void SetUp() override {
        inittypecodes();
        fill_value_table();
    }
    // The id of the exception env holds, or "none".
    std::string raised() const { return env.id() != nullptr ? env.id() : "none"; }
    Tc le;
    Environment env;
};

}  // namespace tcb

#endif
