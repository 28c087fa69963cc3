// The walk of a type: expands one concrete value of a type node into named
// primitive positions and reports each to a callback, which answers the
// questions that depend on data (sequence lengths, union members).
#ifndef ORBELLE_PIRINSTANCE_H
#define ORBELLE_PIRINSTANCE_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "repository/pirnod.h"

class PirInstance;

// Flag bit of PirPrimitive::flg: the position is a union's discriminator.
constexpr uint32_t pirDiscriminatorFlag = 1;

// One position of the walk, made new when the position is reached and valid
// only during the callback call that receives it.
class PirPrimitive {
public:
    PirNod *own = nullptr;  // the result or parameter above the whole type
    int32_t type = 0;       // kind of the type at this position
    int32_t supertype = 0;  // kind of the enclosing type, 0 at the top
    uint32_t flg = 0;
    std::string stlNam;  // stateless name: all elements of a sequence share it
    PirInstance *ins = nullptr;
    PirInstance *parIns = nullptr;
    int32_t index = 0;
    std::string stfNam;  // stateful name, with the actual indices
    std::string subNam;  // stfNam plus "^length" or "^discriminator" when asked
    std::string val;     // set by the callback for a leaf
    int32_t auxNum = 0;
    std::string auxTxt;
};

// Receives the positions of a walk, depth first in file order. Any callback
// may throw; the walk passes the exception on after releasing its instances.
class PirPrimitiveCallback {
public:
    virtual ~PirPrimitiveCallback() = default;
    virtual void NewPrimitive(PirPrimitive &pri) = 0;
    virtual void NewSequence(PirPrimitive &) {}
    virtual void NewUnion(PirPrimitive &) {}
    // The element count of the sequence at this position.
    virtual uint32_t NewSequenceLength(PirPrimitive &pri) = 0;
    // The position of the present member among the union's members, from 0.
    virtual uint32_t NewUnionDiscriminator(PirPrimitive &pri) = 0;
};

// One position of the walked value. Borrows its type from the tree, so the
// interface must outlive the instance; owns its children.
class PirInstance {
public:
    PirInstance() = default;
    PirInstance(const PirInstance &) = delete;
    PirInstance &operator=(const PirInstance &) = delete;
    ~PirInstance();

    PirTypNod *typ = nullptr;
    std::string stlNam;
    std::string stfNam;
    int32_t index = 0;
    int32_t count = -1;  // struct members, array length, sequence length
    std::string val;
    int32_t auxNum = 0;
    std::string auxTxt;
    PirInstance *parent = nullptr;
    std::vector<PirInstance *> children;
    std::vector<std::pair<std::string, std::string>> pairs;
};

// Walks typ, calling cal for every position; the instance tree belongs to
// the caller. Throws PirException "invalid sequence length" when a length
// passes a nonzero bound and "invalid union discriminator" when a member
// position is beyond the last member, and passes on what the callback
// throws; the instances made so far are released.
PirInstance *PirCreateInstance(PirTypNod *typ, PirPrimitiveCallback *cal);
void PirFreeInstance(PirInstance *ins);

// Names of a position: climbing to the top of the type, each level adds its
// separator ("." below a struct, ":" below a union, "[]" or "[i]" below a
// sequence or array) and its name; a parameter's name goes in front.
std::string PirStatelessName(const PirTypNod *basTyp);
std::string PirStatefulName(const PirInstance *basIns);

#endif
