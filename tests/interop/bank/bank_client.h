// A host for the interop tests: binds objects of the demo bank and runs calls
// on them through the library's door, as a script host would.
#ifndef ORBELLE_TESTS_INTEROP_BANK_CLIENT_H
#define ORBELLE_TESTS_INTEROP_BANK_CLIENT_H

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "host/kit/hostkit.h"

namespace bank {

constexpr const char *kBankId = "IDL:Banking/Bank:1.0";
constexpr const char *kDiagnosticsId = "IDL:Banking/Diagnostics:1.0";
constexpr const char *kAccountId = "IDL:Banking/Account:1.0";

// Reply waits of ordinary calls: long enough for a loaded machine, short
// enough that a lost reply fails the test quickly.
constexpr int32_t kCallTimeoutMs = 5000;

// A primitive script type echoed by the demo servers' echo_ operations: the
// texts sent in a and c and those read back, at the edges of each type's
// range, and texts whose read-back form differs from what was sent (numbers
// in the library's print format, bytes in the backquote notation).
struct PrimitiveEcho {
    const char *construct;  // the IDL type, for messages
    const char *operation;
    const char *a_in, *a_out, *c_in, *c_out;
};
extern const PrimitiveEcho kPrimitiveEchoes[10];

// What one operation on the door reported.
struct Outcome {
    int32_t result = -1;
    int32_t status = 0;
    int32_t exception_index = 0;
    std::string text;          // status_text
    std::string connect_host;  // connection fields of invoke
    int32_t connect_port = 0;
};

class Client {
public:
    // Works in the current directory, where it links idl/ to idl_dir: the
    // demo's descriptions when null.
    explicit Client(const char *idl_dir = nullptr);
    // Releases the handles still bound.
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    hostkit::Host &host() { return host_; }

    // iiop_bind; the handle, or null with the outcome in *outcome.
    void *bind(const std::string &repoid, const std::string &instance, const std::string &modus,
               const char *ior = nullptr, std::string *bound_modus = nullptr,
               Outcome *outcome = nullptr);
    // Binds with the modus "IOR" and the reference text.
    void *bind_ior(const std::string &repoid, const std::string &ior) {
        return bind(repoid, "", "IOR", ior.c_str());
    }
    int32_t release(void *objref);
    // Calls operation, which takes no arguments, on objref; its result's
    // value text, or "(failed: " and the status text ")".
    std::string result(void *objref, const std::string &repoid, const std::string &operation);
    // Takes over a handle that a reply made (a reference result), so that
    // it is released with the others.
    void adopt(void *objref) { handles_.push_back(objref); }

private:
    hostkit::Host host_;
    std::vector<void *> handles_;
};

// One operation of one bound object: its parameter list and request block.
class Call {
public:
    // lengths: the script's sequence lengths, "NAME^length" to a number.
    Call(Client &client, void *objref, const std::string &repoid, const std::string &operation,
         const std::map<std::string, std::string> &lengths = {});
    ~Call();
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;

    // Sets a value text; a name the list lacks fails the test.
    Call &set(const std::string &name, const std::string &text);
    // The value text of name: "(no value)" or "(no record)" when there is none.
    std::string get(const std::string &name) const;
    std::vector<std::string> names() const { return hostkit::names(req_.parms); }
    iiop_req &req() { return req_; }

    // iiop_invoke with flags IIOP_ONEWAY or IIOP_TWOWAY.
    Outcome invoke(int32_t flags = IIOP_TWOWAY, int32_t timeout_ms = kCallTimeoutMs);

private:
    Client &client_;
    std::string operation_;
    std::string repoid_;
    iiop_target target_{};
    iiop_req req_{};
    hostkit::Plist plist_;
};

}  // namespace bank

#endif
