// The values of a captured Request or Reply body, decoded with the
// interface's description into the flat names and value texts that a
// script's parameter list holds: what `print` shows for the same call.
#ifndef ORBELLE_RECORDER_BODY_DECODER_H
#define ORBELLE_RECORDER_BODY_DECODER_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tools/recorder/giop_framer.h"

class PirIntNod;

namespace recorder {

struct FlatValue {
    std::string name;     // "amount.amount", "^statement[0].text", "b^length"
    int32_t type = 0;     // kind of the value (orbelle/kinds.h)
    std::string text;     // the value's text, as the library's lists hold it
    int direction = 0;    // 0 in, 1 out or result, 2 inout
    bool length = false;  // a sequence's length record
};

// What the description says of an operation.
struct OperationInfo {
    bool found = false;
    bool oneway = false;
};

// The descriptions of DIR/idl, each read once: a capture calls the same
// few operations many times.
class Descriptions {
public:
    explicit Descriptions(std::string dir) : dir_(std::move(dir)) {}
    ~Descriptions();
    Descriptions(const Descriptions &) = delete;
    Descriptions &operator=(const Descriptions &) = delete;
    const std::string &dir() const { return dir_; }
    // The interface tree of repoid, owned here; null with why set when its
    // description cannot be read.
    PirIntNod *get(const std::string &repoid, std::string &why);

private:
    std::string dir_;
    std::map<std::string, PirIntNod *> trees_;
    std::map<std::string, std::string> failures_;
};

// Looks the operation up in the description of repoid. False with why set
// when the description cannot be read or lacks the operation.
bool find_operation(Descriptions &d, const std::string &repoid, const std::string &operation,
                    OperationInfo &info, std::string &why);

// Decodes the body of m from offset on: a Request's in and inout values,
// or a Reply's result, out and inout values. False with why set when a
// value cannot be read (the body ends early, a type not decoded here such
// as a union or an any, a sequence longer than the body could hold).
bool decode_body(Descriptions &d, const std::string &repoid, const std::string &operation,
                 const GiopMessage &m, size_t offset, bool request, std::vector<FlatValue> &values,
                 std::string &why);

// Bytes as lower-case hexadecimal, two digits a byte.
std::string hex_of(const std::string &bytes);

// The repository id of a user exception Reply's body (the first string).
bool exception_id(const GiopMessage &m, size_t offset, std::string &id);

// The text of a reference read off the wire, as the library writes
// references: "IOR:" and the hexadecimal of a big-endian encapsulation.
// type_id and the IIOP profile's host, port and key come out too.
struct Reference {
    std::string type_id;
    std::string host;
    uint16_t port = 0;
    std::string key;
    std::string text;
};
class Reader;
bool read_reference(Reader &r, Reference &ref);
// A reference made from an address and a key, with one IIOP 1.0 profile.
std::string reference_text(const std::string &type_id, const std::string &host, uint16_t port,
                           const std::string &key);

}  // namespace recorder

#endif
