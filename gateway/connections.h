// The handles that have completed at least one request, each once, and how
// many of them share an address. Release closes a connection only when the
// handle given back is the last of its host and port on this list.
#ifndef ORBELLE_CONNECTIONS_H
#define ORBELLE_CONNECTIONS_H

#include <cstdint>

struct objref;

// Puts obj on the list unless it is there already. Called after every request
// that completed without exception. A nil handle (no data) is ignored.
void add_connection(const objref *obj);

// Takes obj off the list; a handle not on it is ignored.
void remove_connection(const objref *obj);

// How many handles on the list have the host text (compared exactly) and the
// port of obj's own profile; a location forward plays no part. obj counts
// itself when it is on the list. 0 for a nil handle.
uint32_t connections_at_host(const objref *obj);

// True when obj is on the list.
bool on_connection_list(const objref *obj);

#endif
