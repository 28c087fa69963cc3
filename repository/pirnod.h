// The node tree of one interface, as read from its description file.
#ifndef ORBELLE_PIRNOD_H
#define ORBELLE_PIRNOD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "orbelle/kinds.h"

// Class of a node, held in PirNod::kind. The values 0 to 2 belong to no class.
enum PirKind : int32_t {
    pirIntKind = 3,
    pirAttKind = 4,
    pirExcKind = 5,
    pirOprKind = 6,
    pirResKind = 7,
    pirParKind = 8,
    pirTypKind = 9,
};

// PirTypNod::typKind holds a TypeCode kind (orbelle/kinds.h).

// Name that a union's first child, its discriminator, always bears.
extern const char *const pirDiscriminatorName;

// The repository's one failure: a constant text, thrown by value. Nothing in
// it says which file, token or name was at fault.
class PirException {
public:
    explicit PirException(const char *text) : msg(text ? text : "unknown") {}
    const char *msg;
};

// Base of all nodes. The virtual destructor makes the classes polymorphic, so
// that a run-time class test on a PirNod pointer works; destroying a node
// destroys its subtree.
class PirNod {
public:
    PirNod(const PirNod &) = delete;
    PirNod &operator=(const PirNod &) = delete;
    virtual ~PirNod();

    // Adds child at the end of children and makes this node its parent.
    void append(PirNod *child);

    int32_t kind;
    PirNod *parent = nullptr;  // back reference, owns nothing
    std::vector<PirNod *> children;
    bool ownsChildren = true;
    // Where this node stands in its parent's children, so that a step to the
    // next sibling costs no search.
    size_t position = 0;

protected:
    explicit PirNod(int32_t nodeKind) : kind(nodeKind) {}
};

class PirIntNod : public PirNod {
public:
    PirIntNod() : PirNod(pirIntKind) {}
    std::string intId;
    std::string intNam;
};

class PirAttNod : public PirNod {
public:
    PirAttNod() : PirNod(pirAttKind) {}
    std::string attId;
    std::string attNam;
    int32_t attMod = 0;  // 0 normal, 1 readonly
};

class PirExcNod : public PirNod {
public:
    PirExcNod() : PirNod(pirExcKind) {}
    std::string excNam;
    uint32_t excCnt = 0;
};

class PirOprNod : public PirNod {
public:
    PirOprNod() : PirNod(pirOprKind) {}
    std::string oprId;
    std::string oprNam;
    int32_t oprMod = 0;  // 0 normal, 1 oneway
};

class PirResNod : public PirNod {
public:
    PirResNod() : PirNod(pirResKind) {}
};

class PirParNod : public PirNod {
public:
    PirParNod() : PirNod(pirParKind) {}
    std::string parNam;
    int32_t parDir = 0;  // 0 in, 1 out, 2 inout
};

class PirTypNod : public PirNod {
public:
    PirTypNod() : PirNod(pirTypKind) {}
    int32_t typKind = 0;
    std::string typNam;   // empty for "." in the file
    uint32_t typCnt = 0;  // struct and union members, array length
    uint32_t typBnd = 0;  // sequence bound, 0 for none
};

#endif
