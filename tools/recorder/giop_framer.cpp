#include "tools/recorder/giop_framer.h"

#include <cstring>

#include "orbelle/limits.h"

namespace recorder {
namespace {

constexpr uint8_t flag_little = 0x01;
constexpr uint8_t flag_more = 0x02;

uint32_t read_u32(const uint8_t *p, bool little) {
    return little ? static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
                        static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24
                  : static_cast<uint32_t>(p[3]) | static_cast<uint32_t>(p[2]) << 8 |
                        static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[0]) << 24;
}

void write_u32(uint8_t *p, uint32_t v, bool little) {
    for (int i = 0; i < 4; ++i) p[little ? i : 3 - i] = static_cast<uint8_t>(v >> (8 * i));
}

// The request id a fragmentable message of GIOP 1.2 starts its header with
// (a Fragment too): the first ulong of the body.
bool request_id_12(const GiopMessage &m, uint32_t *id) {
    if (m.bytes.size() < giop_header_size + 4) return false;
    *id = read_u32(reinterpret_cast<const uint8_t *>(m.bytes.data()) + giop_header_size, m.little);
    return true;
}

void set_size(GiopMessage &m) {
    write_u32(reinterpret_cast<uint8_t *>(&m.bytes[8]),
              static_cast<uint32_t>(m.bytes.size() - giop_header_size), m.little);
    m.bytes[6] = static_cast<char>(m.bytes[6] & ~flag_more);
}

}  // namespace

bool looks_like_header(const uint8_t *p) {
    return std::memcmp(p, "GIOP", 4) == 0 && p[4] == 1 && p[5] <= 2 && p[7] <= giop_fragment &&
           !(p[5] == 0 && p[7] == giop_fragment) && (p[6] & ~(flag_little | flag_more)) == 0;
}

uint32_t declared_size(const uint8_t *p) { return read_u32(p + 8, (p[6] & flag_little) != 0); }

void GiopFramer::data(const uint8_t *bytes, size_t n, int64_t time_us) {
    if (n == 0) return;
    if (!have_time_) {
        first_time_ = time_us;
        have_time_ = true;
    }
    // The buffer holds at most one unfinished message: what was read is
    // dropped before it grows, so every byte is moved a bounded number of
    // times.
    if (start_ > 0 && start_ >= buffer_.size() / 2) {
        buffer_.erase(0, start_);
        start_ = 0;
    }
    buffer_.append(reinterpret_cast<const char *>(bytes), n);
    while (next_message()) {
        have_time_ = start_ < buffer_.size();
        first_time_ = time_us;
    }
    if (start_ == buffer_.size()) {
        buffer_.clear();
        start_ = 0;
        have_time_ = false;
    }
}

void GiopFramer::gap() {
    if (buffer_.size() > start_ || has_pending_11_ || !pending_12_.empty()) ++counts_.cut_messages;
    counts_.cut_messages += pending_12_.empty() ? 0 : pending_12_.size() - 1;
    buffer_.clear();
    start_ = 0;
    have_time_ = false;
    has_pending_11_ = false;
    pending_12_.clear();
    hunting_ = true;
}

bool GiopFramer::next_message() {
    const auto *p = reinterpret_cast<const uint8_t *>(buffer_.data()) + start_;
    size_t left = buffer_.size() - start_;
    if (hunting_) {
        // Keep the last eleven bytes: a header may begin in them.
        size_t at = 0;
        while (left - at >= giop_header_size && !looks_like_header(p + at)) ++at;
        if (left - at < giop_header_size) {
            size_t keep = left < giop_header_size - 1 ? left : giop_header_size - 1;
            counts_.skipped_bytes += left - keep;
            start_ += left - keep;
            return false;
        }
        counts_.skipped_bytes += at;
        start_ += at;
        p += at;
        left -= at;
        hunting_ = false;
    }
    if (left < giop_header_size) return false;
    if (!looks_like_header(p)) {
        hunting_ = true;
        return true;
    }
    const uint32_t size = declared_size(p);
    if (size > limits::max_body_size) {
        // A size no peer sends: this is no header after all.
        ++counts_.refused_messages;
        start_ += 4;
        counts_.skipped_bytes += 4;
        hunting_ = true;
        return true;
    }
    if (left - giop_header_size < size) return false;
    GiopMessage m;
    m.minor = p[5];
    m.little = (p[6] & flag_little) != 0;
    m.type = p[7];
    m.time_us = first_time_;
    m.bytes.assign(reinterpret_cast<const char *>(p), giop_header_size + size);
    const bool more = m.minor >= 1 && (p[6] & flag_more) != 0;
    start_ += giop_header_size + size;
    if (m.type == giop_fragment)
        fragment(std::move(m), more);
    else
        complete(std::move(m), more);
    return true;
}

void GiopFramer::complete(GiopMessage &&m, bool more) {
    const bool fragmentable = m.type == giop_request || m.type == giop_reply ||
                              m.type == giop_locate_request || m.type == giop_locate_reply;
    if (!more || !fragmentable) {
        set_size(m);
        ++counts_.messages;
        out_(std::move(m));
        return;
    }
    if (m.minor == 1) {
        if (has_pending_11_) ++counts_.cut_messages;
        pending_11_ = std::move(m);
        has_pending_11_ = true;
        return;
    }
    uint32_t id = 0;
    if (!request_id_12(m, &id)) {
        set_size(m);
        ++counts_.messages;
        out_(std::move(m));
        return;
    }
    if (pending_12_.size() >= limits::max_capture_fragmented && pending_12_.count(id) == 0) {
        ++counts_.refused_messages;
        return;
    }
    pending_12_[id] = std::move(m);
}

void GiopFramer::fragment(GiopMessage &&m, bool more) {
    GiopMessage *whole = nullptr;
    size_t skip = giop_header_size;
    uint32_t id = 0;
    if (m.minor == 1) {
        if (has_pending_11_) whole = &pending_11_;
    } else if (request_id_12(m, &id)) {
        auto it = pending_12_.find(id);
        if (it != pending_12_.end()) whole = &it->second;
        skip += 4;
    }
    if (whole == nullptr) {
        ++counts_.orphan_fragments;
        return;
    }
    if (whole->bytes.size() - giop_header_size + (m.bytes.size() - skip) > limits::max_body_size) {
        ++counts_.refused_messages;
        if (m.minor == 1)
            has_pending_11_ = false;
        else
            pending_12_.erase(id);
        return;
    }
    whole->bytes.append(m.bytes, skip, std::string::npos);
    ++whole->fragments;
    if (more) return;
    GiopMessage done = std::move(*whole);
    if (m.minor == 1)
        has_pending_11_ = false;
    else
        pending_12_.erase(id);
    complete(std::move(done), false);
}

}  // namespace recorder
