#include "tools/recorder/script_writer.h"

#include <cctype>
#include <ctime>

#include "orbelle/kinds.h"
#include "tools/recorder/words.h"

namespace recorder {
namespace {

// Raw bytes of an undecoded body kept in a comment, at most.
constexpr size_t max_raw_comment = 4096;

std::string utc(int64_t us) {
    std::time_t t = static_cast<std::time_t>(us / 1000000);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &tm);
    return text;
}

}  // namespace

void ScriptWriter::header(const Recording &rec, std::ostream &out) const {
    out << "# Recorded by orbelle-record from " << options_.source << "\n";
    if (rec.first_us != 0)
        out << "# captured " << utc(rec.first_us) << " to " << utc(rec.last_us) << ": "
            << rec.framer_counts.messages << " GIOP messages on " << rec.connections
            << " connections, " << rec.calls_recorded << " requests recorded\n";
    const LeftOut &l = rec.left_out;
    out << "# left out: " << l.naming << " naming service calls (the binds resolve), " << l.probes
        << " _is_a/_non_existent, " << l.locates << " LocateRequests, " << l.cancels
        << " CancelRequests, " << l.forwarded << " forwarded requests";
    if (l.other_servers != 0) out << ", " << l.other_servers << " messages of other hosts";
    out << "\n";
    if (l.unanswered != 0)
        out << "# " << l.unanswered << " requests have no reply in the capture\n";
    if (rec.bytes_lost != 0 || rec.framer_counts.cut_messages != 0)
        out << "# " << rec.bytes_lost << " bytes missing from the capture, "
            << rec.framer_counts.cut_messages << " messages lost with them\n";
    for (const std::string &note : rec.notes) out << "# " << note << "\n";
    out << "\n";
    if (!options_.data_file.empty() && !columns_.empty()) {
        const size_t slash = options_.data_file.rfind('/');
        out << "data "
            << script_word(options_.data_file.substr(slash == std::string::npos ? 0 : slash + 1))
            << " as recorded\n\n";
    }
}

std::string ScriptWriter::in_word(const RecordedCall &call, size_t k) {
    const FlatValue &v = call.ins[k];
    const std::string &word = call.in_words[k];
    const bool varies = v.type == tk_string || v.type == tk_short || v.type == tk_long ||
                        v.type == tk_ushort || v.type == tk_ulong || v.type == tk_float ||
                        v.type == tk_double;
    if (options_.data_file.empty() || !varies || word.compare(0, 2, "${") == 0) return word;
    auto found = column_of_.find({call.operation, v.name});
    if (found == column_of_.end()) {
        std::string name;
        for (char c : call.operation + "_" + v.name)
            if (std::isalnum(static_cast<unsigned char>(c)))
                name += c;
            else if (!name.empty() && name.back() != '_')
                name += '_';
        while (!name.empty() && name.back() == '_') name.pop_back();
        const int n = ++column_names_[name];
        if (n > 1) name += "_" + std::to_string(n);
        found = column_of_.emplace(std::make_pair(call.operation, v.name), name).first;
        columns_.emplace_back(name, v.text);
    }
    return "${recorded." + found->second + "}";
}

std::string ScriptWriter::data_text() const {
    // CSV: a field with a comma, a quote or a line break is quoted, its
    // quotes doubled.
    auto field = [](const std::string &text) {
        if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
        std::string out = "\"";
        for (char c : text) out += c == '"' ? std::string("\"\"") : std::string(1, c);
        return out + "\"";
    };
    std::string head, row;
    for (const auto &column : columns_) {
        head += (head.empty() ? "" : ",") + column.first;
        row += (row.empty() && &column == &columns_.front() ? "" : ",") + field(column.second);
    }
    return head + "\n" + row + "\n";
}

void ScriptWriter::bind_line(const Recording &rec, size_t o) {
    const RecordedObject &obj = rec.objects[o];
    if (bound_.size() <= o) bound_.resize(o + 1);
    bound_[o] = obj.repoid;
    ++counts_.binds;
    body_ << "bind " << obj.name << " " << obj.repoid << " ";
    switch (obj.origin) {
        case Origin::Naming:
            body_ << script_word(obj.naming_name) << " \"NameService(" << obj.naming_ior << ")\"\n";
            break;
        case Origin::Reply:
            body_ << obj.name << " IOR ${" << obj.name << "_ior}\n";
            break;
        case Origin::Address:
            body_ << obj.name << " IOR "
                  << reference_text(obj.repoid, obj.server.host(), obj.server.port, obj.key)
                  << "\n";
            break;
    }
}

void ScriptWriter::write_call(const Recording &rec, const RecordedCall &call) {
    if (call.problem == "forwarded") return;
    const int64_t pause_ms = last_us_ == 0 ? 0 : (call.sent_us - last_us_) / 1000;
    if (!open_ || pause_ms >= options_.pause_ms) {
        if (open_) body_ << "end step" << step_ << "\n\n";
        if (options_.think && pause_ms >= options_.pause_ms) body_ << "think " << pause_ms << "\n";
        body_ << "begin step" << ++step_ << "\n";
        open_ = true;
    }
    last_us_ = call.replied ? call.replied_us : call.sent_us;
    const RecordedObject &obj = rec.objects[call.object];
    // Bound before its first call, and again when a later call showed it to
    // be of a derived interface; a reference from a reply was bound where
    // it was saved.
    const bool bound = call.object < bound_.size() && !bound_[call.object].empty();
    if (!obj.repoid.empty() &&
        (bound ? bound_[call.object] != obj.repoid : obj.origin != Origin::Reply || !obj.saved))
        bind_line(rec, call.object);
    if (!call.problem.empty()) {
        ++counts_.undecoded;
        body_ << "# not decoded: " << call.operation << " on "
              << (obj.name.empty() ? "an object of unknown interface" : obj.name) << ": "
              << call.problem << "\n";
        std::string raw = call.raw_body.substr(0, 2 * max_raw_comment);
        body_ << "#   body (" << call.raw_body.size() / 2 << " bytes): " << raw
              << (raw.size() < call.raw_body.size() ? "..." : "") << "\n";
        return;
    }
    ++counts_.calls;
    body_ << "params " << obj.name << " " << call.operation;
    for (const FlatValue &v : call.ins)
        if (v.length) body_ << " " << v.name << "=" << v.text;
    for (const FlatValue &v : call.outs)
        if (v.length && v.direction == 1) body_ << " " << v.name << "=" << v.text;
    body_ << "\n";
    for (size_t k = 0; k < call.ins.size(); ++k)
        if (!call.ins[k].length)
            body_ << "set " << call.ins[k].name << " " << in_word(call, k) << "\n";
    body_ << "invoke";
    if (!call.response_expected) body_ << " oneway";
    if (call.replied && call.reply_status == 1) body_ << " expect=user";
    if (call.replied && call.reply_status == 2) body_ << " expect=system";
    if (!call.exception_id.empty()) body_ << "  # " << call.exception_id;
    body_ << "\n";
    for (const auto &saved : call.saves) {
        body_ << "save " << saved.first << " " << saved.second << "\n";
        ++counts_.saved;
    }
    for (size_t o : call.binds_after) {
        body_ << "save " << rec.objects[o].from_value << " " << rec.objects[o].name << "_ior\n";
        ++counts_.saved;
        bind_line(rec, o);
    }
    if (options_.checks)
        for (const FlatValue &v : call.outs) {
            bool saved = false;
            for (const auto &s : call.saves) saved = saved || s.first == v.name;
            if (v.type != tk_objref && !v.length && !saved)
                body_ << "check " << v.name << " " << script_word(v.text) << "\n";
        }
}

void ScriptWriter::finish() {
    if (open_) body_ << "end step" << step_ << "\n";
    open_ = false;
}

}  // namespace recorder
