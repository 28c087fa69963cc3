// One remote call on the wire: a connection from the endpoint table, the
// GIOP and Request headers, the Reply and what it says.
#ifndef ORBELLE_GIOP_INVOCATION_H
#define ORBELLE_GIOP_INVOCATION_H

#include <cstdint>

#include "data/cdr.h"
#include "giop/objref.h"

class Environment;
class TypeCode;
struct client_endpoint;

// Raised by 1 for every Request written, whatever the target; 0 at load.
extern uint32_t next_request_id;

// Reply statuses, the result of invoke.
enum : int { NO_EXCEPTION = 0, USER_EXCEPTION = 1, SYSTEM_EXCEPTION = 2, LOCATION_FORWARD = 3 };

// The user exceptions a caller knows: TypeCodes of kind tk_except.
struct ExceptionTable {
    uint32_t length;
    TypeCode *const *buffer;
};

namespace GIOP {

class Invocation {
public:
    // The stream's first memory: a Request and its Reply share it.
    static constexpr uint32_t kBufferSize = 1430;

    Invocation(objrefdata *target, const char *operation, int32_t roundtrip);
    ~Invocation();
    Invocation(const Invocation &) = delete;
    Invocation &operator=(const Invocation &) = delete;

    // Connects if need be and writes the headers; the stream then stands
    // where the arguments begin. object_key is sent when a connection is
    // already held (null: the key of the profile in force). connect_only asks
    // for the connection alone. principal is script text or null.
    void start(const octet_seq *object_key, Environment &env, int connect_only,
               const char *principal);
    // Sends the stream and reads the Reply; result the reply status, 2 with
    // env set for every local failure, 3 to ask for a restart.
    int invoke(const ExceptionTable &exceptions, Environment &env, int send_failure_allowed);
    // Closes a connection to the reference's address (a new one when none is
    // idle) and marks it dead.
    void closeconn(Environment &env);

    // Set by a caller that builds the Request again when invoke returns 3
    // (a synchronous two-way call): an idle connection is then used without
    // first looking whether the peer closed it. If it turns out closed or
    // reset before any byte of the reply, invoke returns 3 and the call goes
    // again on a new connection, once per idle connection so found.
    bool resend_when_closed = false;

    objrefdata *data;
    const char *operation;
    int32_t roundtrip;
    uint32_t request_id = 0;
    alignas(16) unsigned char buffer[kBufferSize];
    CDR stream;
    client_endpoint *endpoint = nullptr;
    int32_t fd = -1;

private:
    // The connection was an idle one, taken without a look (see above).
    bool took_idle_ = false;

    int abort(Environment &env, const char *id);
    int connect_anew(int32_t closed_fd, Environment &env);
    int read_user_exception(const ExceptionTable &exceptions, Environment &env);
    int read_system_exception(Environment &env);
    int read_forward(Environment &env);
    void hand_over(uint32_t id, uint32_t status, Environment &env);
};

}  // namespace GIOP

#endif
