/* Orbelle's exports beside the host's door (host.h). */
#ifndef ORBELLE_ORBELLE_H
#define ORBELLE_ORBELLE_H

#include <stdint.h>

#include "orbelle/host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Sets the trace level; 0 turns tracing off. */
ORBELLE_EXPORT void set_debug_level(uint32_t level);
/* Trace level 5 when the environment variable "corbadebug" is set (returns
 * 0); otherwise the level stays and the result is 3. */
ORBELLE_EXPORT int32_t enable_debug(void);

/* Inert exports, kept for hosts that look them up. */
ORBELLE_EXPORT extern int nOrbelle;
ORBELLE_EXPORT int fnOrbelle(void);

#ifdef __cplusplus
}

class ORBELLE_EXPORT COrbelle {
public:
    COrbelle();
    COrbelle &operator=(const COrbelle &other);

private:
    char byte_;
};
#endif

#endif
