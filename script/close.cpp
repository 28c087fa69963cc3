#include "script/close.h"

#include "data/environment.h"
#include "giop/invocation.h"
#include "trace/trace.h"

void vu_close_connection(objrefdata *data, Environment &env) {
    TRACE("vu_close_connection:  entering");
    // The invocation only lends its access to the connection; nothing is sent.
    GIOP::Invocation call(data, "", 0);
    env.clear();
    call.closeconn(env);
    TRACE("vu_close_connection:  exiting");
}
