// TypeCodes: a thin, reference-counted object around the CDR encapsulation
// that describes a type. Every question is answered by reading those bytes
// again; no type is ever expanded into a tree. The same parser tells how a
// value of the type lies in memory, so that values can be walked member by
// member.
#ifndef ORBELLE_TYPECODE_H
#define ORBELLE_TYPECODE_H

#include <cstdint>

#include "data/cdr.h"
#include "data/environment.h"
#include "orbelle/kinds.h"

// The kind word that marks an indirection to a TypeCode met earlier.
constexpr uint32_t tk_indirection = 0xFFFFFFFFu;

// A sequence (and a Principal) in memory: maximum, length, elements packed
// at the element's size. It may lie at any address: access it with
// load_unaligned / store_unaligned.
struct SequenceRecord {
    uint32_t maximum;
    uint32_t length;
    void *buffer;
};

class TypeCode;

// Driven by walkValue over the parts of a value. value2 may be null and is
// stepped like value1. 1 to go on, 0 to stop (with the failure in env).
using valueVisitor = int (*)(TypeCode *tc, void *value1, void *value2, void *context,
                             Environment &env);

class TypeCode {
public:
    // A TypeCode of a simple kind, or a local for nestedSize to fill. Not
    // owned, count 1.
    explicit TypeCode(int32_t kind = tk_null);
    // Over an encapsulation of length bytes (kept by reference). Bytes at an
    // address that is not a multiple of 4 are copied to an aligned block that
    // the TypeCode frees; such a TypeCode is not owned whatever owned says.
    // An owned TypeCode is on the heap (new) and frees bytes (std::free).
    TypeCode(int32_t kind, uint32_t length, const void *bytes, uint32_t owned);
    ~TypeCode();
    TypeCode(const TypeCode &) = delete;
    TypeCode &operator=(const TypeCode &) = delete;

    // Counting happens only on owned TypeCodes.
    TypeCode *addRef();
    // Accepts null. Destroys an owned TypeCode when its count reaches 0.
    static void release(TypeCode *tc);

    int32_t getKind(Environment &env);
    // How many parameters the kind has (see paramType for the numbering).
    uint32_t paramCount(Environment &env);
    // A bound or length: index 0 of strings, index 1 of sequences and arrays.
    uint32_t paramLong(uint32_t index, Environment &env);
    // A TypeCode parameter, with a reference the caller releases: element of
    // sequence and array (0), aliased type (2), struct or exception member i
    // (4 + 2i), union discriminator (2) and member i (7 + 3i).
    TypeCode *paramType(uint32_t index, Environment &env);
    // The id's characters inside the encapsulation; valid while this lives.
    const char *repositoryId(Environment &env);
    // Bytes a value of this type takes in memory.
    uint32_t valueSize(Environment &env);
    // Calls visitor on the value itself for simple kinds, on each member or
    // element for compound kinds (one level; visitors descend themselves).
    int walkValue(void *value1, void *value2, valueVisitor visitor, void *context,
                  Environment &env);

    // Moves stream over one TypeCode. 0 on a failed read, an unknown kind or
    // an indirection. Uses no Environment.
    static int skipTypeCode(CDR &stream);
    // Moves stream over one TypeCode (following an indirection) and gives the
    // size and alignment of its values. A non-null target is filled to refer
    // to the bytes in the stream, valid only while they live.
    static uint32_t nestedSize(TypeCode *target, CDR &stream, uint32_t *alignment,
                               Environment &env);
    // Reads a union label of the discriminator's kind from stream and tells
    // whether it equals the discriminator value at disc (1) or not (0).
    static int labelMatches(int32_t discKind, CDR &stream, const void *disc, Environment &env);
    // Reads a TypeCode value from stream: the shared one of a kind without
    // parameters (and of an unbounded string), else a new owned one that the
    // caller releases. Null with MARSHAL when the stream ends early or holds
    // an unknown kind or a body longer than the rest of the stream.
    static TypeCode *readTypeCode(CDR &stream, Environment &env);

    uint32_t length;        // encapsulation length; the bound of a string
    unsigned char *buffer;  // the encapsulation, or null
    int32_t kind;
    TypeCode *parent;  // never set here; released on destruction
    uint32_t refCount;
    uint32_t owned;

private:
    bool ownsCopy_ = false;
};

// Holds one reference on a TypeCode (or null) and gives it up when it goes
// out of scope, so that no exit path releases one by hand.
class TypeCodeRef {
public:
    TypeCodeRef() = default;
    // Takes over the reference the caller holds on tc.
    explicit TypeCodeRef(TypeCode *tc) : tc_(tc) {}
    ~TypeCodeRef() { TypeCode::release(tc_); }
    TypeCodeRef(TypeCodeRef &&other) noexcept : tc_(other.handOver()) {}
    TypeCodeRef &operator=(TypeCodeRef &&other) noexcept {
        if (this != &other) {
            TypeCode::release(tc_);
            tc_ = other.handOver();
        }
        return *this;
    }
    TypeCodeRef(const TypeCodeRef &) = delete;
    TypeCodeRef &operator=(const TypeCodeRef &) = delete;

    TypeCode *get() const { return tc_; }
    TypeCode *operator->() const { return tc_; }
    explicit operator bool() const { return tc_ != nullptr; }
    // Gives the reference to the caller; the holder is empty afterwards.
    TypeCode *handOver() {
        TypeCode *tc = tc_;
        tc_ = nullptr;
        return tc;
    }

private:
    TypeCode *tc_ = nullptr;
};

// Counts the levels of value walks in progress. ok() is false (and env holds
// BAD_TYPECODE) when one more level would pass limits::max_value_depth.
class ValueNesting {
public:
    explicit ValueNesting(Environment &env);
    ~ValueNesting();
    ValueNesting(const ValueNesting &) = delete;
    ValueNesting &operator=(const ValueNesting &) = delete;
    bool ok() const { return ok_; }

private:
    bool ok_;
};

// Size and alignment of a value of each simple kind in memory; sizes of the
// compound kinds are computed from their TypeCodes.
struct ValueRow {
    uint32_t size;
    uint32_t alignment;
};
// Bytes of the record of a tk_any value in memory (struct Any of data/any.h:
// type, value, ownsValue), which any.cpp checks.
constexpr uint32_t any_record_size = (2 * sizeof(void *) + sizeof(uint32_t) + alignof(void *) - 1) /
                                     alignof(void *) * alignof(void *);
// Fills the table; until then every row reads size 0, alignment 1. Part of
// ORB start-up, which must run before the first size is asked for.
void fill_value_table();
// The row of a kind from 0 to 27 (other kinds read as size 0, alignment 1).
ValueRow value_row(int32_t kind);

// The shared TypeCode of a kind without parameters (0 to 13 and 23 to 26)
// and of the unbounded string and wstring (18, 27): process-lifetime,
// unowned (addRef and release do nothing on it). Null for any other kind.
TypeCode *shared_typecode(int32_t kind);

#endif
