// The standard TypeCodes shared by the whole library. Each is a static,
// unowned object (addRef and release do nothing on it), returned as a
// borrowed pointer; null until inittypecodes has run.
#ifndef ORBELLE_STDTYPES_H
#define ORBELLE_STDTYPES_H

#include <cstdint>

#include "data/typecode.h"

// Builds the standard TypeCodes once; later calls change nothing.
void inittypecodes();

TypeCode *tc_null();
TypeCode *tc_void();
TypeCode *tc_short();
TypeCode *tc_long();
TypeCode *tc_longlong();
TypeCode *tc_ushort();
TypeCode *tc_ulong();
TypeCode *tc_ulonglong();
TypeCode *tc_float();
TypeCode *tc_double();
TypeCode *tc_longdouble();
TypeCode *tc_boolean();
TypeCode *tc_octet();
TypeCode *tc_char();
TypeCode *tc_wchar();
TypeCode *tc_string();
TypeCode *tc_wstring();
TypeCode *tc_any();
TypeCode *tc_TypeCode();
TypeCode *tc_Principal();
TypeCode *tc_Object();
TypeCode *tc_SystemException();
// An unbounded sequence of octet: the form of object keys and their like.
TypeCode *tc_sequence_of_octet();

// The standard TypeCode of a kind that has no parameters (0 to 13 and 23 to
// 26), tc_string / tc_wstring for 18 / 27; null for any other kind.
TypeCode *standard_typecode(int32_t kind);

// The constant bodies, for code that builds a local TypeCode over them.
constexpr uint32_t tc_Object_body_length = 52;
constexpr uint32_t tc_SystemException_body_length = 116;
constexpr uint32_t sequence_of_octet_body_length = 12;
extern const unsigned char tc_Object_body[tc_Object_body_length];
extern const unsigned char tc_SystemException_body[tc_SystemException_body_length];
extern const unsigned char sequence_of_octet_body[sequence_of_octet_body_length];

#endif
