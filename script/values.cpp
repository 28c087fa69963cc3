#include "script/values.h"

#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "data/environment.h"
#include "data/stdtypes.h"
#include "data/unaligned.h"
#include "giop/iortext.h"
#include "giop/objref.h"
#include "giop/orb.h"
#include "host/tellcat/tellcat.h"
#include "script/asciify.h"
#include "script/decimal.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace {
// The temporary text area of getdata starts at this size and grows by the
// same step while a string doesn't fit; the trace shows every step.
constexpr size_t text_area_step = 1000;

// The size of a data area, 0 for a type that scripts can't convert.
size_t area_size(int32_t type) {
    switch (type) {
        case tk_short:
        case tk_ushort:
            return 2;
        case tk_long:
        case tk_ulong:
        case tk_float:
        case tk_boolean:
        case tk_enum:
            return 4;
        case tk_double:
            return 8;
        case tk_char:
        case tk_octet:
            return 1;
        case tk_objref:
        case tk_string:
            return sizeof(void *);
        default:
            return 0;
    }
}

// The catalogue's text for an unconvertible type goes to error_text with the
// type number in place of its one "%d". The text comes from outside the
// library, so it is never handed to printf as a format: any other
// conversion stays as it stands.
void unknown_type_text(int32_t type) {
    std::string text = nz(mc_get_msg_identity(0, 8, 5, 1));
    text += nz(mc_get_msg_text(8, 5, 1));
    std::string out;
    bool number_done = false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 1 < text.size()) {
            char next = text[i + 1];
            if (next == '%') {
                out += '%';
                ++i;
                continue;
            }
            if (next == 'd' && !number_done) {
                out += std::to_string(type);
                number_done = true;
                ++i;
                continue;
            }
        }
        out += text[i];
    }
    set_error_text("%s", out.c_str());
}

}  // namespace

void replace_strval(ScriptParm *parm, const char *text, size_t n) {
    if (parm->strval != nullptr) {
        TRACE("getdata:  vufree node->strval " PTR_FMT, ptrv(parm->strval));
        vufree(parm->strval);
    }
    auto *copy = static_cast<char *>(vumalloc(n + 1));
    if (copy != nullptr) {
        std::memcpy(copy, text, n);
        copy[n] = '\0';
    }
    parm->strval = copy;
}

namespace {

// The area itself stays with the caller.
void getdata_objref(ScriptParm *parm, void *area, Environment &env) {
    auto *obj = load_unaligned<objref *>(area);
    TRACE("getdata:  Object stored at " PTR_FMT " object at " PTR_FMT, ptrv(area), ptrv(obj));
    // Without an ORB (a reply read before any bind) the text form is IOR.
    char *text =
        orb_instance != nullptr ? orb_instance->object_to_string(obj, env) : ior_text_of(obj, env);
    if (parm->strval != nullptr) {
        TRACE("getdata:  vufree node->strval " PTR_FMT, ptrv(parm->strval));
        vufree(parm->strval);
    }
    parm->strval = vustrdup(text);
    std::free(text);
    TRACE("getdata:  Object IOR=[%s]", nz(parm->strval));
    parm->ptr = obj;
}

// The TypeCode of each type that scripts can convert, null for the others,
// looked up once: every record of every call asks for one.
TypeCode *const *script_typecodes() {
    static TypeCode *by_type[tk_count];
    static bool filled = false;
    if (!filled) {
        inittypecodes();
        for (int32_t type = 0; type < tk_count; ++type)
            if (area_size(type) != 0) by_type[type] = standard_typecode(type);
        by_type[tk_objref] = tc_Object();
        by_type[tk_enum] = tc_long();
        filled = true;
    }
    return by_type;
}

void report_unknown_type(int32_t type) {
    TRACE("newdataptr:  ERROR, unknown type %d", static_cast<int>(type));
    unknown_type_text(type);
}

// Every area fits in place.
static_assert(sizeof(DataArea) >= sizeof(double) && sizeof(DataArea) >= sizeof(void *),
              "DataArea holds every convertible type");

// Writes the text of the value in area to strval; for an object reference
// ptr takes the reference instead of the area.
void convert_to_text(ScriptParm *parm, void *area, Environment &env) {
    TRACE("getdata:  entering, ptr=" PTR_FMT, ptrv(area));
    // Room for a number's text; a string is copied from its own block.
    char text[plain_text_size];
    static_assert(plain_text_size <= text_area_step, "a number's text fits the first step");
    const char *result = text;
    size_t length = 0;
    text[0] = '\0';
    // Numbers are written at the end of the text area.
    auto number = [&](int64_t value) {
        result = format_decimal(text + sizeof text, value);
        length = static_cast<size_t>(text + sizeof text - result);
    };
    switch (parm->type) {
        case tk_short:
            number(load_unaligned<int16_t>(area));
            break;
        case tk_long:
        case tk_enum:
            number(load_unaligned<int32_t>(area));
            break;
        case tk_ushort:
            number(load_unaligned<uint16_t>(area));
            break;
        case tk_ulong:
            number(load_unaligned<uint32_t>(area));
            break;
        case tk_float:
            format_fixed(text, static_cast<double>(load_unaligned<float>(area)));
            break;
        case tk_double:
            format_fixed(text, load_unaligned<double>(area));
            break;
        case tk_char:
            // As "%c" writes it: a zero byte ends the text at once.
            text[0] = load_unaligned<char>(area);
            text[1] = '\0';
            break;
        case tk_boolean: {
            uint32_t value = load_unaligned<uint32_t>(area);
            TRACE("getdata:  boolean 0x%x", value);
            TRACE("getdata:  boolean %d", value == 1 ? 1 : 0);
            std::strcpy(text, value == 1 ? "1" : "0");
            break;
        }
        case tk_octet: {
            char *notation = asciify(area, 1);
            if (notation != nullptr) std::snprintf(text, sizeof text, "%s", notation);
            std::free(notation);
            break;
        }
        case tk_string: {
            const char *s = load_unaligned<const char *>(area);
            result = s != nullptr ? s : "";
            length = std::strlen(result);
            // The text area grows in steps until the string fits; the steps
            // only matter to the trace, so the string is copied just once.
            if (debug_level != 0)
                for (size_t size = text_area_step; length >= size; size += text_area_step)
                    TRACE("getdata:  REALLOC!!!");
            break;
        }
        case tk_objref:
            getdata_objref(parm, area, env);
            return;
        default:
            break;
    }
    if (result == text && length == 0) length = std::strlen(text);
    replace_strval(parm, result, length);
    TRACE("getdata:  just copied data '%s'", nz(parm->strval));
    TRACE("getdata:  exiting");
}

// Releases the string or reference an area holds, not the area.
void release_held(const ScriptParm *parm, void *area) {
    if (parm->type == tk_objref) {
        auto *obj = load_unaligned<objref *>(area);
        TRACE("deletedataptr:  objref delete [] " PTR_FMT, ptrv(obj));
        // The reference that putdata made for an in record has no other
        // owner; the environment of the call is not disturbed.
        Environment scratch;
        release_objref(obj, scratch);
    } else if (parm->type == tk_string) {
        char *s = load_unaligned<char *>(area);
        if (s != nullptr) {
            TRACE("deletedataptr:  string delete [] " PTR_FMT, ptrv(s));
            std::free(s);
        }
    }
}
}  // namespace

void *newdataptr(const ScriptParm *parm) {
    size_t size = area_size(parm->type);
    if (size == 0) {
        report_unknown_type(parm->type);
        return nullptr;
    }
    // Pointer areas start null so that a record passed over unread can be
    // released without looking at what it never held.
    if (parm->type == tk_string || parm->type == tk_objref) return std::calloc(1, size);
    return std::malloc(size);
}

void *newdataptr(const ScriptParm *parm, DataArea &place) {
    if (area_size(parm->type) == 0) {
        report_unknown_type(parm->type);
        return nullptr;
    }
    place = DataArea{};
    return &place;
}

void putdata(ScriptParm *parm, void *area, Environment &env) {
    const char *text = parm->strval;
    if (text == nullptr) {
        TRACE("putdata:  p->name='%s', p->strval='NULL'", nz(parm->name));
        TRACE("putdata:  WARNING - no string data to convert");
        return;
    }
    TRACE("putdata:  p->name='%s', p->strval='%s'", nz(parm->name), text);
    if (parm->flags == PARM_IN || parm->flags == PARM_INOUT) {
        switch (parm->type) {
            case tk_short:
            case tk_ushort:
                store_unaligned(area, static_cast<uint16_t>(decimal_wrapping(text)));
                break;
            case tk_long:
            case tk_ulong:
            case tk_enum:
                store_unaligned(area, decimal_wrapping(text));
                break;
            case tk_float:
                store_unaligned(area, static_cast<float>(float_reading(text)));
                break;
            case tk_double:
                store_unaligned(area, float_reading(text));
                break;
            case tk_boolean: {
                uint32_t value = std::strcmp(text, "1") == 0 ? 1 : 0;
                TRACE("putdata:  boolean %u", value);
                store_unaligned(area, value);
                break;
            }
            case tk_char:
                store_unaligned(area, static_cast<uint8_t>(text[0]));
                break;
            case tk_octet: {
                unsigned char *bytes = un_asciify(text, nullptr);
                store_unaligned(area, static_cast<uint8_t>(bytes != nullptr ? bytes[0] : 0));
                std::free(bytes);
                parm->datalen = 1;
                break;
            }
            case tk_objref: {
                objref *obj = string_to_object(text, env);
                TRACE("putdata:  objptr=" PTR_FMT, ptrv(obj));
                store_unaligned(area, obj);
                break;
            }
            case tk_string: {
                char *copy = strdup(text);
                if (copy == nullptr) raise_system(env, exid::NO_MEMORY);
                store_unaligned(area, copy);
                break;
            }
            default:
                break;
        }
    }
    parm->valuesize = 0;
    TRACE("putdata:  exiting, valuesize=%d", static_cast<int>(parm->valuesize));
}

void getdata(ScriptParm *parm, void *area, Environment &env) {
    convert_to_text(parm, area, env);
    if (parm->type == tk_objref) std::free(area);
}

void getdata(ScriptParm *parm, DataArea &place, Environment &env) {
    convert_to_text(parm, &place, env);
}

void deletedataptr(ScriptParm *parm) {
    void *area = parm->ptr;
    TRACE("deletedataptr:  p=" PTR_FMT ", ptr=" PTR_FMT, ptrv(parm), ptrv(area));
    if (area != nullptr) {
        release_held(parm, area);
        std::free(area);
    }
    TRACE("deletedataptr:  exit");
}

void deletedataptr(ScriptParm *parm, DataArea &) {
    void *area = parm->ptr;
    TRACE("deletedataptr:  p=" PTR_FMT ", ptr=" PTR_FMT, ptrv(parm), ptrv(area));
    if (area != nullptr) release_held(parm, area);
    TRACE("deletedataptr:  exit");
}

TypeCode *get_typecodeptr(int32_t type) {
    TypeCode *tc = type >= 0 && type < tk_count ? script_typecodes()[type] : nullptr;
    if (tc == nullptr) TRACE("get_typecodeptr:  ERROR, unknown type %d", static_cast<int>(type));
    return tc;
}
