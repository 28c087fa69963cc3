#include "giop/iortext.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "data/cdr.h"
#include "data/environment.h"
#include "trace/trace.h"

namespace {

// The fixed buffers of both text forms.
constexpr size_t kTextBufferSize = 512;

bool is_hex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }
bool is_printable(char c) { return c >= 0x20 && c <= 0x7e; }

}  // namespace

int hex_digit_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return 0;
}

objref *parse_ior_text(const char *text, Environment &env) {
    env.clear();
    size_t length = std::strlen(text);
    auto *bytes = static_cast<uint8_t *>(std::malloc(length / 2 + 1));
    if (bytes == nullptr) {
        raise_system(env, exid::NO_MEMORY);
        return nullptr;
    }
    size_t n = 0;
    const char *p = text;
    while (is_hex(p[0]) && is_hex(p[1])) {
        bytes[n++] = static_cast<uint8_t>(hex_digit_value(p[0]) * 16 + hex_digit_value(p[1]));
        p += 2;
    }
    objref *obj = nullptr;
    if (*p != '\0' && !std::isspace(static_cast<unsigned char>(*p))) {
        raise_system(env, exid::BAD_PARAM);
    } else if (n == 0) {
        // No byte-order octet at all: nothing to read a reference from.
        raise_system(env, exid::BAD_PARAM);
    } else {
        CDR in;
        in.open_encapsulation(bytes, static_cast<uint32_t>(n));
        decode_objref(in, &obj, env);
    }
    std::free(bytes);
    return env.has_exception() ? nullptr : obj;
}

objref *parse_iiop_text(const char *text, Environment &env) {
    if (text == nullptr || *text == '\0') return nullptr;
    env.clear();
    if (!std::isdigit(static_cast<unsigned char>(text[0])) || text[1] != '.' ||
        !std::isdigit(static_cast<unsigned char>(text[2])) || text[3] != '/' || text[4] != '/' ||
        text[0] != '1' || text[2] != '0') {
        raise_system(env, exid::DATA_CONVERSION);
        return nullptr;
    }
    const char *host = text + 5;
    const char *colon = std::strchr(host, ':');
    const char *slash = colon != nullptr ? std::strchr(colon + 1, '/') : nullptr;
    if (colon == nullptr || slash == nullptr) {
        raise_system(env, exid::DATA_CONVERSION);
        return nullptr;
    }
    uint16_t port = 0;
    for (const char *p = colon + 1; *p >= '0' && *p <= '9'; ++p)
        port = static_cast<uint16_t>(port * 10 + (*p - '0'));

    const char *key = slash + 1;
    size_t key_length = 0;
    while (is_printable(key[key_length])) ++key_length;

    auto *d = static_cast<objrefdata *>(std::calloc(1, sizeof(objrefdata)));
    char *host_copy = static_cast<char *>(std::malloc(static_cast<size_t>(colon - host) + 1));
    auto *key_bytes = static_cast<uint8_t *>(std::malloc(key_length + 1));
    if (d == nullptr || host_copy == nullptr || key_bytes == nullptr) {
        std::free(d);
        std::free(host_copy);
        std::free(key_bytes);
        raise_system(env, exid::NO_MEMORY);
        return nullptr;
    }
    std::memcpy(host_copy, host, static_cast<size_t>(colon - host));
    host_copy[colon - host] = '\0';
    uint32_t n = 0;
    for (size_t i = 0; i < key_length;) {
        // An escape whose digits would run past the key is taken literally.
        if (key[i] == '\\' && key_length - i >= 3) {
            key_bytes[n++] = static_cast<uint8_t>(hex_digit_value(key[i + 1]) * 16 +
                                                  hex_digit_value(key[i + 2]));
            i += 3;
        } else {
            key_bytes[n++] = static_cast<uint8_t>(key[i++]);
        }
    }
    d->profile = {1, 0, host_copy, port, {static_cast<uint32_t>(key_length), n, key_bytes}};
    objref *obj = new_objref(d);
    if (obj == nullptr) {
        destroy_objrefdata(d);
        raise_system(env, exid::NO_MEMORY);
    }
    return obj;
}

size_t escape_key(const octet_seq &key, char *out, size_t used, size_t capacity) {
    static const char digits[] = "0123456789abcdef";
    for (uint32_t i = 0; i < key.length; ++i) {
        uint8_t b = key.buffer[i];
        char piece[3];
        size_t width = 1;
        if (is_printable(static_cast<char>(b)) && b != '\\') {
            piece[0] = static_cast<char>(b);
        } else {
            piece[0] = '\\';
            piece[1] = digits[b >> 4];
            piece[2] = digits[b & 15];
            width = 3;
        }
        if (used + width < capacity) std::memcpy(out + used, piece, width);
        used += width;
    }
    if (used < capacity)
        out[used] = '\0';
    else if (capacity > 0)
        out[capacity - 1] = '\0';
    return used;
}

char *ior_text_of(const objref *obj, Environment &env) {
    env.clear();
    alignas(16) unsigned char array[kTextBufferSize] = {};
    CDR stream;
    stream.attach_buffer(array, sizeof array);
    stream.put_byte(1);
    if (!encode_objref(stream, &obj, env)) return nullptr;
    static const char digits[] = "0123456789abcdef";
    uint32_t n = stream.used();
    char *text = static_cast<char *>(std::malloc(2 * static_cast<size_t>(n) + 5 + 1));
    if (text == nullptr) {
        raise_system(env, exid::NO_MEMORY);
        return nullptr;
    }
    std::memcpy(text, "IOR:", 4);
    for (uint32_t i = 0; i < n; ++i) {
        text[4 + 2 * i] = digits[stream.base[i] >> 4];
        text[5 + 2 * i] = digits[stream.base[i] & 15];
    }
    text[4 + 2 * static_cast<size_t>(n)] = '\0';
    return text;
}

char *iiop_text_of(const objref *obj, Environment &env) {
    env.clear();
    if (obj == nullptr || obj->data == nullptr) return strdup("iiop:");
    const iiop_profile &p = obj->data->profile;
    char text[kTextBufferSize];
    // Always 1.0, like the IOR form: the text names host, port and key only.
    int head =
        std::snprintf(text, sizeof text, "%s%c.%c//%s:%d/", "iiop:", '1', '0', nz(p.host), p.port);
    if (head < 0 || static_cast<size_t>(head) >= sizeof text ||
        escape_key(p.object_key, text, static_cast<size_t>(head), sizeof text) >= sizeof text) {
        raise_system(env, exid::IMP_LIMIT);
        return nullptr;
    }
    char *copy = strdup(text);
    if (copy == nullptr) raise_system(env, exid::NO_MEMORY);
    return copy;
}
