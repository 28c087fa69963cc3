#include "giop/objref.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "data/cdr.h"
#include "data/environment.h"
#include "data/unaligned.h"
#include "trace/trace.h"

namespace {

// TAG_INTERNET_IOP and TAG_MULTIPLE_COMPONENTS.
constexpr uint32_t kTagInternetIop = 0;
constexpr uint32_t kTagMultipleComponents = 1;
// Profiles of IIOP 1.0 up to this minor version are read: 1.1 and 1.2 differ
// from 1.0 only by the tagged components behind the key, which we skip.
// Newer ones may change the layout and are refused.
constexpr uint8_t kNewestIiopMinor = 2;

// Reads a CDR string into a new NUL-terminated block. Its length is checked
// against the bytes present before anything is allocated.
int get_string(CDR &in, char **out) {
    *out = get_counted_text(in);
    return *out != nullptr;
}

int get_octets(CDR &in, octet_seq *out) {
    unsigned char *at;
    uint32_t length = 0;
    if (!in.get_counted(&at, &length)) return 0;
    auto *bytes = static_cast<uint8_t *>(std::malloc(length != 0 ? length : 1));
    if (bytes == nullptr) return 0;
    std::memcpy(bytes, at, length);
    *out = {length, length, bytes};
    return 1;
}

void put_string(CDR &out, const char *text) {
    if (text == nullptr) text = "";
    uint32_t length = static_cast<uint32_t>(std::strlen(text)) + 1;
    out.put_long(length);
    for (uint32_t i = 0; i < length; ++i) out.put_byte(static_cast<uint8_t>(text[i]));
}

}  // namespace

const iiop_profile &profile_in_force(const objrefdata &data) {
    return data.forward_profile != nullptr ? *data.forward_profile : data.profile;
}

void clear_profile(iiop_profile &profile) {
    std::free(profile.host);
    std::free(profile.object_key.buffer);
    profile.host = nullptr;
    profile.object_key = {0, 0, nullptr};
}

void destroy_objrefdata(objrefdata *data) {
    if (data == nullptr) return;
    std::free(data->type_id);
    if (data->forward_profile != nullptr) {
        clear_profile(*data->forward_profile);
        std::free(data->forward_profile);
    }
    clear_profile(data->profile);
    std::free(data);
}

objref *new_objref(objrefdata *data) {
    auto *obj = static_cast<objref *>(std::malloc(sizeof(objref)));
    if (obj == nullptr) return nullptr;
    obj->data = data;
    obj->count = 1;
    return obj;
}

void release_objref(objref *obj, Environment &env) {
    env.clear();
    if (obj == nullptr) return;
    if (obj->count > 1) {
        --obj->count;
        return;
    }
    destroy_objrefdata(obj->data);
    std::free(obj);
}

int encode_objref(CDR &out, const void *value, Environment &env) {
    env.clear();
    objref *obj = load_unaligned<objref *>(value);
    if (obj == nullptr || obj->data == nullptr) {
        out.put_long(1);
        out.put_byte(0);
        out.put_long(0);
        return 1;
    }
    const objrefdata &d = *obj->data;
    put_string(out, d.type_id);
    out.put_long(1);
    out.put_long(kTagInternetIop);
    // The encapsulation's length, from the sizes of host and key; it is what
    // the writes below produce, since the encapsulation starts behind a long.
    uint32_t h = d.profile.host != nullptr ? static_cast<uint32_t>(std::strlen(d.profile.host)) : 0;
    uint32_t length = d.profile.object_key.length + h + 15;
    if (h % 2 == 0) length += 1;
    if (h & 2) length += 2;
    out.put_long(length);
    out.put_byte(1);
    // Written as 1.0 whatever version was read: the layout above has no
    // components, and every server takes a 1.0 profile for its own objects.
    out.put_byte(1);
    out.put_byte(0);
    put_string(out, d.profile.host);
    out.put_short(d.profile.port);
    out.put_long(d.profile.object_key.length);
    for (uint32_t i = 0; i < d.profile.object_key.length; ++i)
        out.put_byte(d.profile.object_key.buffer[i]);
    return 1;
}

namespace {

// Reads the tagged components that follow the key in an IIOP 1.1 or 1.2
// profile and drops them: we use none of them. Each one must lie inside the
// profile; a count or length that runs past it fails the profile.
int skip_components(CDR &encap) {
    uint32_t count = 0;
    if (!encap.get_long(&count)) return 0;
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t tag = 0;
        if (!encap.get_long(&tag) || !encap.skip_counted()) return 0;
    }
    return 1;
}

enum class ProfileRead { kAccepted, kRefused, kFailed };

// Reads the body of one TAG_INTERNET_IOP profile into a new record at *out,
// and its minor version into *minor_read. kRefused: a version we do not read.
// kFailed: a profile of a version we read that is badly encoded. Nothing is
// left allocated unless kAccepted.
ProfileRead read_profile(const unsigned char *body, uint32_t length, objrefdata **out,
                         uint8_t *minor_read, Environment &env) {
    CDR encap;
    encap.open_encapsulation(body, length);
    auto *d = static_cast<objrefdata *>(std::calloc(1, sizeof(objrefdata)));
    if (d == nullptr) {
        raise_system(env, exid::NO_MEMORY);
        return ProfileRead::kFailed;
    }
    *minor_read = 0;
    TRACE("decoder:  new objrefdata at " PTR_FMT, ptrv(d));
    uint8_t major = 0, minor = 0;
    if (!encap.get_byte(&major) || !encap.get_byte(&minor) || major != 1 ||
        minor > kNewestIiopMinor) {
        TRACE("detected new v%d.%d IIOP profile", major, minor);
        TRACE("decoder:  delete objdata " PTR_FMT, ptrv(d));
        destroy_objrefdata(d);
        return ProfileRead::kRefused;
    }
    TRACE("iiop_version %d.%d", major, minor);
    *minor_read = minor;
    d->profile.major = major;
    d->profile.minor = minor;
    ProfileRead result = ProfileRead::kFailed;
    if (!get_string(encap, &d->profile.host) || !encap.get_short(&d->profile.port)) {
        TRACE("error decoding IIOP host/port");
    } else {
        TRACE("decoder:  host '%s', port %d", d->profile.host, d->profile.port);
        TRACE("decoder:  about to get object_key");
        if (!get_octets(encap, &d->profile.object_key)) {
            TRACE("extra data at end of IIOP profile data");
        } else if (minor > 0 && !skip_components(encap)) {
            TRACE("decoder:  encountered badly encoded objref!");
        } else if (encap.space_left != 0) {
            TRACE("extra data at end of IIOP profile data");
        } else {
            result = ProfileRead::kAccepted;
        }
    }
    if (result == ProfileRead::kAccepted) {
        *out = d;
    } else {
        TRACE("decoder:  delete objdata " PTR_FMT, ptrv(d));
        destroy_objrefdata(d);
    }
    return result;
}

void discard(objrefdata *d) {
    if (d == nullptr) return;
    TRACE("decoder:  delete objdata " PTR_FMT, ptrv(d));
    destroy_objrefdata(d);
}

}  // namespace

int decode_objref(CDR &in, void *value, Environment &env) {
    env.clear();
    char *type_hint = nullptr;
    uint32_t count = 0;
    if (!get_string(in, &type_hint) || !in.get_long(&count)) {
        std::free(type_hint);
        return raise_system(env, exid::MARSHAL);
    }
    if (count == 0) {
        store_unaligned<objref *>(value, nullptr);
        TRACE("decoder:  delete type_hint " PTR_FMT, ptrv(type_hint));
        std::free(type_hint);
        return 1;
    }
    TRACE("decoder:  profiles=%u", count);
    // The first 1.0 profile wins; without one, the first 1.1 or 1.2 profile.
    objrefdata *accepted = nullptr;
    objrefdata *newer = nullptr;
    bool failed = false;
    for (uint32_t i = 0; i < count && !failed; ++i) {
        uint32_t tag = 0;
        if (!in.get_long(&tag)) break;
        if (tag != kTagInternetIop) {
            if (tag == kTagMultipleComponents) {
                TRACE("decoder:  TAG_MULTIPLE_COMPONENTS");
            } else {
                TRACE("decoder:  *** unidentified tag");
            }
            if (!in.skip_counted()) break;
            continue;
        }
        TRACE("decoder:  TAG_INTERNET_IOP");
        if (accepted != nullptr) {
            if (!in.skip_counted()) break;
            continue;
        }
        unsigned char *body;
        uint32_t length = 0;
        if (!in.get_counted(&body, &length) || length == 0) {
            TRACE("decoder:  encountered badly encoded objref!");
            raise_system(env, exid::MARSHAL);
            failed = true;
            break;
        }
        objrefdata *d = nullptr;
        uint8_t minor = 0;
        ProfileRead read = read_profile(body, length, &d, &minor, env);
        // A badly encoded 1.0 profile fails the reference. A badly encoded
        // newer one counts as absent, like a version we do not read, so that
        // a reference offering 1.0 reads the same whatever else it carries.
        if (read == ProfileRead::kFailed && minor == 0) {
            if (!env.has_exception()) raise_system(env, exid::MARSHAL);
            failed = true;
        }
        if (read != ProfileRead::kAccepted) continue;
        if (d->profile.minor == 0) {
            accepted = d;
        } else if (newer == nullptr) {
            newer = d;
        } else {
            discard(d);
        }
    }
    if (accepted == nullptr) std::swap(accepted, newer);
    discard(newer);
    if (!failed && accepted != nullptr) {
        accepted->type_id = type_hint;
        objref *obj = new_objref(accepted);
        if (obj == nullptr) {
            destroy_objrefdata(accepted);
            return raise_system(env, exid::NO_MEMORY);
        }
        store_unaligned<objref *>(value, obj);
        TRACE("decoder:  new object at " PTR_FMT, ptrv(obj));
        return 1;
    }
    destroy_objrefdata(accepted);
    std::free(type_hint);
    if (!failed) {
        TRACE("no IIOP v%d.%d (or earlier) profile in IOR!", 1, kNewestIiopMinor);
        raise_system(env, exid::MARSHAL);
    }
    return 0;
}
