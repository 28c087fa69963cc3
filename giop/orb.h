// ORB start-up and the ORB object, through which references turn into text
// and back. One per process, made once and never destroyed.
#ifndef ORBELLE_GIOP_ORB_H
#define ORBELLE_GIOP_ORB_H

#include <cstdint>

#include "giop/objref.h"

class Environment;

struct ORB {
    // Nonzero: object_to_string gives "IOR:" text; 0: "iiop:" text.
    int32_t use_ior_text;
    objref *string_to_object(const char *text, Environment &env);
    // A new block (free() releases it), or null with env set.
    char *object_to_string(const objref *obj, Environment &env);
};

// The one ORB, null until ORB_init has succeeded.
extern ORB *orb_instance;

// Brings up sockets and the type value table and makes the ORB. The first two
// arguments are not read; identifier "internet" selects the "iiop:" form.
// Null with env set (INITIALIZE) on failure or when an ORB exists.
ORBELLE_EXPORT ORB *ORB_init(int *argc, char **argv, const char *identifier, Environment &env);

// "IOR:" or "iiop:" text to a new handle (null is the nil reference or a
// failure, told apart by env). Needs no ORB.
ORBELLE_EXPORT objref *string_to_object(const char *text, Environment &env);

#endif
