// TypeCode kinds, numbered as CORBA numbers TCKind, for every part of the
// library: the interface descriptions, the value code and the wire. (C++ only.)
#ifndef ORBELLE_KINDS_H
#define ORBELLE_KINDS_H

#include <cstdint>

// The TCKind numbers: the kinds of values this library carries.
enum : int32_t {
    tk_null = 0,
    tk_void = 1,
    tk_short = 2,
    tk_long = 3,
    tk_ushort = 4,
    tk_ulong = 5,
    tk_float = 6,
    tk_double = 7,
    tk_boolean = 8,
    tk_char = 9,
    tk_octet = 10,
    tk_any = 11,
    tk_TypeCode = 12,
    tk_Principal = 13,
    tk_objref = 14,
    tk_struct = 15,
    tk_union = 16,
    tk_enum = 17,
    tk_string = 18,
    tk_sequence = 19,
    tk_array = 20,
    tk_alias = 21,
    tk_except = 22,
    tk_longlong = 23,
    tk_ulonglong = 24,
    tk_longdouble = 25,
    tk_wchar = 26,
    tk_wstring = 27,
    // Described in interface descriptions, never carried.
    tk_fixed = 28,
};
// One past the last kind carried; kinds from here on are unknown on the wire.
constexpr int32_t tk_count = 28;

#endif
