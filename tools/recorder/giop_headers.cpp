#include "tools/recorder/giop_headers.h"

#include "tools/recorder/wire_reader.h"

namespace recorder {
namespace {

constexpr uint32_t tag_internet_iop = 0;

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
