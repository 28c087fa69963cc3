#include "tools/recorder/giop_headers.h"

namespace recorder {
namespace {

constexpr uint32_t tag_internet_iop = 0;

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

// A 1.2 TargetAddress: the key itself, a profile holding it, or a whole
// reference with the index of the profile meant.
bool read_target(Reader &r, GiopHeader &h, std::string &why) {
    h.target_kind = r.ushort();
    std::string profile;
    switch (h.target_kind) {
        case 0:
            h.object_key = r.octets();
            return r.ok() || (why = "object key runs past the message", false);
        case 1: {
            uint32_t tag = r.ulong();
            profile = r.octets();
            if (!r.ok()) return why = "profile runs past the message", false;
            if (tag != tag_internet_iop) return why = "target profile is not IIOP", false;
            break;
        }
        case 2: {
            uint32_t index = r.ulong();
            h.target_type_id = r.string();
            uint32_t count = r.ulong();
            if (!r.ok() || r.left() / 8 < count)
                return why = "target reference runs past the message", false;
            for (uint32_t i = 0; i < count && r.ok(); ++i) {
                uint32_t tag = r.ulong();
                std::string body = r.octets();
                if (i == index) {
                    if (tag != tag_internet_iop) return why = "target profile is not IIOP", false;
                    profile = std::move(body);
                }
            }
            if (!r.ok()) return why = "target reference runs past the message", false;
            if (index >= count) return why = "target profile index out of range", false;
            break;
        }
        default:
            return why = "unknown target address kind " + std::to_string(h.target_kind), false;
    }
    if (!iiop_profile_key(profile, h.object_key)) return why = "IIOP profile unreadable", false;
    return true;
}

}  // namespace

bool iiop_profile_key(const std::string &profile, std::string &key) {
    if (profile.empty()) return false;
    Reader r(profile, 1, (profile[0] & 1) != 0);
    r.octet();  // version
    r.octet();
    r.string();  // host
    r.ushort();  // port
    key = r.octets();
    return r.ok();
}

bool read_header(const GiopMessage &m, GiopHeader &h, std::string &why) {
    Reader r(m.bytes, giop_header_size, m.little);
    const bool v12 = m.minor >= 2;
    switch (m.type) {
        case giop_request:
            if (v12) {
                h.request_id = r.ulong();
                uint8_t flags = r.octet();
                h.response_expected = (flags & 0x01) != 0;
                r.octet();
                r.octet();
                r.octet();
                if (r.ok() && !read_target(r, h, why)) return false;
                h.operation = r.string();
                r.skip_service_contexts();
            } else {
                r.skip_service_contexts();
                h.request_id = r.ulong();
                h.response_expected = r.octet() != 0;
                if (m.minor == 1) {
                    r.octet();
                    r.octet();
                    r.octet();
                }
                h.object_key = r.octets();
                h.operation = r.string();
                r.skip_octets();  // principal
            }
            break;
        case giop_reply:
            if (v12) {
                h.request_id = r.ulong();
                h.status = r.ulong();
                r.skip_service_contexts();
            } else {
                r.skip_service_contexts();
                h.request_id = r.ulong();
                h.status = r.ulong();
            }
            if (r.ok() && h.status > 5) return why = "unknown reply status", false;
            break;
        case giop_locate_request:
            h.request_id = r.ulong();
            if (v12) {
                if (r.ok() && !read_target(r, h, why)) return false;
            } else {
                h.object_key = r.octets();
            }
            break;
        case giop_locate_reply:
            h.request_id = r.ulong();
            h.status = r.ulong();
            break;
        case giop_cancel_request:
            h.request_id = r.ulong();
            break;
        default:
            return why = "message without a header to read", false;
    }
    if (!r.ok()) return why = "header runs past the message", false;
    // The body of a 1.2 Request or Reply starts on an 8-byte boundary, when
    // there is one.
    if (v12 && (m.type == giop_request || m.type == giop_reply || m.type == giop_locate_reply) &&
        r.left() > 0)
        r.align(8);
    h.body_offset = r.ok() ? r.pos() : m.bytes.size();
    return true;
}

}  // namespace recorder
