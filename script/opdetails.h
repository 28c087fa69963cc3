// The flat parameter list of a described operation, from the interface's
// description file.
#ifndef ORBELLE_OPDETAILS_H
#define ORBELLE_OPDETAILS_H

#include "orbelle/host.h"

// Collects the list of operation of the interface repoid into the state of
// parms.h and returns its head: the list as far as it got, null if nothing
// could be collected. Never throws.
ScriptParm *operation_details(const char *operation, const char *repoid);

#endif
