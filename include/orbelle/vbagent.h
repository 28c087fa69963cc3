/* The one function of an agent side library (brokvane.dll, oldvane.dll),
 * loaded at run time from $ZANTH_HOME/shlib/iiop/.
 *
 * Asks the agent for an object of the interface repository_id named
 * instance_id. print is the host's print slot, for the library's own
 * messages. agent_port is the agent's port as text; the empty text asks for
 * the default port, 14000. Returns the object's reference text, which the
 * side library keeps until its next call, or null when nothing was found.
 */
#ifndef ORBELLE_VBAGENT_H
#define ORBELLE_VBAGENT_H

#include "orbelle/host.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef const char *(*iiop_vb_find_ior_fn)(const char *repository_id, const char *instance_id,
                                           vuprint_fn print, const char *agent_port);

#define IIOP_VB_FIND_IOR_NAME "iiop_vb_find_ior"
#define IIOP_VB_DEFAULT_AGENT_PORT "14000"

/* How an agent library exports its functions. */
#ifdef _WIN32
#define IIOP_VB_EXPORT __declspec(dllexport)
#else
#define IIOP_VB_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
}
#endif

#endif
