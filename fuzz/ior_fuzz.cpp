// Arbitrary text through string_to_object, and whatever it accepts back out
// through both text forms.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "data/environment.h"
#include "giop/iortext.h"
#include "giop/orb.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    Environment env;
    objref *obj = string_to_object(text.c_str(), env);
    if (obj != nullptr) {
        std::free(ior_text_of(obj, env));
        std::free(iiop_text_of(obj, env));
    }
    release_objref(obj, env);
    return 0;
}
