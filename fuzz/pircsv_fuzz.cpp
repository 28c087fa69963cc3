// Reads arbitrary bytes as an interface description, parses them and walks
// every result and parameter type of every operation.
#include <cstddef>
#include <cstdint>

#include "repository/pirapi.h"
#include "repository/pircsv.h"
#include "repository/pirinstance.h"

namespace {
// Positions one input may report, over all its operations, before the walks
// are cut off: arrays may legitimately multiply to a million elements, and a
// description of many such parameters would take a second per input.
constexpr uint32_t max_positions = 2000;

class BoundedCallback : public PirPrimitiveCallback {
public:
    explicit BoundedCallback(uint32_t &positions) : positions_(positions) {}
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
    uint32_t &positions_;
};

// Positions a walk of typ makes at least, up to limit: arrays multiply, and
// an array of empty structs makes a position per element without a single
// callback. Sequences count as their longest length above.
uint64_t expansion(const PirTypNod *typ, uint64_t limit) {
    uint64_t inner = 0;
    for (const PirNod *child : typ->children) {
        if (child->kind != pirTypKind) continue;
        inner += expansion(static_cast<const PirTypNod *>(child), limit);
        if (inner >= limit) return limit;
    }
    uint64_t times = typ->typKind == tk_array ? typ->typCnt : typ->typKind == tk_sequence ? 2 : 1;
    uint64_t total = (inner + 1) * times;
    return total < limit ? total : limit;
}

void walk(PirTypNod *typ, uint32_t &positions) {
    if (typ == nullptr || expansion(typ, max_positions) >= max_positions) return;
    BoundedCallback callback(positions);
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
    uint32_t positions = 0;
    for (PirNod *node : ifc.children) {
        if (node->kind != pirOprKind) continue;
        auto *opr = static_cast<PirOprNod *>(node);
        try {
            walk(PirGetResultType(PirGetResult(opr)), positions);
        } catch (PirException) {
        }
        for (PirParNod *par = PirGetFirstParameter(opr); par; par = PirGetNextParameter(par))
            walk(PirGetParameterType(par), positions);
    }
    return 0;
}
