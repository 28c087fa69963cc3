// Reads arbitrary bytes as an interface description, parses them and walks
// every result and parameter type of every operation.
#include <cstddef>
#include <cstdint>

#include "repository/pirapi.h"
#include "repository/pircsv.h"
#include "repository/pirinstance.h"

namespace {
// Positions one input may report before the walk is cut off: arrays may
// legitimately multiply to a million elements, which is too slow per input.
constexpr uint32_t max_positions = 20000;

class BoundedCallback : public PirPrimitiveCallback {
public:
    void NewPrimitive(PirPrimitive &pri) override { count(pri); }
    uint32_t NewSequenceLength(PirPrimitive &pri) override {
        count(pri);
        return static_cast<uint32_t>(pri.stfNam.size() % 3);
    }
    uint32_t NewUnionDiscriminator(PirPrimitive &pri) override {
        count(pri);
        return static_cast<uint32_t>(pri.stlNam.size() % 4);
    }

private:
    void count(const PirPrimitive &) {
        if (++positions_ > max_positions) throw PirException("enough");
    }
    uint32_t positions_ = 0;
};

void walk(PirTypNod *typ) {
    if (typ == nullptr) return;
    BoundedCallback callback;
    try {
        PirFreeInstance(PirCreateInstance(typ, &callback));
    } catch (PirException) {
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    PirCsvFile file;
    PirIntNod ifc;
    try {
        file.readText(reinterpret_cast<const char *>(data), size);
        file.parse(&ifc);
    } catch (PirException) {
        return 0;
    }
    for (PirNod *node : ifc.children) {
        if (node->kind != pirOprKind) continue;
        auto *opr = static_cast<PirOprNod *>(node);
        try {
            walk(PirGetResultType(PirGetResult(opr)));
        } catch (PirException) {
        }
        for (PirParNod *par = PirGetFirstParameter(opr); par; par = PirGetNextParameter(par))
            walk(PirGetParameterType(par));
    }
    return 0;
}
