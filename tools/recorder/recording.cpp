#include "tools/recorder/recording.h"

#include <dirent.h>

#include <algorithm>

#include "orbelle/kinds.h"
#include "orbelle/limits.h"
#include "repository/pirapi.h"
#include "tools/recorder/wire_reader.h"
#include "tools/recorder/words.h"

namespace recorder {

namespace {

constexpr uint32_t reply_no_exception = 0;
constexpr uint32_t reply_user_exception = 1;
constexpr uint32_t reply_system_exception = 2;
constexpr uint32_t reply_location_forward = 3;

// The reference behind an "IOR:" text that read_reference wrote.
bool parse_reference_text(const std::string &text, Reference &ref) {
    if (text.compare(0, 4, "IOR:") != 0 || text.size() % 2 != 0) return false;
    std::string bytes;
    for (size_t i = 4; i + 1 < text.size(); i += 2)
        bytes += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    if (bytes.empty()) return false;
    Reader r(bytes, 1, (bytes[0] & 1) != 0);
    return read_reference(r, ref);
}

// "IDL:Banking/Account/deposit:1.0" -> "IDL:Banking/Account:1.0".
std::string defining_interface(const std::string &operation_id) {
    size_t colon = operation_id.rfind(':');
    size_t slash = operation_id.rfind('/', colon);
    if (colon == std::string::npos || slash == std::string::npos) return "";
    return operation_id.substr(0, slash) + operation_id.substr(colon);
}

}  // namespace

struct Recording::Conn {
    Connection c;
    std::unique_ptr<GiopFramer> framers[2];
    std::map<uint32_t, size_t> open_requests;  // request id -> call index
    // request id -> naming resolve in flight: its one component, if any
    std::map<uint32_t, std::pair<size_t, std::string>> naming;
    bool skipped = false;
};

Recording::Recording(RecordOptions options, CallWriter &writer)
    : options_(std::move(options)),
      descriptions_(options_.dir),
      reassembler_(*this),
      writer_(writer) {
    // Every operation of every description in dir/idl, with the interface
    // that defines it.
    const std::string idl = options_.dir + "/idl";
    if (DIR *d = opendir(idl.c_str())) {
        while (dirent *e = readdir(d)) {
            std::string name = e->d_name;
            if (name.size() < 5 || name.compare(name.size() - 4, 4, ".csv") != 0) continue;
            try {
                PirIntNod *ifc = PirReadInterfaceFile((idl + "/" + name).c_str());
                for (PirNod *child : ifc->children) {
                    if (child->kind != pirOprKind) continue;
                    auto *op = static_cast<PirOprNod *>(child);
                    std::string defined = defining_interface(op->oprId);
                    if (defined.empty()) defined = ifc->intId;
                    auto range = operations_.equal_range(op->oprNam);
                    bool known = std::any_of(range.first, range.second,
                                             [&](auto &p) { return p.second == defined; });
                    if (!known) operations_.emplace(op->oprNam, defined);
                }
                PirFreeInterface(ifc);
            } catch (const PirException &) {
                notes.push_back("description idl/" + name + " unreadable, left out");
            }
        }
        closedir(d);
    }
}

Recording::~Recording() = default;

bool Recording::read(const std::string &path, std::string &error) {
    std::string cut;
    bool ok = read_capture(
        path,
        [&](const Segment &s) {
            if (first_us == 0) first_us = s.time_us;
            last_us = s.time_us;
            reassembler_.add(s);
        },
        capture_counts, cut);
    if (!ok) {
        error = cut;
        return false;
    }
    if (!cut.empty()) notes.push_back(cut + " (read up to there)");
    return true;
}

void Recording::finish() {
    reassembler_.finish();
    connections = reassembler_.connections_seen();
    bytes_lost = reassembler_.bytes_lost();
    flush(true);
}

RecordedCall *Recording::held(size_t index) {
    if (index < first_held_ || index - first_held_ >= held_.size()) return nullptr;
    return &held_[index - first_held_];
}

void Recording::flush(bool all) {
    while (!held_.empty()) {
        RecordedCall &front = held_.front();
        const bool crowded = held_.size() > limits::max_recorded_calls_held;
        // A call whose reply never comes must not hold everything behind
        // it for ever.
        const bool overfull = held_.size() > 4 * limits::max_recorded_calls_held;
        if (!(all || overfull || (front.complete && crowded))) break;
        if (front.response_expected && !front.replied && front.problem.empty())
            ++left_out.unanswered;
        writer_.write_call(*this, front);
        for (const FlatValue &v : front.outs) {
            auto it = seen_.find(v.text);
            if (it != seen_.end() && it->second.first == front.index) seen_.erase(it);
        }
        held_.pop_front();
        ++first_held_;
    }
}

void Recording::name_object(RecordedObject &o) {
    if (!o.name.empty() || o.repoid.empty()) return;
    std::string base = base_name(o.repoid);
    int n = ++names_used_[base];
    o.name = n == 1 ? base : base + std::to_string(n);
}

bool Recording::wanted(const Endpoint &client, const Endpoint &server) const {
    if (!options_.client.empty() && client.host() != options_.client) return false;
    if (options_.servers.empty()) return true;
    return std::find(options_.servers.begin(), options_.servers.end(), server.text()) !=
           options_.servers.end();
}

void Recording::on_data(const Connection &c, int dir, const uint8_t *bytes, size_t n,
                        int64_t time_us) {
    auto &slot = conns_[c.number];
    if (!slot) {
        slot = std::make_unique<Conn>();
        slot->c = c;
        Conn *conn = slot.get();
        for (int d = 0; d < 2; ++d)
            conn->framers[d] = std::make_unique<GiopFramer>(
                [this, conn, d](GiopMessage &&m) { on_message(*conn, d, std::move(m)); });
    }
    slot->framers[dir]->data(bytes, n, time_us);
}

void Recording::on_gap(const Connection &c, int dir, uint64_t lost, int64_t) {
    auto it = conns_.find(c.number);
    if (it != conns_.end()) it->second->framers[dir]->gap();
    if (lost > 0)
        notes.push_back("connection " + std::to_string(c.number) + " (" + c.ends[0].text() + " - " +
                        c.ends[1].text() + "): " + std::to_string(lost) +
                        " bytes missing from the capture");
}

void Recording::on_close(const Connection &c) {
    auto it = conns_.find(c.number);
    if (it == conns_.end()) return;
    // What was not answered on it will not be.
    for (const auto &open : it->second->open_requests)
        if (RecordedCall *call = held(open.second)) call->complete = true;
    for (auto &f : it->second->framers) {
        const FramerCounts &k = f->counts();
        framer_counts.messages += k.messages;
        framer_counts.skipped_bytes += k.skipped_bytes;
        framer_counts.cut_messages += k.cut_messages;
        framer_counts.refused_messages += k.refused_messages;
        framer_counts.orphan_fragments += k.orphan_fragments;
    }
    conns_.erase(it);
}

void Recording::on_message(Conn &conn, int dir, GiopMessage &&m) {
    // Requests go from client to server, whichever side opened the
    // connection the capture saw first.
    const bool from_client =
        m.type == giop_request || m.type == giop_locate_request || m.type == giop_cancel_request;
    const Endpoint &sender = conn.c.ends[dir];
    const Endpoint &receiver = conn.c.ends[1 - dir];
    const Endpoint &client = from_client ? sender : receiver;
    const Endpoint &server = from_client ? receiver : sender;
    if (!wanted(client, server)) {
        ++left_out.other_servers;
        return;
    }
    if (m.type == giop_close_connection || m.type == giop_message_error) return;
    GiopHeader h;
    std::string why;
    if (!read_header(m, h, why)) {
        notes.push_back("connection " + std::to_string(conn.c.number) + ": a message header " +
                        why + ", left out");
        return;
    }
    switch (m.type) {
        case giop_request:
            on_request(conn, server, m, h);
            break;
        case giop_reply:
            on_reply(conn, m, h);
            break;
        case giop_locate_request:
            ++left_out.locates;
            break;
        case giop_cancel_request:
            ++left_out.cancels;
            break;
        default:
            break;
    }
}

size_t Recording::object_for(const Endpoint &server, const std::string &key, bool server_known) {
    const std::string id = std::to_string(server.port) + ":" + key;
    auto it = object_by_key_.find(id);
    if (it != object_by_key_.end()) {
        RecordedObject &o = objects[it->second];
        if (!o.server_known && server_known) {
            o.server = server;
            o.server_known = true;
        }
        return it->second;
    }
    RecordedObject o;
    o.key = key;
    o.server = server;
    o.server_known = server_known;
    objects.push_back(o);
    object_by_key_[id] = objects.size() - 1;
    return objects.size() - 1;
}

std::string Recording::interface_of_operation(const std::string &operation) const {
    auto it = operations_.find(operation);
    return it != operations_.end() ? it->second : "";
}

void Recording::on_request(Conn &conn, const Endpoint &server, const GiopMessage &m,
                           const GiopHeader &h) {
    if (h.operation == "_is_a" || h.operation == "_non_existent" ||
        h.operation == "_not_existent") {
        ++left_out.probes;
        return;
    }
    const size_t obj = object_for(server, h.object_key, true);
    for (const auto &given : options_.objects) {
        if (given.first != h.object_key) continue;
        objects[obj].repoid = given.second;
        objects[obj].given = true;
    }
    // A naming service: resolve on a key no description knows the
    // operation of.
    if (h.operation == "resolve" && objects[obj].repoid.empty() &&
        interface_of_operation("resolve").empty()) {
        ++left_out.naming;
        Reader r(m.bytes, h.body_offset, m.little);
        uint32_t n = r.ulong();
        std::string id, kind;
        if (n == 1) {
            id = r.string();
            kind = r.string();
        }
        const bool simple = r.ok() && n == 1 && kind.empty();
        conn.naming[h.request_id] = {obj, simple ? id : std::string()};
        return;
    }
    RecordedCall call;
    call.object = obj;
    call.operation = h.operation;
    call.connection = conn.c.number;
    call.request_id = h.request_id;
    call.response_expected = h.response_expected;
    call.minor = m.minor;
    call.sent_us = m.time_us;
    RecordedObject &o = objects[obj];
    if (o.repoid.empty() && !h.target_type_id.empty()) o.repoid = h.target_type_id;
    OperationInfo info;
    std::string why;
    if (!o.given &&
        (o.repoid.empty() || !find_operation(descriptions_, o.repoid, h.operation, info, why))) {
        // The key's interface is not known, or lacks the operation (a
        // derived interface is meant): where the operation is defined.
        std::string defined = interface_of_operation(h.operation);
        if (!defined.empty() && (o.repoid.empty() || o.origin == Origin::Address))
            o.repoid = defined;
    }
    if (o.repoid.empty()) {
        call.problem = "no description holds operation '" + h.operation + "'";
    } else if (!decode_body(descriptions_, o.repoid, h.operation, m, h.body_offset, true, call.ins,
                            why)) {
        call.problem = why;
    }
    if (!call.problem.empty()) call.raw_body = hex_of(m.bytes.substr(h.body_offset));
    call.index = calls_recorded++;
    // A reference the client got from a reply: saved after that reply and
    // bound by variable, while that call is held; else by its address.
    if (o.origin == Origin::Reply && !o.saved) {
        if (RecordedCall *source = held(o.from_call)) {
            source->binds_after.push_back(obj);
            o.saved = true;
        } else {
            o.origin = Origin::Address;
        }
    }
    name_object(o);
    correlate(call);
    call.complete = !h.response_expected || !call.problem.empty();
    if (h.response_expected) conn.open_requests[h.request_id] = call.index;
    held_.push_back(std::move(call));
    flush(false);
}

void Recording::correlate(RecordedCall &call) {
    for (const FlatValue &v : call.ins) {
        std::string word = script_word(v.text);
        Reference ref;
        if (v.type == tk_objref && parse_reference_text(v.text, ref)) {
            auto found = object_by_key_.find(std::to_string(ref.port) + ":" + ref.key);
            if (found != object_by_key_.end()) {
                RecordedObject &o = objects[found->second];
                if (o.origin == Origin::Reply && !o.saved) {
                    if (RecordedCall *source = held(o.from_call)) {
                        source->binds_after.push_back(found->second);
                        o.saved = true;
                    }
                }
                name_object(o);
                if (o.origin == Origin::Reply && o.saved) word = "${" + o.name + "_ior}";
            }
        } else if (may_be_id(v)) {
            auto found = seen_.find(v.text);
            RecordedCall *source = found != seen_.end() ? held(found->second.first) : nullptr;
            if (source != nullptr) {
                const std::string &name = found->second.second;
                std::string var;
                for (const auto &saved : source->saves)
                    if (saved.first == name) var = saved.second;
                if (var.empty()) {
                    var = variable_for(name, source->index);
                    source->saves.emplace_back(name, var);
                }
                word = "${" + var + "}";
            }
        }
        call.in_words.push_back(std::move(word));
    }
}

void Recording::on_reply(Conn &conn, const GiopMessage &m, const GiopHeader &h) {
    auto naming = conn.naming.find(h.request_id);
    if (naming != conn.naming.end()) {
        Reader r(m.bytes, h.body_offset, m.little);
        Reference ref;
        if (h.status == reply_no_exception && read_reference(r, ref)) {
            const RecordedObject ns = objects[naming->second.first];
            Endpoint where;
            where.port = ref.port;
            size_t obj = object_for(where, ref.key, false);
            RecordedObject &o = objects[obj];
            if (o.repoid.empty()) o.repoid = ref.type_id;
            if (!naming->second.second.empty() && o.origin == Origin::Address) {
                o.origin = Origin::Naming;
                o.naming_name = naming->second.second;
                o.naming_ior = reference_text("IDL:omg.org/CosNaming/NamingContext:1.0",
                                              ns.server.host(), ns.server.port, ns.key);
            }
        }
        conn.naming.erase(naming);
        return;
    }
    auto it = conn.open_requests.find(h.request_id);
    if (it == conn.open_requests.end()) return;
    RecordedCall *held_call = held(it->second);
    conn.open_requests.erase(it);
    if (held_call == nullptr) return;
    RecordedCall &call = *held_call;
    call.complete = true;
    if (h.status == reply_location_forward) {
        // The client sends it again to where it was sent: that one counts.
        ++left_out.forwarded;
        call.problem = "forwarded";
        return;
    }
    call.replied = true;
    call.replied_us = m.time_us;
    call.reply_status = h.status;
    if (call.problem.empty()) {
        std::string why;
        if (h.status == reply_user_exception || h.status == reply_system_exception) {
            exception_id(m, h.body_offset, call.exception_id);
        } else if (h.status == reply_no_exception) {
            if (decode_body(descriptions_, objects[call.object].repoid, call.operation, m,
                            h.body_offset, false, call.outs, why)) {
                learn_references(call);
            } else {
                call.problem = "reply: " + why;
                call.raw_body = hex_of(m.bytes.substr(h.body_offset));
                call.outs.clear();
            }
        }
    }
    flush(false);
}

void Recording::learn_references(RecordedCall &call) {
    for (const FlatValue &v : call.outs) {
        if (may_be_id(v)) seen_[v.text] = {call.index, v.name};
        if (v.type != tk_objref) continue;
        Reference ref;
        if (!parse_reference_text(v.text, ref)) continue;
        Endpoint where;
        where.port = ref.port;
        const std::string id = std::to_string(ref.port) + ":" + ref.key;
        if (object_by_key_.count(id) != 0) continue;
        size_t obj = object_for(where, ref.key, false);
        RecordedObject &o = objects[obj];
        o.repoid = ref.type_id;
        o.origin = Origin::Reply;
        o.from_call = call.index;
        o.from_value = v.name;
    }
}

}  // namespace recorder
