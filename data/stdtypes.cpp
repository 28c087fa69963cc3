#include "data/stdtypes.h"

// Little-endian word.
#define LE(w)                                                                            \
    static_cast<unsigned char>((w)&0xFF), static_cast<unsigned char>(((w) >> 8) & 0xFF), \
        static_cast<unsigned char>(((w) >> 16) & 0xFF),                                  \
        static_cast<unsigned char>(((w) >> 24) & 0xFF)
// The empty string: length 1, then its terminator padded to a word.
#define EMPTY LE(1), LE(0)

alignas(4) const unsigned char tc_Object_body[tc_Object_body_length] = {
    0,   0,   0,   0,   // big-endian
    0,   0,   0,   29,  // id length
    'I', 'D', 'L', ':', 'o', 'm', 'g', '.', 'o', 'r', 'g', '/', 'C', 'O', 'R', 'B',
    'A', '/', 'O', 'b', 'j', 'e', 'c', 't', ':', '2', '.', '0', 0,   0,   0,   0,  // padding
    0,   0,   0,   7,                                                              // name length
    'O', 'b', 'j', 'e', 'c', 't', 0,
    0,  // padding
};

alignas(4) const unsigned char tc_SystemException_body[tc_SystemException_body_length] = {
    LE(1),                  // little-endian
    EMPTY, EMPTY,           // id, name
    LE(3),                  // members
    EMPTY, LE(18), LE(0),   // id: unbounded string
    EMPTY, LE(5),           // minor: unsigned long
    EMPTY, LE(17), LE(48),  // completed: enum with a 48-byte body
    LE(1),                  //   little-endian
    EMPTY, EMPTY,           //   id, name
    LE(3),                  //   enumerators
    EMPTY, EMPTY,  EMPTY,   //   their names
};

alignas(4) const unsigned char sequence_of_octet_body[sequence_of_octet_body_length] = {
    LE(1), LE(10), LE(0)};  // little-endian, element tk_octet, no bound

#undef EMPTY
#undef LE

namespace {
TypeCode *standard[tk_count];
TypeCode *object_tc;
TypeCode *system_exception_tc;
TypeCode *octet_sequence_tc;

TypeCode *simple(int32_t kind) { return standard[kind]; }
}  // namespace

void inittypecodes() {
    static bool built = false;
    if (built) return;
    for (int32_t k = 0; k < tk_count; ++k) standard[k] = shared_typecode(k);
    static TypeCode object(tk_objref, tc_Object_body_length, tc_Object_body, 0);
    static TypeCode system_exception(tk_struct, tc_SystemException_body_length,
                                     tc_SystemException_body, 0);
    static TypeCode octets(tk_sequence, sequence_of_octet_body_length, sequence_of_octet_body, 0);
    object_tc = &object;
    system_exception_tc = &system_exception;
    octet_sequence_tc = &octets;
    built = true;
}

TypeCode *standard_typecode(int32_t kind) {
    if (kind < 0 || kind >= tk_count) return nullptr;
    return standard[kind];
}

TypeCode *tc_null() { return simple(tk_null); }
TypeCode *tc_void() { return simple(tk_void); }
TypeCode *tc_short() { return simple(tk_short); }
TypeCode *tc_long() { return simple(tk_long); }
TypeCode *tc_longlong() { return simple(tk_longlong); }
TypeCode *tc_ushort() { return simple(tk_ushort); }
TypeCode *tc_ulong() { return simple(tk_ulong); }
TypeCode *tc_ulonglong() { return simple(tk_ulonglong); }
TypeCode *tc_float() { return simple(tk_float); }
TypeCode *tc_double() { return simple(tk_double); }
TypeCode *tc_longdouble() { return simple(tk_longdouble); }
TypeCode *tc_boolean() { return simple(tk_boolean); }
TypeCode *tc_octet() { return simple(tk_octet); }
TypeCode *tc_char() { return simple(tk_char); }
TypeCode *tc_wchar() { return simple(tk_wchar); }
TypeCode *tc_string() { return simple(tk_string); }
TypeCode *tc_wstring() { return simple(tk_wstring); }
TypeCode *tc_any() { return simple(tk_any); }
TypeCode *tc_TypeCode() { return simple(tk_TypeCode); }
TypeCode *tc_Principal() { return simple(tk_Principal); }
TypeCode *tc_Object() { return object_tc; }
TypeCode *tc_SystemException() { return system_exception_tc; }
TypeCode *tc_sequence_of_octet() { return octet_sequence_tc; }
