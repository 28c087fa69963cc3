/* A host built against the installed package: asks the demo bank for its
 * name through the door, as a script host would.
 *
 *   host_call IOR       run in a folder that holds the demo's idl/
 *
 * Built two ways by check_package.sh: with ORBELLE_LIBRARY (the path from
 * pkg-config) it loads the library with dlopen; without, it is linked to
 * Orbelle::orbelle by find_package. It prints where the door it called
 * lives and the name the bank gave, and exits 0 only when every step did
 * what a host expects. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <orbelle/host.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef int32_t (*door_fn)(iiop_record *record);

static void print_line(const char *line) { printf("trace: %s\n", line); }

static iiop_record make_record(int32_t op) {
    iiop_record record;
    memset(&record, 0, sizeof record);
    record.op = op;
    return record;
}

static void free_parms(ScriptParm *p) {
    while (p != NULL) {
        ScriptParm *next = p->next;
        free(p->name);
        free(p->strval);
        free(p);
        p = next;
    }
}

static door_fn find_door(void) {
#ifdef ORBELLE_LIBRARY
    void *library = dlopen(ORBELLE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "host_call: %s\n", dlerror());
        return NULL;
    }
    door_fn door;
    /* dlsym hands back an object pointer; copy it into the function pointer. */
    void *symbol = dlsym(library, "_iiop_entry");
    memcpy(&door, &symbol, sizeof door);
    return symbol ? door : NULL;
#else
    return _iiop_entry;
#endif
}

/* Reports a failed step with what the library said. */
static int failed(const char *step, int32_t result, const iiop_record *record) {
    fprintf(stderr, "host_call: %s: result %d, status %d, exception %d, %s\n", step, (int)result,
            (int)record->status, (int)record->exception_index,
            record->status_text ? record->status_text : "(no text)");
    return 1;
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: host_call IOR\n");
        return 2;
    }
    door_fn door = find_door();
    if (door == NULL) return 1;
    Dl_info where;
    void *door_address;
    memcpy(&door_address, &door, sizeof door_address);
    if (dladdr(door_address, &where) == 0 || where.dli_fname == NULL) return 1;
    printf("door in %s\n", where.dli_fname);

    iiop_record init = make_record(IIOP_INIT);
    init.u.init.vumalloc = malloc;
    init.u.init.vurealloc = realloc;
    init.u.init.vufree = free;
    init.u.init.vuprint = print_line;
    int32_t result = door(&init);
    if (result != IIOP_OK) return failed("init", result, &init);

    /* An operation the library does not do: status 3, index 10. */
    iiop_record unsupported = make_record(IIOP_MAKE_IOR);
    result = door(&unsupported);
    if (result == IIOP_OK || unsupported.status != IIOP_STATUS_GATEWAY_FAILURE ||
        unsupported.exception_index != 10)
        return failed("unsupported operation", result, &unsupported);
    free(unsupported.status_text);

    iiop_record bind = make_record(IIOP_BIND);
    bind.u.bind.repository_id = "IDL:Banking/Bank:1.0";
    bind.u.bind.instance_id = "Bank";
    bind.u.bind.ior = argv[1];
    bind.u.bind.modus = "IOR";
    result = door(&bind);
    if (result != IIOP_OK || bind.u.bind.objref == NULL) return failed("bind", result, &bind);

    iiop_target target;
    memset(&target, 0, sizeof target);
    target.repoid = bind.u.bind.repository_id;
    target.instance_id = bind.u.bind.instance_id;
    target.ior = argv[1];
    target.objref = bind.u.bind.objref;
    iiop_req req;
    memset(&req, 0, sizeof req);
    req.target = &target;
    req.operation = "_get_name";
    iiop_record parms = make_record(IIOP_GET_PARMS);
    parms.u.get_parms.req = &req;
    result = door(&parms);
    if (result != IIOP_OK || req.parms == NULL) return failed("get_parms", result, &parms);

    req.flags = IIOP_TWOWAY;
    iiop_record invoke = make_record(IIOP_INVOKE);
    invoke.u.invoke.req = &req;
    invoke.timeout_ms = 5000;
    result = door(&invoke);
    if (result != IIOP_OK) return failed("invoke", result, &invoke);
    const char *name = NULL;
    for (const ScriptParm *p = req.parms; p != NULL; p = p->next)
        if (p->name != NULL && strcmp(p->name, "^_get_name") == 0) name = p->strval;
    printf("^_get_name = %s\n", name ? name : "(none)");

    iiop_record release = make_record(IIOP_RELEASE);
    release.u.release.objref = bind.u.bind.objref;
    int32_t released = door(&release);
    free_parms(req.parms);
    free(invoke.u.invoke.connect_host);
    free(bind.u.bind.bound_modus);
    if (released != IIOP_OK) return failed("release", released, &release);
    return name != NULL ? 0 : 1;
}
