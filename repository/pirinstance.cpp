#include "repository/pirinstance.h"

#include <memory>

#include "repository/flatname.h"
#include "repository/pirassert.h"

namespace {
const PirTypNod *as_type(const PirNod *node) { return dynamic_cast<const PirTypNod *>(node); }

bool is_discriminator(const PirTypNod *above, const PirTypNod *level) {
    return above->typKind == tk_union && level->typNam == pirDiscriminatorName;
}

// One level of a name: the type at the level, the type above it (null at
// the top of the type) and the level's index for the stateful form.
struct name_level {
    const PirTypNod *level;
    const PirTypNod *above;
    int32_t index;
    bool stateful;
};

// The separator that a level gets from the type above it.
void append_separator(std::string &name, const name_level &l) {
    if (l.above == nullptr) return;
    switch (l.above->typKind) {
        case tk_struct:
            name += flat_member_separator;
            break;
        case tk_union:
            if (!is_discriminator(l.above, l.level)) name += flat_alternative_separator;
            break;
        case tk_sequence:
        case tk_array:
            append_flat_index(name, l.index, l.stateful);
            break;
        default:
            break;
    }
}

// Adds the stateless levels from level up to the top of the type, bottom
// first, and returns the parameter name that heads the name, if any.
const std::string *stateless_levels(const PirTypNod *level, std::vector<name_level> &levels) {
    for (;;) {
        const PirNod *above = level->parent;
        const PirTypNod *above_type = as_type(above);
        levels.push_back({level, above_type, 0, false});
        if (above_type == nullptr) {
            if (above != nullptr && above->kind == pirParKind)
                return &static_cast<const PirParNod *>(above)->parNam;
            return nullptr;
        }
        level = above_type;
    }
}

// The name is put together top first, so each piece is appended once.
std::string join_levels(const std::string *head, const std::vector<name_level> &levels) {
    std::string name;
    if (head != nullptr) name = *head;
    for (auto it = levels.rbegin(); it != levels.rend(); ++it) {
        append_separator(name, *it);
        name += it->level->typNam;
    }
    return name;
}

// Levels of a name for a type nested a few deep, reserved at once.
constexpr size_t usual_levels = 8;

PirTypNod *child_type(PirTypNod *typ, size_t i) {
    if (i >= typ->children.size()) return nullptr;
    return static_cast<PirTypNod *>(typ->children[i]);
}

PirInstance *walk(PirNod *own, PirTypNod *typ, PirInstance *parIns, int32_t index,
                  PirPrimitiveCallback *cal);

void walk_elements(PirNod *own, PirTypNod *typ, PirInstance *ins, uint32_t count,
                   PirPrimitiveCallback *cal) {
    PirTypNod *element = child_type(typ, 0);
    if (element == nullptr) return;
    for (uint32_t i = 0; i < count; ++i) walk(own, element, ins, static_cast<int32_t>(i), cal);
}

void report_leaf(PirInstance *ins, PirPrimitive &pri, PirPrimitiveCallback *cal) {
    cal->NewPrimitive(pri);
    ins->val = pri.val;
    ins->auxNum = pri.auxNum;
    ins->stfNam = pri.stfNam;  // the callback may rename the position
    ins->auxTxt = pri.auxTxt;
}

PirInstance *walk(PirNod *own, PirTypNod *typ, PirInstance *parIns, int32_t index,
                  PirPrimitiveCallback *cal) {
    PIR_ASSERT(own != 0);
    PIR_ASSERT(typ != 0);
    PIR_ASSERT(cal != 0);
    auto made = std::make_unique<PirInstance>();
    PirInstance *ins = made.get();
    ins->typ = typ;
    ins->index = index;
    if (parIns != nullptr) {
        ins->parent = parIns;
        parIns->children.push_back(made.release());
    }
    ins->stlNam = PirStatelessName(typ);
    ins->stfNam = PirStatefulName(ins);

    PirPrimitive pri;
    pri.own = own;
    pri.type = typ->typKind;
    const PirTypNod *above = as_type(typ->parent);
    pri.supertype = above ? above->typKind : 0;
    if (above && is_discriminator(above, typ)) pri.flg = pirDiscriminatorFlag;
    pri.stlNam = ins->stlNam;
    pri.ins = ins;
    pri.parIns = parIns;
    pri.index = index;
    pri.stfNam = ins->stfNam;

    switch (typ->typKind) {
        case tk_struct:
            ins->count = static_cast<int32_t>(typ->typCnt);
            for (uint32_t i = 0; i < typ->typCnt; ++i) {
                PirTypNod *member = child_type(typ, i);
                if (member == nullptr) break;
                walk(own, member, ins, static_cast<int32_t>(i), cal);
            }
            break;
        case tk_array:
            ins->count = static_cast<int32_t>(typ->typCnt);
            walk_elements(own, typ, ins, typ->typCnt, cal);
            break;
        case tk_sequence: {
            cal->NewSequence(pri);
            ins->stfNam = pri.stfNam;
            pri.subNam = flat_length_name(pri.stfNam);
            uint32_t length = cal->NewSequenceLength(pri);
            if (typ->typBnd != 0 && length > typ->typBnd)
                throw PirException("invalid sequence length");
            ins->count = static_cast<int32_t>(length);
            walk_elements(own, typ, ins, length, cal);
            break;
        }
        case tk_union: {
            cal->NewUnion(pri);
            PirTypNod *discriminator = child_type(typ, 0);
            if (discriminator != nullptr) walk(own, discriminator, ins, 0, cal);
            pri.subNam = flat_discriminator_name(pri.stfNam);
            uint32_t member = cal->NewUnionDiscriminator(pri);
            PirTypNod *present =
                member < typ->typCnt ? child_type(typ, size_t{member} + 1) : nullptr;
            if (present == nullptr) throw PirException("invalid union discriminator");
            walk(own, present, ins, static_cast<int32_t>(member), cal);
            break;
        }
        case tk_alias:
            // The format gives an alias no aliased type; without one the alias
            // is reported as a leaf of its own kind instead of walking nothing.
            if (PirTypNod *aliased = child_type(typ, 0)) {
                walk(own, aliased, ins, 0, cal);
                break;
            }
            report_leaf(ins, pri, cal);
            break;
        default:
            report_leaf(ins, pri, cal);
            break;
    }
    return parIns != nullptr ? ins : made.release();
}
}  // namespace

PirInstance::~PirInstance() {
    for (PirInstance *child : children) delete child;
}

std::string PirStatelessName(const PirTypNod *basTyp) {
    PIR_ASSERT(basTyp != 0);
    std::vector<name_level> levels;
    levels.reserve(usual_levels);
    const std::string *head = stateless_levels(basTyp, levels);
    return join_levels(head, levels);
}

std::string PirStatefulName(const PirInstance *basIns) {
    PIR_ASSERT(basIns != 0);
    std::vector<name_level> levels;
    levels.reserve(usual_levels);
    const PirInstance *ins = basIns;
    for (; ins->parent != nullptr; ins = ins->parent)
        levels.push_back({ins->typ, ins->parent->typ, ins->index, true});
    // Above the top of the walk no values are known: the type tree gives the
    // rest of the name.
    const std::string *head = stateless_levels(ins->typ, levels);
    return join_levels(head, levels);
}

PirInstance *PirCreateInstance(PirTypNod *typ, PirPrimitiveCallback *cal) {
    PIR_ASSERT(typ != 0);
    PIR_ASSERT(cal != 0);
    PirNod *own = typ;
    while (own != nullptr && own->kind == pirTypKind) own = own->parent;
    // A type outside any tree is its own owner.
    if (own == nullptr) own = typ;
    return walk(own, typ, nullptr, 0, cal);
}

void PirFreeInstance(PirInstance *ins) {
    PIR_ASSERT(ins != 0);
    delete ins;
}
