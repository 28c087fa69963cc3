// Repository ids of the standard exceptions. A raise passes one of these
// texts; a server may send any of them, or others, in a Reply.
#ifndef ORBELLE_EXCEPTION_IDS_H
#define ORBELLE_EXCEPTION_IDS_H

namespace exid {
inline constexpr char Bounds[] = "IDL:omg.org/CORBA/Bounds:1.0";
inline constexpr char BadKind[] = "IDL:omg.org/CORBA/BadKind:1.0";
inline constexpr char UNKNOWN[] = "IDL:omg.org/CORBA/UNKNOWN:1.0";
inline constexpr char BAD_PARAM[] = "IDL:omg.org/CORBA/BAD_PARAM:1.0";
inline constexpr char NO_MEMORY[] = "IDL:omg.org/CORBA/NO_MEMORY:1.0";
inline constexpr char IMP_LIMIT[] = "IDL:omg.org/CORBA/IMP_LIMIT:1.0";
inline constexpr char COMM_FAILURE[] = "IDL:omg.org/CORBA/COMM_FAILURE:1.0";
inline constexpr char INV_OBJREF[] = "IDL:omg.org/CORBA/INV_OBJREF:1.0";
inline constexpr char OBJECT_NOT_EXIST[] = "IDL:omg.org/CORBA/OBJECT_NOT_EXIST:1.0";
inline constexpr char NO_PERMISSION[] = "IDL:omg.org/CORBA/NO_PERMISSION:1.0";
inline constexpr char INTERNAL[] = "IDL:omg.org/CORBA/INTERNAL:1.0";
inline constexpr char MARSHAL[] = "IDL:omg.org/CORBA/MARSHAL:1.0";
inline constexpr char INITIALIZE[] = "IDL:omg.org/CORBA/INITIALIZE:1.0";
inline constexpr char NO_IMPLEMENT[] = "IDL:omg.org/CORBA/NO_IMPLEMENT:1.0";
inline constexpr char BAD_TYPECODE[] = "IDL:omg.org/CORBA/BAD_TYPECODE:1.0";
inline constexpr char BAD_OPERATION[] = "IDL:omg.org/CORBA/BAD_OPERATION:1.0";
inline constexpr char NO_RESOURCES[] = "IDL:omg.org/CORBA/NO_RESOURCES:1.0";
inline constexpr char NO_RESPONSE[] = "IDL:omg.org/CORBA/NO_RESPONSE:1.0";
inline constexpr char PERSIST_STORE[] = "IDL:omg.org/CORBA/PERSIST_STORE:1.0";
inline constexpr char BAD_INV_ORDER[] = "IDL:omg.org/CORBA/BAD_INV_ORDER:1.0";
inline constexpr char TRANSIENT[] = "IDL:omg.org/CORBA/TRANSIENT:1.0";
inline constexpr char FREE_MEM[] = "IDL:omg.org/CORBA/FREE_MEM:1.0";
inline constexpr char INV_IDENT[] = "IDL:omg.org/CORBA/INV_IDENT:1.0";
inline constexpr char INV_FLAG[] = "IDL:omg.org/CORBA/INV_FLAG:1.0";
inline constexpr char INTF_REPOS[] = "IDL:omg.org/CORBA/INTF_REPOS:1.0";
inline constexpr char BAD_CONTEXT[] = "IDL:omg.org/CORBA/BAD_CONTEXT:1.0";
inline constexpr char OBJ_ADAPTER[] = "IDL:omg.org/CORBA/OBJ_ADAPTER:1.0";
inline constexpr char DATA_CONVERSION[] = "IDL:omg.org/CORBA/DATA_CONVERSION:1.0";
}  // namespace exid

#endif
