#include "tools/recorder/tcp_reassembly.h"

#include "orbelle/limits.h"

namespace recorder {
namespace {

std::pair<Endpoint, Endpoint> key_of(const Endpoint &a, const Endpoint &b) {
    return a < b ? std::make_pair(a, b) : std::make_pair(b, a);
}

}  // namespace

Reassembler::~Reassembler() = default;

void Reassembler::add(const Segment &s) {
    const auto key = key_of(s.from, s.to);
    auto it = open_.find(key);
    const bool syn_only = (s.flags & tcp_syn) != 0 && (s.flags & tcp_ack) == 0;
    // A new SYN on a pair whose earlier connection never closed in the
    // capture: the port was used again.
    if (it != open_.end() && syn_only && it->second.d[0].started &&
        it->second.c.ends[0] == s.from && it->second.d[0].next_seq != s.seq + 1) {
        close(it, s.time_us);
        it = open_.end();
    }
    if (it == open_.end()) {
        // A stray reset or a bare FIN opens nothing.
        if ((s.flags & tcp_rst) != 0) return;
        State st;
        st.c.number = next_number_++;
        st.c.ends[0] = s.from;
        st.c.ends[1] = s.to;
        // A SYN-ACK seen first: its receiver opened the connection.
        if ((s.flags & tcp_syn) != 0 && !syn_only) std::swap(st.c.ends[0], st.c.ends[1]);
        st.c.opened_in_capture = (s.flags & tcp_syn) != 0;
        st.c.first_time_us = s.time_us;
        it = open_.emplace(key, std::move(st)).first;
    }
    State &st = it->second;
    const int dir = st.c.ends[0] == s.from ? 0 : 1;
    if ((s.flags & tcp_rst) != 0) {
        close(it, s.time_us);
        return;
    }
    take(st, dir, s);
    if (complete(st.d[0]) && complete(st.d[1])) close(it, s.time_us);
}

void Reassembler::take(State &st, int dir, const Segment &s) {
    Direction &d = st.d[dir];
    if ((s.flags & tcp_syn) != 0) {
        if (!d.started) {
            d.started = true;
            d.next_seq = s.seq + 1;
        }
        return;
    }
    if (!d.started) {
        d.started = true;
        d.next_seq = s.seq;
        if (s.length > 0) sink_.on_gap(st.c, dir, 0, s.time_us);
    }
    // Where the segment lies in the stream; sequence numbers wrap, offsets
    // do not. A segment more than 2 GiB away is taken as an old one.
    const auto delta = static_cast<int32_t>(s.seq - d.next_seq);
    if (delta < 0 && static_cast<uint64_t>(-static_cast<int64_t>(delta)) > d.next_abs) {
        retransmitted_ += s.length;
        return;
    }
    const uint64_t at = d.next_abs + static_cast<uint64_t>(static_cast<int64_t>(delta));
    if ((s.flags & tcp_fin) != 0) {
        d.fin = true;
        d.fin_at = at + s.length;
    }
    if (s.length == 0) return;
    if (at <= d.next_abs) {
        deliver(st, dir, at, s.data, s.length, s.time_us);
        drain(st, dir, s.time_us);
        return;
    }
    // Early: held until the bytes before it come. Of two copies of one
    // offset the longer is kept.
    auto found = d.held.find(at);
    if (found != d.held.end()) {
        retransmitted_ += std::min(found->second.size(), s.length);
        if (found->second.size() >= s.length) return;
        d.held_bytes -= found->second.size();
        found->second.assign(reinterpret_cast<const char *>(s.data), s.length);
    } else {
        d.held.emplace(at, std::string(reinterpret_cast<const char *>(s.data), s.length));
    }
    d.held_bytes += s.length;
    while (d.held_bytes > limits::max_capture_held_bytes) skip_hole(st, dir, s.time_us);
}

void Reassembler::deliver(State &st, int dir, uint64_t at, const uint8_t *p, size_t n, int64_t t) {
    Direction &d = st.d[dir];
    const uint64_t already = d.next_abs - at;
    if (already >= n) {
        retransmitted_ += n;
        return;
    }
    retransmitted_ += already;
    const size_t fresh = n - static_cast<size_t>(already);
    d.next_abs += fresh;
    d.next_seq += static_cast<uint32_t>(fresh);
    sink_.on_data(st.c, dir, p + already, fresh, t);
}

void Reassembler::drain(State &st, int dir, int64_t t) {
    Direction &d = st.d[dir];
    while (!d.held.empty() && d.held.begin()->first <= d.next_abs) {
        auto first = d.held.begin();
        std::string bytes = std::move(first->second);
        const uint64_t at = first->first;
        d.held.erase(first);
        d.held_bytes -= bytes.size();
        deliver(st, dir, at, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size(), t);
    }
}

void Reassembler::skip_hole(State &st, int dir, int64_t t) {
    Direction &d = st.d[dir];
    if (d.held.empty()) return;
    const uint64_t lost = d.held.begin()->first - d.next_abs;
    bytes_lost_ += lost;
    sink_.on_gap(st.c, dir, lost, t);
    d.next_seq += static_cast<uint32_t>(lost);
    d.next_abs += lost;
    drain(st, dir, t);
}

void Reassembler::close(std::map<Key, State>::iterator it, int64_t t) {
    State &st = it->second;
    for (int dir = 0; dir < 2; ++dir)
        while (!st.d[dir].held.empty()) skip_hole(st, dir, t);
    sink_.on_close(st.c);
    open_.erase(it);
}

void Reassembler::finish() {
    while (!open_.empty()) close(open_.begin(), 0);
}

}  // namespace recorder
