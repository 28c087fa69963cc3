// Stand-in for the host's message catalogue. Each message has an identity,
// "MC_a_b_c: ", and a text; identity and text together are used as a plain
// text, or as a printf format where the message takes arguments.
#include "host/tellcat/tellcat.h"

#include <cstdio>
#include <map>
#include <string>
#include <tuple>

#ifdef _WIN32
#define TELLCAT_EXPORT __declspec(dllexport)
#else
#define TELLCAT_EXPORT __attribute__((visibility("default")))
#endif

namespace {
using Key = std::tuple<int, int, int>;

struct Message {
    int a, b, c;
    const char *text;
};

// Texts with arguments: 8.6.6 takes the repository id and the instance id,
// 8.6.8 a binding alternative, 8.5.1 a type number.
const Message catalogue[] = {
    {8, 6, 1, "could not bind: no binding alternative yielded an object reference"},
    {8, 6, 2, "cannot release: the object reference handle is null"},
    {8, 6, 3, "iiop_get_exception is not implemented"},
    {8, 6, 4, "iiop_make_ior is not implemented"},
    {8, 6, 5, "iiop_timeout is not implemented"},
    {8, 6, 6, "the agent found no object of interface '%s' named '%s'"},
    {8, 6, 7, "check that the server is running and registered with the agent"},
    {8, 6, 8, "unknown binding alternative '%s' is ignored"},
    {8, 5, 1, "parameter type %d cannot be converted to or from script text"},
};

std::map<Key, std::string> &identity_overrides() {
    static std::map<Key, std::string> m;
    return m;
}
std::map<Key, std::string> &text_overrides() {
    static std::map<Key, std::string> m;
    return m;
}
char identity_buffer[64];
}  // namespace

extern "C" {

TELLCAT_EXPORT const char *mc_get_msg_identity(int, int a, int b, int c) {
    auto it = identity_overrides().find(Key{a, b, c});
    if (it != identity_overrides().end()) return it->second.c_str();
    std::snprintf(identity_buffer, sizeof identity_buffer, "MC_%d_%d_%d: ", a, b, c);
    return identity_buffer;
}

TELLCAT_EXPORT const char *mc_get_msg_text(int a, int b, int c) {
    auto it = text_overrides().find(Key{a, b, c});
    if (it != text_overrides().end()) return it->second.c_str();
    for (const Message &m : catalogue)
        if (m.a == a && m.b == b && m.c == c) return m.text;
    return "no such message in the catalogue";
}

TELLCAT_EXPORT void TellcatTestSetIdentity(int a, int b, int c, const char *identity) {
    if (identity)
        identity_overrides()[Key{a, b, c}] = identity;
    else
        identity_overrides().erase(Key{a, b, c});
}

TELLCAT_EXPORT void TellcatTestSetText(int a, int b, int c, const char *text) {
    if (text)
        text_overrides()[Key{a, b, c}] = text;
    else
        text_overrides().erase(Key{a, b, c});
}
}
