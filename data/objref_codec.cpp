#include "data/objref_codec.h"

namespace {
ObjrefCodec registered_codec{nullptr, nullptr, nullptr};
}

void set_objref_codec(const ObjrefCodec &codec) { registered_codec = codec; }
const ObjrefCodec &objref_codec() { return registered_codec; }
