// A side library that loads but lacks iiop_vb_find_ior: stands for a broken
// installation, so that a failed lookup can be shown.
#include "orbelle/vbagent.h"

extern "C" IIOP_VB_EXPORT int iiop_vb_version(void) { return 0; }
