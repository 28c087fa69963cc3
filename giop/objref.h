// Object references: the handle, its record (type id, the IIOP profile in
// use, the target of the latest location forward) and their CDR form.
#ifndef ORBELLE_GIOP_OBJREF_H
#define ORBELLE_GIOP_OBJREF_H

#include <cstdint>

#include "orbelle/host.h"

class CDR;
class Environment;

// A sequence of octet as the wire layer holds it; buffer is owned (malloc).
struct octet_seq {
    uint32_t maximum;
    uint32_t length;
    uint8_t *buffer;
};

// The address of an object: IIOP version, host, port and key.
struct iiop_profile {
    uint8_t major;  // as read: always 1
    uint8_t minor;  // as read: 0, 1 or 2; we write and print 1.0 whatever it is
    char *host;     // owned
    uint16_t port;
    octet_seq object_key;
};

struct objrefdata {
    char *type_id;  // owned, may be null
    iiop_profile profile;
    iiop_profile *forward_profile;  // owned; null while the own profile is in force
};

// The handle the rest of the system holds; exactly one owner. A handle
// without data is the nil reference.
struct objref {
    objrefdata *data;
    uint32_t count;
};

// The profile that connections and Requests go to: the forward if set.
const iiop_profile &profile_in_force(const objrefdata &data);

// Releases a profile's host and key (not the profile itself).
void clear_profile(iiop_profile &profile);
// Releases the record with everything it owns; null is accepted.
void destroy_objrefdata(objrefdata *data);
// A new handle with count 1 around data, or null when memory runs out.
objref *new_objref(objrefdata *data);

// Drops one count; at zero releases the record and the handle. Null is
// accepted and ignored.
void release_objref(objref *obj, Environment &env);

// Writes the reference at *value (an objref pointer, null for nil) as an IOR
// with its own profile, as IIOP 1.0. 1 on success, 0 with env set.
int encode_objref(CDR &stream, const void *value, Environment &env);
// Reads an IOR and stores a new handle (null for nil) at *value. The first
// IIOP 1.0 profile is used, else the first of 1.1 or 1.2 (its components
// skipped); 1 on success, 0 with env set (MARSHAL).
int decode_objref(CDR &stream, void *value, Environment &env);

#endif
