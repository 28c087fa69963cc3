// The flat parameter list of a described operation, from the interface's
// description file.
#ifndef ORBELLE_OPDETAILS_H
#define ORBELLE_OPDETAILS_H

#include <cstdint>

#include "orbelle/host.h"
#include "repository/pirinstance.h"

// Collects the list of operation of the interface repoid into the state of
// parm_list.h and returns its head: the list as far as it got, null if nothing
// could be collected. Never throws.
ScriptParm *operation_details(const char *operation, const char *repoid);

// Turns the walk of an operation's result and parameters into ScriptParm
// records, one for each primitive value and one for each sequence length.
class PirOpDetails : public PirPrimitiveCallback {
public:
    // Mode of what is being walked: 0 in, 1 out (the result), 2 inout.
    int32_t direction = 0;

    // Head of the list of oprNam of the interface repId, as far as it got: a
    // failure of the description ends the list and is traced.
    ScriptParm *GetOpDetails(const char *oprNam, const char *repId);

    void NewPrimitive(PirPrimitive &pri) override;
    uint32_t NewSequenceLength(PirPrimitive &pri) override;
    uint32_t NewUnionDiscriminator(PirPrimitive &pri) override;
};

// The length the script gives in its plist for the sequence basNam, as an
// entry named basNam^length; 0 when it gives none or a negative one.
int32_t getseqlen(const char *basNam);

#endif
