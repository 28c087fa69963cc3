// Failures below the gateway travel as exception records in an Environment:
// a failing operation stores a record and returns 0 or null, and its caller
// looks at once. No language exception is thrown for them.
#ifndef ORBELLE_ENVIRONMENT_H
#define ORBELLE_ENVIRONMENT_H

#include <cstddef>
#include <cstdint>

#include "data/exception_ids.h"
#include "platform/platform.h"

// Completion status of a system exception.
enum : uint32_t { COMPLETED_YES = 0, COMPLETED_NO = 1, COMPLETED_MAYBE = 2 };

// The minor code and completion of every exception the library raises itself.
constexpr uint32_t own_minor = 0xFFFF0000u;
constexpr uint32_t own_completed = COMPLETED_MAYBE;

// A system exception. Its layout is that of a value of tc_SystemException,
// so the decoder fills one straight from a Reply. id is a heap copy (from
// std::malloc) owned by the record; it may be null.
struct SystemException {
    char *id;
    uint32_t minor;
    uint32_t completed;
};

// A new record on the C heap (std::malloc) with a copy of id; a null id gives
// a null id field. Null when memory runs out.
SystemException *new_system_exception(const char *id, uint32_t minor, uint32_t completed);

// Holds at most one exception record and owns it.
//
// Every record is a block from std::malloc whose first member is the id
// pointer, itself a std::malloc block (or null): a SystemException, or a
// user exception laid out as its tk_except TypeCode says. clear() releases the
// id and the block; members of a user exception beyond the id are the
// business of whoever made the block.
class Environment {
public:
    Environment() = default;
    ~Environment();
    Environment(const Environment &) = delete;
    Environment &operator=(const Environment &) = delete;

    // Releases the record held, if any. Harmless when empty.
    void clear();

    // The record held, or null.
    void *exception() const { return exception_; }
    bool has_exception() const { return exception_ != nullptr; }
    // The id of the record held; null when empty or when the record has none.
    const char *id() const;
    // The record when it carries minor and completion (a SystemException or
    // Bounds), else null.
    SystemException *system_exception() const;

    // 0 when empty; 1 for an id that begins "IDL:omg.org/CORBA/" but does not
    // go on with "TypeCode/"; 2 for any other id.
    int exception_kind() const;

    // Replaces what is held by a system exception record (may be null, which
    // leaves the environment empty).
    void take_system(SystemException *record);
    // Replaces what is held by a user exception block (see above).
    void take_user(void *record);

private:
    void *exception_ = nullptr;
    bool has_system_fields_ = false;
};

// Raises a system exception of the library: id, own_minor, own_completed. A
// failed allocation leaves env empty. Returns 0, the usual failure value, so
// that `return raise_system(env, exid::MARSHAL);` reads naturally.
int raise_system(Environment &env, const char *id);
// Raises Bounds. It is given the full system record with minor and
// completion 0, so that every reader of those fields finds them.
int raise_bounds(Environment &env);

// Size of error_text, the text of the latest failure.
constexpr size_t error_text_size = 512;
extern char error_text[error_text_size];
// Replaces error_text with a formatted text, cut to fit.
void set_error_text(const char *format, ...) ORBELLE_PRINTF(1, 2);

// 1 after a system exception Reply, 2 after a user exception Reply; 0 at load
// and never cleared.
extern int32_t reply_kind;

// Reports the exception held by env: its id goes to error_text at every trace
// level (cut to fit); with tracing on, the id and where are printed, and for a
// system exception its minor code and completion.
void _dmsg_x(const Environment &env, const char *where);

#endif
