#include "tools/recorder/script_writer.h"

#include <cctype>
#include <ctime>
#include <map>
#include <set>
#include <vector>

#include "orbelle/kinds.h"

namespace recorder {
namespace {

// Raw bytes of an undecoded body kept in a comment, at most.
constexpr size_t max_raw_comment = 4096;

// "IDL:Banking/Account:1.0" -> "account".
std::string base_name(const std::string &repoid) {
    size_t colon = repoid.rfind(':');
    size_t start = repoid.find_last_of("/:", colon == std::string::npos ? 0 : colon - 1);
    std::string name =
        repoid.substr(start == std::string::npos ? 0 : start + 1,
                      colon == std::string::npos ? std::string::npos : colon - start - 1);
    std::string out;
    for (char c : name)
        if (std::isalnum(static_cast<unsigned char>(c)) || c == '_')
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out.empty() ? "obj" : out;
}

// A variable name from a flat name and the call it came from.
std::string variable_for(const std::string &flat, size_t call) {
    std::string out;
    for (char c : flat)
        if (std::isalnum(static_cast<unsigned char>(c)))
            out += c;
        else if (!out.empty() && out.back() != '_')
            out += '_';
    while (!out.empty() && out.back() == '_') out.pop_back();
    return (out.empty() ? "value" : out) + "_" + std::to_string(call + 1);
}

// Values that look like ids a client hands back: strings of four
// characters or more, whole numbers of three digits or more. Smaller ones
// (flags, counts, enum values) match by chance.
bool may_be_id(const FlatValue &v) {
    if (v.length) return false;
    switch (v.type) {
        case tk_string:
            return v.text.size() >= 4;
        case tk_long:
        case tk_ulong:
        case tk_short:
        case tk_ushort: {
            size_t digits = v.text.size() - (v.text[0] == '-' ? 1 : 0);
            return digits >= 3;
        }
        default:
            return false;
    }
}

std::string utc(int64_t us) {
    std::time_t t = static_cast<std::time_t>(us / 1000000);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &tm);
    return text;
}

struct Writer {
    const Recording &rec;
    const WriteOptions &opt;
    std::ostream &out;
    WriteCounts counts;
    std::vector<std::string> object_names;
    std::vector<std::string> object_vars;  // Origin::Reply: the variable
    // (call, flat name) -> variable, for reply values used again.
    std::map<std::pair<size_t, std::string>, std::string> saves;
    // Per call, per in value: the text to write (a ${VAR} or the value).
    std::vector<std::vector<std::string>> in_texts;

    void name_objects() {
        std::map<std::string, int> used;
        for (const RecordedObject &o : rec.objects) {
            std::string name = base_name(o.repoid);
            int n = ++used[name];
            object_names.push_back(n == 1 ? name : name + std::to_string(n));
            object_vars.push_back(object_names.back() + "_ior");
        }
    }

    // Which reply values later requests send back, and what each in value
    // is written as.
    void correlate() {
        std::map<std::string, std::pair<size_t, std::string>> seen;  // text -> latest reply value
        std::map<std::string, size_t> object_by_text;
        for (size_t i = 0; i < rec.calls.size(); ++i) {
            const RecordedCall &call = rec.calls[i];
            std::vector<std::string> texts;
            for (const FlatValue &v : call.ins) {
                std::string text = script_word(v.text);
                if (v.type == tk_objref) {
                    auto found = object_by_text.find(v.text);
                    if (found != object_by_text.end()) {
                        text = "${" + object_vars[found->second] + "}";
                        used_[found->second] = true;
                    }
                } else if (may_be_id(v)) {
                    auto found = seen.find(v.text);
                    if (found != seen.end()) {
                        auto &var = saves[found->second];
                        if (var.empty())
                            var = variable_for(found->second.second, found->second.first);
                        text = "${" + var + "}";
                    }
                }
                texts.push_back(text);
            }
            in_texts.push_back(std::move(texts));
            for (const FlatValue &v : call.outs) {
                if (may_be_id(v)) seen[v.text] = {i, v.name};
                if (v.type == tk_objref)
                    for (size_t o = 0; o < rec.objects.size(); ++o)
                        if (rec.objects[o].origin == Origin::Reply &&
                            rec.objects[o].from_call == i && rec.objects[o].from_value == v.name)
                            object_by_text[v.text] = o;
            }
        }
    }

    void header() {
        out << "# Recorded by orbelle-record from " << opt.source << "\n";
        if (rec.first_us != 0)
            out << "# captured " << utc(rec.first_us) << " to " << utc(rec.last_us) << ": "
                << rec.framer_counts.messages << " GIOP messages on " << rec.connections
                << " connections, " << rec.calls.size() << " requests recorded\n";
        const LeftOut &l = rec.left_out;
        out << "# left out: " << l.naming << " naming service calls (the binds resolve), "
            << l.probes << " _is_a/_non_existent, " << l.locates << " LocateRequests, " << l.cancels
            << " CancelRequests, " << l.forwarded << " forwarded requests";
        if (l.other_servers != 0) out << ", " << l.other_servers << " messages of other hosts";
        out << "\n";
        if (l.unanswered != 0)
            out << "# " << l.unanswered << " requests have no reply in the capture\n";
        if (rec.bytes_lost != 0 || rec.framer_counts.cut_messages != 0)
            out << "# " << rec.bytes_lost << " bytes missing from the capture, "
                << rec.framer_counts.cut_messages << " messages lost with them\n";
        for (const std::string &note : rec.notes) out << "# " << note << "\n";
    }

    void bind_line(size_t o) {
        const RecordedObject &obj = rec.objects[o];
        const std::string &name = object_names[o];
        ++counts.binds;
        switch (obj.origin) {
            case Origin::Naming:
                out << "bind " << name << " " << obj.repoid << " " << script_word(obj.naming_name)
                    << " \"NameService(" << obj.naming_ior << ")\"\n";
                break;
            case Origin::Reply:
                out << "bind " << name << " " << obj.repoid << " " << name << " IOR ${"
                    << object_vars[o] << "}\n";
                break;
            case Origin::Address:
                out << "bind " << name << " " << obj.repoid << " " << name << " IOR "
                    << reference_text(obj.repoid, obj.server.host(), obj.server.port, obj.key)
                    << "\n";
                break;
        }
    }

    void call_lines(size_t i) {
        const RecordedCall &call = rec.calls[i];
        const std::string &obj = object_names[call.object];
        if (!call.problem.empty()) {
            ++counts.undecoded;
            out << "# not decoded: " << call.operation << " on " << obj << ": " << call.problem
                << "\n";
            std::string raw = call.raw_body.substr(0, 2 * max_raw_comment);
            out << "#   body (" << call.raw_body.size() / 2 << " bytes): " << raw
                << (raw.size() < call.raw_body.size() ? "..." : "") << "\n";
            return;
        }
        ++counts.calls;
        out << "params " << obj << " " << call.operation;
        for (const FlatValue &v : call.ins)
            if (v.length) out << " " << v.name << "=" << v.text;
        for (const FlatValue &v : call.outs)
            if (v.length && v.direction == 1) out << " " << v.name << "=" << v.text;
        out << "\n";
        for (size_t k = 0; k < call.ins.size(); ++k)
            if (!call.ins[k].length)
                out << "set " << call.ins[k].name << " " << in_texts[i][k] << "\n";
        out << "invoke";
        if (!call.response_expected) out << " oneway";
        if (call.replied && call.reply_status == 1) out << " expect=user";
        if (call.replied && call.reply_status == 2) out << " expect=system";
        if (!call.exception_id.empty()) out << "  # " << call.exception_id;
        out << "\n";
        for (const FlatValue &v : call.outs) {
            auto saved = saves.find({i, v.name});
            if (saved != saves.end()) {
                out << "save " << v.name << " " << saved->second << "\n";
                ++counts.saved;
            }
        }
        for (size_t o = 0; o < rec.objects.size(); ++o) {
            const RecordedObject &ro = rec.objects[o];
            if (ro.origin != Origin::Reply || ro.from_call != i || !used_[o]) continue;
            out << "save " << ro.from_value << " " << object_vars[o] << "\n";
            ++counts.saved;
            bind_line(o);
        }
        if (opt.checks)
            for (const FlatValue &v : call.outs)
                if (v.type != tk_objref && !v.length && saves.count({i, v.name}) == 0)
                    out << "check " << v.name << " " << script_word(v.text) << "\n";
    }

    void write() {
        name_objects();
        used_.assign(rec.objects.size(), false);
        for (const RecordedCall &c : rec.calls) used_[c.object] = true;
        correlate();
        header();
        out << "\n";
        for (size_t o = 0; o < rec.objects.size(); ++o)
            if (used_[o] && rec.objects[o].origin != Origin::Reply) bind_line(o);
        int64_t last = 0;
        int step = 0;
        bool open = false;
        for (size_t i = 0; i < rec.calls.size(); ++i) {
            const RecordedCall &call = rec.calls[i];
            if (call.problem == "forwarded") continue;
            const int64_t pause_ms = last == 0 ? 0 : (call.sent_us - last) / 1000;
            if (!open || pause_ms >= opt.pause_ms) {
                if (open) out << "end step" << step << "\n";
                out << "\n";
                if (opt.think && pause_ms >= opt.pause_ms) out << "think " << pause_ms << "\n";
                out << "begin step" << ++step << "\n";
                open = true;
            }
            call_lines(i);
            last = call.replied ? call.replied_us : call.sent_us;
        }
        if (open) out << "end step" << step << "\n";
    }

    std::vector<bool> used_;
};

}  // namespace

std::string script_word(const std::string &text) {
    bool plain = !text.empty();
    for (char c : text)
        if (std::isspace(static_cast<unsigned char>(c)) || c == '"' || c == '\\' || c == '#')
            plain = false;
    if (plain) return text;
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

WriteCounts write_script(const Recording &rec, const WriteOptions &options, std::ostream &out) {
    Writer w{rec, options, out, {}, {}, {}, {}, {}, {}};
    w.write();
    return w.counts;
}

}  // namespace recorder
