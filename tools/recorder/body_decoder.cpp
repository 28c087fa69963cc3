#include "tools/recorder/body_decoder.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "orbelle/kinds.h"
#include "repository/flatname.h"
#include "repository/pirapi.h"
#include "repository/pirinstance.h"
#include "script/asciify.h"
#include "tools/recorder/giop_headers.h"
#include "tools/recorder/wire_reader.h"

namespace recorder {
namespace {

// Ends a walk: the value cannot be read.
struct Stop {
    std::string why;
};

// Appends the big-endian CDR of a string or a counted octet sequence to an
// encapsulation being written, aligned from its first byte.
void put_ulong(std::string &e, uint32_t v) {
    e.append((4 - e.size() % 4) % 4, '\0');
    for (int i = 3; i >= 0; --i) e += static_cast<char>(v >> (8 * i));
}
void put_octets(std::string &e, const std::string &bytes) {
    put_ulong(e, static_cast<uint32_t>(bytes.size()));
    e += bytes;
}

std::string notation(const std::string &bytes) {
    std::unique_ptr<char, decltype(&std::free)> text(
        asciify(bytes.data(), static_cast<long>(bytes.size())), &std::free);
    if (!text) throw std::bad_alloc();
    return text.get();
}

std::string fixed(double value) {
    char text[400];
    std::snprintf(text, sizeof text, "%f", value);
    return text;
}

// Walks one result or parameter's type over the body, as the library's
// parameter list names it, reading each position's value.
class Walk : public PirPrimitiveCallback {
public:
    Walk(Reader &r, std::vector<FlatValue> &out, const std::string &operation)
        : r_(r), out_(out), operation_(operation) {}
    int direction = 0;

    void NewPrimitive(PirPrimitive &pri) override {
        // Elements of a sequence that is itself the result take its base.
        if (pri.supertype == tk_sequence && flat_starts_with_index(pri.stfNam))
            pri.stfNam = seq_base_ + pri.stfNam;
        if (pri.type == tk_void) return;
        FlatValue v;
        if (pri.stfNam.empty())
            v.name = flat_result_name(operation_);
        else if (pri.own->kind == pirResKind && pri.supertype != tk_sequence)
            v.name = flat_result_name(operation_) + pri.stfNam;
        else
            v.name = pri.stfNam;
        v.type = pri.type;
        v.direction = direction;
        v.text = read_value(pri.type, v.name);
        out_.push_back(std::move(v));
    }

    uint32_t NewSequenceLength(PirPrimitive &pri) override {
        if (pri.stfNam.empty()) {
            seq_base_ = flat_result_name(operation_);
            pri.stlNam = seq_base_;
            pri.stfNam = seq_base_;
        } else {
            seq_base_ = pri.stfNam;
        }
        const uint32_t n = r_.ulong();
        if (!r_.ok()) throw Stop{"the body ends before the length of " + seq_base_};
        // Every element takes a byte at least in any type a description
        // can hold but an empty struct; the count cannot pass the body.
        if (n > r_.left())
            throw Stop{"length " + std::to_string(n) + " of " + seq_base_ +
                       " is more than the body holds"};
        FlatValue v;
        v.name = flat_length_name(seq_base_);
        v.type = tk_long;
        v.text = std::to_string(n);
        v.direction = direction;
        v.length = true;
        out_.push_back(std::move(v));
        return n;
    }

    uint32_t NewUnionDiscriminator(PirPrimitive &pri) override {
        throw Stop{"union " + pri.stfNam + ": unions are not decoded"};
    }

private:
    std::string read_value(int32_t type, const std::string &name) {
        std::string text;
        switch (type) {
            case tk_short:
                text = std::to_string(static_cast<int16_t>(r_.ushort()));
                break;
            case tk_long:
            case tk_enum:
                text = std::to_string(static_cast<int32_t>(r_.ulong()));
                break;
            case tk_ushort:
                text = std::to_string(r_.ushort());
                break;
            case tk_ulong:
                text = std::to_string(r_.ulong());
                break;
            case tk_float: {
                uint32_t bits = r_.ulong();
                float f;
                std::memcpy(&f, &bits, sizeof f);
                text = fixed(static_cast<double>(f));
                break;
            }
            case tk_double: {
                uint64_t bits = r_.ulonglong();
                double d;
                std::memcpy(&d, &bits, sizeof d);
                text = fixed(d);
                break;
            }
            case tk_boolean:
                text = r_.octet() == 1 ? "1" : "0";
                break;
            case tk_char: {
                auto c = static_cast<char>(r_.octet());
                if (c != '\0') text.assign(1, c);
                break;
            }
            case tk_octet:
                text = notation(std::string(1, static_cast<char>(r_.octet())));
                break;
            case tk_string:
                text = notation(r_.string());
                break;
            case tk_objref: {
                Reference ref;
                if (!read_reference(r_, ref)) throw Stop{"reference " + name + " unreadable"};
                text = ref.text;
                break;
            }
            default:
                throw Stop{name + ": values of kind " + std::to_string(type) + " are not decoded"};
        }
        if (!r_.ok()) throw Stop{"the body ends inside " + name};
        return text;
    }

    Reader &r_;
    std::vector<FlatValue> &out_;
    const std::string &operation_;
    std::string seq_base_;
};

}  // namespace

Descriptions::~Descriptions() {
    for (auto &tree : trees_) PirFreeInterface(tree.second);
}

PirIntNod *Descriptions::get(const std::string &repoid, std::string &why) {
    auto found = trees_.find(repoid);
    if (found != trees_.end()) return found->second;
    auto failed = failures_.find(repoid);
    if (failed != failures_.end()) {
        why = failed->second;
        return nullptr;
    }
    try {
        PirIntNod *tree = PirGetInterface(dir_.c_str(), repoid.c_str());
        trees_[repoid] = tree;
        return tree;
    } catch (const PirException &e) {
        why = std::string(e.msg) + " (" + repoid + ")";
        failures_[repoid] = why;
        return nullptr;
    }
}

bool find_operation(Descriptions &d, const std::string &repoid, const std::string &operation,
                    OperationInfo &info, std::string &why) {
    PirIntNod *ifc = d.get(repoid, why);
    if (ifc == nullptr) return false;
    try {
        PirOprNod *op = PirGetOperation(ifc, operation.c_str());
        info.found = true;
        info.oneway = op->oprMod == 1;
        return true;
    } catch (const PirException &e) {
        why = std::string(e.msg) + " (" + repoid + " " + operation + ")";
        return false;
    }
}

bool decode_body(Descriptions &d, const std::string &repoid, const std::string &operation,
                 const GiopMessage &m, size_t offset, bool request, std::vector<FlatValue> &values,
                 std::string &why) {
    PirIntNod *ifc = d.get(repoid, why);
    if (ifc == nullptr) return false;
    Reader r(m.bytes, offset, m.little);
    Walk walk(r, values, operation);
    try {
        PirOprNod *op = PirGetOperation(ifc, operation.c_str());
        if (!request) {
            PirTypNod *result = PirGetResultType(PirGetResult(op));
            walk.direction = 1;
            if (result != nullptr) PirFreeInstance(PirCreateInstance(result, &walk));
        }
        for (PirParNod *par = PirGetFirstParameter(op); par != nullptr;
             par = PirGetNextParameter(par)) {
            const bool wanted = request ? par->parDir != 1 : par->parDir != 0;
            if (!wanted) continue;
            walk.direction = par->parDir;
            PirTypNod *type = PirGetParameterType(par);
            if (type != nullptr) PirFreeInstance(PirCreateInstance(type, &walk));
        }
    } catch (const PirException &e) {
        why = e.msg;
        return false;
    } catch (const Stop &stop) {
        why = stop.why;
        return false;
    } catch (const std::bad_alloc &) {
        why = "out of memory";
        return false;
    }
    return true;
}

std::string hex_of(const std::string &bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (unsigned char c : bytes) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

bool exception_id(const GiopMessage &m, size_t offset, std::string &id) {
    Reader r(m.bytes, offset, m.little);
    id = r.string();
    return r.ok();
}

bool read_reference(Reader &r, Reference &ref) {
    ref.type_id = r.string();
    const uint32_t count = r.ulong();
    if (!r.ok() || r.left() / 8 < count) return false;
    std::string e(1, '\0');
    put_octets(e, ref.type_id + '\0');
    put_ulong(e, count);
    bool have_iiop = false;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t tag = r.ulong();
        std::string body = r.octets();
        if (!r.ok()) return false;
        put_ulong(e, tag);
        put_octets(e, body);
        if (tag == 0 && !have_iiop && !body.empty()) {
            Reader p(body, 1, (body[0] & 1) != 0);
            p.octet();
            p.octet();
            ref.host = p.string();
            ref.port = p.ushort();
            ref.key = p.octets();
            have_iiop = p.ok();
        }
    }
    ref.text = "IOR:" + hex_of(e);
    return true;
}

std::string reference_text(const std::string &type_id, const std::string &host, uint16_t port,
                           const std::string &key) {
    std::string profile(1, '\0');
    profile += '\1';
    profile += '\0';
    put_octets(profile, host + '\0');
    profile.append(profile.size() % 2, '\0');
    profile += static_cast<char>(port >> 8);
    profile += static_cast<char>(port);
    put_octets(profile, key);
    std::string e(1, '\0');
    put_octets(e, type_id + '\0');
    put_ulong(e, 1);
    put_ulong(e, 0);
    put_octets(e, profile);
    return "IOR:" + hex_of(e);
}

}  // namespace recorder
