/* Records shared between Orbelle and its host, the script runtime.
 *
 * Every member stands for one 4-byte word of the host's layout, in order.
 * Words the layout calls pointers, texts or functions are pointers; every
 * other word is int32_t. On a 32-bit build the offsets are the host's exactly
 * and are checked below; a 64-bit build takes the compiler's natural layout.
 */
#ifndef ORBELLE_HOST_H
#define ORBELLE_HOST_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Operation selectors of iiop_record.op. */
enum {
    IIOP_INIT = 1,
    IIOP_BIND = 2,
    IIOP_INVOKE = 3,
    IIOP_RELEASE = 4,
    IIOP_GET_PARMS = 5,
    IIOP_GET_EXCEPTION = 6,
    IIOP_MAKE_IOR = 7,
    IIOP_TIMEOUT = 8,
    IIOP_GET_RESPONSE = 9
};

/* Result of a successful operation. */
#define IIOP_OK 0

/* Values of iiop_record.status after a failed operation. */
enum {
    IIOP_STATUS_SYSTEM_EXCEPTION = 1,
    IIOP_STATUS_USER_EXCEPTION = 2,
    IIOP_STATUS_GATEWAY_FAILURE = 3
};

/* Values of iiop_req.flags. Any other nonzero value acts as two-way. */
enum { IIOP_ONEWAY = 0, IIOP_TWOWAY = 1, IIOP_DEFERRED = 3 };

/* Values of ScriptParm.flags. */
enum { PARM_IN = 1, PARM_OUT = 2, PARM_INOUT = 3 };

typedef void *(*vumalloc_fn)(size_t size);
typedef void *(*vurealloc_fn)(void *block, size_t size);
typedef void (*vufree_fn)(void *block);
typedef void (*vuprint_fn)(const char *line);

/* One script parameter: a primitive value held as text under a composed
 * name. Lists are null-terminated chains through next. */
typedef struct ScriptParm {
    int32_t flags;     /* 1 in, 2 out, 3 inout */
    int32_t type;      /* TCKind of the value */
    int32_t supertype; /* TCKind of the enclosing type, 0 at the top */
    char *name;
    char *strval; /* value text, or null */
    void *ptr;    /* data area during a conversion; objref after a reply */
    int32_t datalen;
    int32_t reserved28;
    int32_t valuesize;
    struct ScriptParm *next;
} ScriptParm;

/* One entry of the script's own name/value array. */
typedef struct iiop_plist_entry {
    char *name;  /* never null */
    char *value; /* or null */
    int32_t unused8;
} iiop_plist_entry;

/* The object block an iiop_req points to. */
typedef struct iiop_target {
    int32_t unused0;
    char *repoid;
    char *instance_id;
    char *ior;
    void *objref; /* handle returned by iiop_bind */
    int32_t unused20;
    int32_t unused24;
} iiop_target;

/* The request block of iiop_invoke, iiop_get_parms and iiop_get_response. */
typedef struct iiop_req {
    int32_t unused0;
    int32_t flags; /* 0 one-way, 1 two-way, 3 deferred */
    iiop_target *target;
    char *operation;
    int32_t roundtrip; /* written by iiop_invoke */
    ScriptParm *parms;
    int32_t unused24;
    int32_t request_id; /* GIOP request id of a deferred request */
    int32_t unused32;
    iiop_plist_entry *plist;
    int32_t plist_count;
    int32_t unused44;
    int32_t unused48;
    char *principal;
    int32_t unused56;
    int32_t unused60;
} iiop_req;

struct iiop_init_args {
    vumalloc_fn vumalloc;
    vurealloc_fn vurealloc;
    vufree_fn vufree;
    vuprint_fn vuprint;
};

struct iiop_bind_args {
    char *repository_id;
    char *instance_id;
    char *ior;
    char *modus;
    char *bound_modus; /* out, from vumalloc */
    void *objref;      /* out */
};

/* Arguments of iiop_invoke and iiop_get_response. */
struct iiop_invoke_args {
    iiop_req *req;
    int32_t connect_time;
    char *connect_host; /* out, from vumalloc */
    int32_t connect_port;
    int32_t connect_aux;
    int32_t unused24;
};

struct iiop_release_args {
    void *objref;
};

struct iiop_get_parms_args {
    iiop_req *req;
};

/* The operation record: 14 words, owned by the host. */
typedef struct iiop_record {
    int32_t op;
    union {
        struct iiop_init_args init;
        struct iiop_bind_args bind;
        struct iiop_invoke_args invoke; /* also iiop_get_response */
        struct iiop_release_args release;
        struct iiop_get_parms_args get_parms;
        int32_t words[6];
    } u;
    int32_t timeout_ms;
    int32_t reserved32;
    int32_t reserved36;
    int32_t reserved40;
    int32_t status;
    int32_t exception_index;
    char *status_text;
} iiop_record;

#if defined(_WIN32) && defined(ORBELLE_BUILDING_LIBRARY)
#define ORBELLE_EXPORT __declspec(dllexport)
#elif defined(_WIN32)
#define ORBELLE_EXPORT
#elif defined(__GNUC__)
#define ORBELLE_EXPORT __attribute__((visibility("default")))
#else
#define ORBELLE_EXPORT
#endif

/* The host's one door into the library. */
ORBELLE_EXPORT int32_t _iiop_entry(iiop_record *record);

#ifdef __cplusplus
}
#endif

#if defined(__cplusplus) && UINTPTR_MAX == 0xFFFFFFFFu
/* The host's layout, word by word. */
static_assert(sizeof(iiop_record) == 56, "iiop_record size");
static_assert(offsetof(iiop_record, op) == 0, "op");
static_assert(offsetof(iiop_record, u) == 4, "operation arguments");
static_assert(offsetof(iiop_record, timeout_ms) == 28, "timeout_ms");
static_assert(offsetof(iiop_record, reserved32) == 32, "reserved");
static_assert(offsetof(iiop_record, status) == 44, "status");
static_assert(offsetof(iiop_record, exception_index) == 48, "exception_index");
static_assert(offsetof(iiop_record, status_text) == 52, "status_text");
static_assert(offsetof(iiop_record, u.init.vumalloc) == 4, "vumalloc");
static_assert(offsetof(iiop_record, u.init.vurealloc) == 8, "vurealloc");
static_assert(offsetof(iiop_record, u.init.vufree) == 12, "vufree");
static_assert(offsetof(iiop_record, u.init.vuprint) == 16, "vuprint");
static_assert(offsetof(iiop_record, u.bind.repository_id) == 4, "repository_id");
static_assert(offsetof(iiop_record, u.bind.instance_id) == 8, "instance_id");
static_assert(offsetof(iiop_record, u.bind.ior) == 12, "ior");
static_assert(offsetof(iiop_record, u.bind.modus) == 16, "modus");
static_assert(offsetof(iiop_record, u.bind.bound_modus) == 20, "bound_modus");
static_assert(offsetof(iiop_record, u.bind.objref) == 24, "bind objref");
static_assert(offsetof(iiop_record, u.invoke.req) == 4, "req");
static_assert(offsetof(iiop_record, u.invoke.connect_time) == 8, "connect_time");
static_assert(offsetof(iiop_record, u.invoke.connect_host) == 12, "connect_host");
static_assert(offsetof(iiop_record, u.invoke.connect_port) == 16, "connect_port");
static_assert(offsetof(iiop_record, u.invoke.connect_aux) == 20, "connect_aux");
static_assert(offsetof(iiop_record, u.release.objref) == 4, "release objref");
static_assert(offsetof(iiop_record, u.get_parms.req) == 4, "get_parms req");

static_assert(sizeof(iiop_req) == 64, "iiop_req size");
static_assert(offsetof(iiop_req, flags) == 4, "flags");
static_assert(offsetof(iiop_req, target) == 8, "target");
static_assert(offsetof(iiop_req, operation) == 12, "operation");
static_assert(offsetof(iiop_req, roundtrip) == 16, "roundtrip");
static_assert(offsetof(iiop_req, parms) == 20, "parms");
static_assert(offsetof(iiop_req, request_id) == 28, "request_id");
static_assert(offsetof(iiop_req, plist) == 36, "plist");
static_assert(offsetof(iiop_req, plist_count) == 40, "plist_count");
static_assert(offsetof(iiop_req, principal) == 52, "principal");

static_assert(sizeof(iiop_target) == 28, "iiop_target size");
static_assert(offsetof(iiop_target, repoid) == 4, "repoid");
static_assert(offsetof(iiop_target, instance_id) == 8, "target instance_id");
static_assert(offsetof(iiop_target, ior) == 12, "target ior");
static_assert(offsetof(iiop_target, objref) == 16, "target objref");

static_assert(sizeof(ScriptParm) == 40, "ScriptParm size");
static_assert(offsetof(ScriptParm, flags) == 0, "flags");
static_assert(offsetof(ScriptParm, type) == 4, "type");
static_assert(offsetof(ScriptParm, supertype) == 8, "supertype");
static_assert(offsetof(ScriptParm, name) == 12, "name");
static_assert(offsetof(ScriptParm, strval) == 16, "strval");
static_assert(offsetof(ScriptParm, ptr) == 20, "ptr");
static_assert(offsetof(ScriptParm, datalen) == 24, "datalen");
static_assert(offsetof(ScriptParm, reserved28) == 28, "reserved28");
static_assert(offsetof(ScriptParm, valuesize) == 32, "valuesize");
static_assert(offsetof(ScriptParm, next) == 36, "next");

static_assert(sizeof(iiop_plist_entry) == 12, "plist entry size");
static_assert(offsetof(iiop_plist_entry, value) == 4, "plist value");
static_assert(offsetof(iiop_plist_entry, unused8) == 8, "plist unused");
#endif

#endif
