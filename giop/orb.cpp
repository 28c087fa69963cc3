#include "giop/orb.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "data/environment.h"
#include "data/objref_codec.h"
#include "data/typecode.h"
#include "giop/endpoint.h"
#include "giop/iortext.h"
#include "platform/socket.h"
#include "trace/trace.h"

ORB *orb_instance = nullptr;

namespace {
// Winsock 1.1.
constexpr uint16_t kSocketVersion = 0x0101;

// Object references inside values go through the transport's own coding.
int encode_ref(TypeCode *, void *obj, CDR &stream, Environment &env) {
    return encode_objref(stream, &obj, env);
}
int decode_ref(TypeCode *, void **obj, CDR &stream, Environment &env) {
    *obj = nullptr;
    return decode_objref(stream, obj, env);
}
void release_ref(void *obj) {
    Environment env;
    release_objref(static_cast<objref *>(obj), env);
}
}  // namespace

objref *ORB::string_to_object(const char *text, Environment &env) {
    return ::string_to_object(text, env);
}

char *ORB::object_to_string(const objref *obj, Environment &env) {
    return use_ior_text != 0 ? ior_text_of(obj, env) : iiop_text_of(obj, env);
}

objref *string_to_object(const char *text, Environment &env) {
    env.clear();
    if (text != nullptr && std::strncmp(text, "iiop:", 5) == 0)
        return parse_iiop_text(text + 5, env);
    if (text != nullptr && std::strncmp(text, "IOR:", 4) == 0) return parse_ior_text(text + 4, env);
    raise_system(env, exid::BAD_PARAM);
    return nullptr;
}

ORB *ORB_init(int *, char **, const char *identifier, Environment &env) {
    env.clear();
    if (orb_instance != nullptr) {
        raise_system(env, exid::INITIALIZE);
        return nullptr;
    }
    int32_t use_ior_text =
        identifier != nullptr && std::strcmp(identifier, "internet") == 0 ? 0 : 1;
    uint16_t granted = 0;
    int code = platform::socket_startup(kSocketVersion, &granted);
    if (code != 0) {
        set_error_text("%s:  winsock error %d", "WSAStartup", code);
        TRACE("%s:  winsock error %d", "WSAStartup", code);
        explain_winsock_error(code);
        raise_system(env, exid::INITIALIZE);
        return nullptr;
    }
    if (granted != kSocketVersion) {
        TRACE("bad winsock version %d.%d", granted >> 8, granted & 0xff);
        raise_system(env, exid::INITIALIZE);
        return nullptr;
    }
    fill_value_table();
    set_objref_codec({encode_ref, decode_ref, release_ref});
    ORB *orb = new (std::nothrow) ORB{use_ior_text};
    if (orb == nullptr) {
        raise_system(env, exid::INITIALIZE);
        return nullptr;
    }
    orb_instance = orb;
    return orb;
}
