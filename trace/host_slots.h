// The host's four callback slots. They start with working defaults (the C
// heap and standard output) so the library works before iiop_init and
// without it; iiop_init replaces them.
#ifndef ORBELLE_HOST_SLOTS_H
#define ORBELLE_HOST_SLOTS_H

#include <cstddef>

#include "orbelle/host.h"

// Stores the four slots exactly as given, with no test of any kind.
void set_host_slots(const iiop_init_args &slots);

// The slots in force; set_host_slots is the one writer.
extern iiop_init_args host_slots;

// Allocates a block that goes to the host, which owns it from then on.
// Inline, as the next: a reply of a long sequence costs one of each per
// element.
inline void *vumalloc(size_t size) { return host_slots.vumalloc(size); }
// Gives back a block that the host owns, such as a value text being replaced.
inline void vufree(void *block) { host_slots.vufree(block); }
// Prints one line through the host.
void vuprint(const char *line);
// The print slot itself, to hand to a side library that prints through it.
vuprint_fn vuprint_slot();

// Copies text into a block from vumalloc; null stays null.
char *vustrdup(const char *text);

#endif
