#include "giop/invocation.h"

#include <cstdlib>
#include <cstring>

#include "data/decoder.h"
#include "data/environment.h"
#include "data/typecode.h"
#include "giop/endpoint.h"
#include "giop/message.h"
#include "giop/waitlist.h"
#include "script/asciify.h"
#include "trace/trace.h"

uint32_t next_request_id = 0;

namespace {

// Writes a length and that many bytes, growing the stream once if needed.
int put_octets(CDR &out, const void *bytes, uint32_t length) {
    if (!out.put_long(length)) return 0;
    if (length > out.space_left && !out.grow(out.used() + length)) return 0;
    return out.put_bytes(bytes, length);
}

// Reads and drops the service contexts of a Reply.
int skip_service_contexts(CDR &in) {
    uint32_t count = 0;
    if (!in.get_long(&count)) return 0;
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t id;
        if (!in.get_long(&id) || !in.skip_counted()) return 0;
    }
    return 1;
}

}  // namespace

namespace GIOP {

Invocation::Invocation(objrefdata *target, const char *op, int32_t rt)
    : data(target), operation(op), roundtrip(rt) {
    stream.attach_buffer(buffer, sizeof buffer);
}

Invocation::~Invocation() {
    if (endpoint != nullptr) release_endpoint(endpoint);
}

void Invocation::start(const octet_seq *object_key, Environment &env, int connect_only,
                       const char *principal) {
    env.clear();
    const octet_seq *key = object_key;
    if (fd == -1) {
        const iiop_profile &p = profile_in_force(*data);
        key = &p.object_key;
        client_endpoint *e =
            lookup(p.host, p.port, env, resend_when_closed ? &took_idle_ : nullptr);
        if (endpoint != nullptr) release_endpoint(endpoint);
        endpoint = e;
        if (env.has_exception() || e == nullptr) {
            _dmsg_x(env, "invoke, lookup client endpoint");
            return;
        }
        fd = e->fd;
    }
    if (key == nullptr) key = &profile_in_force(*data).object_key;
    if (connect_only != 0) return;

    if (!start_message(giop_msg::Request, stream)) {
        raise_system(env, exid::MARSHAL);
        return;
    }
    // The Principal is script text in the byte notation.
    uint32_t principal_length = 0;
    unsigned char *principal_bytes = nullptr;
    if (principal != nullptr) {
        size_t count = 0;
        principal_bytes = un_asciify(principal, &count);
        if (principal_bytes == nullptr) {
            raise_system(env, exid::NO_MEMORY);
            return;
        }
        principal_length = static_cast<uint32_t>(count);
        TRACE("start:  Principal length %u", principal_length);
    } else {
        TRACE("start:  Principal NULL");
    }
    request_id = next_request_id++;
    TRACE("start:  put request_id %u\n", request_id);
    uint32_t op_length = static_cast<uint32_t>(std::strlen(operation)) + 1;
    if (!stream.put_long(0) || !stream.put_long(request_id) ||
        !stream.put_byte(roundtrip != 0 ? 1 : 0) || !put_octets(stream, key->buffer, key->length) ||
        !put_octets(stream, operation, op_length) ||
        !put_octets(stream, principal_bytes, principal_length)) {
        raise_system(env, exid::MARSHAL);
    }
    std::free(principal_bytes);
}

int Invocation::abort(Environment &env, const char *id) {
    if (id != nullptr) raise_system(env, id);
    abort_connection(&fd);
    if (endpoint != nullptr) mark_endpoint_dead(endpoint);
    return SYSTEM_EXCEPTION;
}

void Invocation::hand_over(uint32_t id, uint32_t status, Environment &env) {
    TRACE("invoke:  request_id mismatch, expected %u, got %u", request_id, id);
    wait_entry *e = wait_list;
    for (; e != nullptr; e = e->next) {
        if (static_cast<uint32_t>(e->req->request_id) == id) break;
        TRACE("invoke:  not yet processed %d", e->req->request_id);
    }
    deferred_reply_fn reader = deferred_reply_reader();
    if (e == nullptr || reader == nullptr) {
        TRACE("invoke:  unable to find request struct for request_id %u", id);
        return;
    }
    iiop_req *req = e->req;
    objref *target = req->target != nullptr ? static_cast<objref *>(req->target->objref) : nullptr;
    reader(target != nullptr ? target->data : nullptr, req, env, status, 1, &stream);
    TRACE("invoke:  processed request %u, removing from wait list", id);
    wait_list_remove(req);
}

int Invocation::connect_anew(int32_t closed_fd, Environment &env) {
    TRACE("invoke:  connection fd %d closed by the peer, connecting anew", closed_fd);
    env.clear();
    release_endpoint(endpoint);
    endpoint = nullptr;
    fd = -1;
    return LOCATION_FORWARD;
}

int Invocation::invoke(const ExceptionTable &exceptions, Environment &env,
                       int send_failure_allowed) {
    env.clear();
    // Only an idle connection's first failure can mean that the peer had
    // closed it before this Request: a new connection fails for real.
    bool may_go_again = took_idle_ && roundtrip != 0 && endpoint != nullptr;
    took_idle_ = false;
    int32_t sent_on = fd;
    if (!OutgoingMessage::writebuf(stream, &fd)) {
        // Part of the message may have left: the connection is out of step.
        TRACE("invoke:  send failed, closing connection fd %d", fd);
        if (endpoint != nullptr) close_endpoint(endpoint);
        fd = -1;
        if (may_go_again) return connect_anew(sent_on, env);
        if (send_failure_allowed == 0) {
            raise_system(env, exid::COMM_FAILURE);
            return SYSTEM_EXCEPTION;
        }
    }
    if (roundtrip == 0) return NO_EXCEPTION;
    if (endpoint == nullptr) {
        raise_system(env, exid::COMM_FAILURE);
        return SYSTEM_EXCEPTION;
    }

    for (bool first = true;; first = false) {
        bool ended_before = false;
        int type = GIOP::read_message(*endpoint, stream, env, &ended_before);
        fd = endpoint->fd;
        if (ended_before && first && may_go_again) return connect_anew(sent_on, env);
        if (type == giop_msg::CloseConnection) {
            if (data->forward_profile != nullptr) {
                clear_profile(*data->forward_profile);
                std::free(data->forward_profile);
                data->forward_profile = nullptr;
            }
            close_endpoint(endpoint);
            fd = -1;
            release_endpoint(endpoint);
            endpoint = nullptr;
            return LOCATION_FORWARD;
        }
        if (type != giop_msg::Reply) {
            if (!env.has_exception()) raise_system(env, exid::COMM_FAILURE);
            if (timeout_count == 0) TRACE("GIOP::Invocation::invoke:  returning SYSTEM_EXCEPTION");
            return SYSTEM_EXCEPTION;
        }
        if (!skip_service_contexts(stream)) return abort(env, exid::MARSHAL);
        uint32_t id = 0, status = 0;
        if (!stream.get_long(&id) || !stream.get_long(&status) ||
            (id == request_id && status > LOCATION_FORWARD))
            return abort(env, exid::COMM_FAILURE);
        if (id != request_id) {
            hand_over(id, status, env);
            continue;
        }
        TRACE("invoke:  get request_id %u\n", id);
        switch (status) {
            case NO_EXCEPTION:
                return NO_EXCEPTION;
            case USER_EXCEPTION:
                return read_user_exception(exceptions, env);
            case SYSTEM_EXCEPTION:
                return read_system_exception(env);
            default:
                return read_forward(env);
        }
    }
}

int Invocation::read_user_exception(const ExceptionTable &exceptions, Environment &env) {
    reply_kind = 2;
    // The id is compared where it lies, by a second reader; the decoder
    // reads it again from the stream.
    CDR peek;
    peek.read_in_place(stream.cursor, stream.space_left);
    peek.swap = stream.swap;
    unsigned char *id;
    uint32_t length = 0;
    if (!peek.get_counted(&id, &length)) return abort(env, exid::MARSHAL);
    for (uint32_t i = 0; i < exceptions.length; ++i) {
        TypeCode *tc = exceptions.buffer[i];
        const char *known = tc->repositoryId(env);
        if (env.has_exception()) {
            _dmsg_x(env, "invoke(), get exception ID");
            return abort(env, nullptr);
        }
        size_t n = std::strlen(known);
        if (length != n + 1 || std::memcmp(id, known, n) != 0) continue;
        uint32_t size = tc->valueSize(env);
        if (env.has_exception()) {
            _dmsg_x(env, "invoke(), get exception size");
            return abort(env, nullptr);
        }
        void *record = std::calloc(1, size != 0 ? size : 1);
        if (record == nullptr || !decoder(tc, record, nullptr, &stream, env)) {
            std::free(record);
            TRACE("invoke, unmarshal user exception %s", known);
            if (!env.has_exception()) raise_system(env, exid::MARSHAL);
            return abort(env, nullptr);
        }
        env.take_user(record);
        return USER_EXCEPTION;
    }
    raise_system(env, exid::OBJ_ADAPTER);
    return SYSTEM_EXCEPTION;
}

int Invocation::read_system_exception(Environment &env) {
    reply_kind = 1;
    SystemException *record = new_system_exception(nullptr, 0, COMPLETED_MAYBE);
    if (record == nullptr) return abort(env, exid::NO_MEMORY);
    record->id = get_counted_text(stream);
    if (record->id == nullptr || !stream.get_long(&record->minor) ||
        !stream.get_long(&record->completed)) {
        std::free(record->id);
        std::free(record);
        return abort(env, exid::MARSHAL);
    }
    env.take_system(record);
    if (debug_level >= 6) _dmsg_x(env, "unmarshaling system exception Reply");
    return SYSTEM_EXCEPTION;
}

int Invocation::read_forward(Environment &env) {
    objref *obj = nullptr;
    if (!decode_objref(stream, &obj, env)) {
        if (env.has_exception()) _dmsg_x(env, "invoke, location forward");
        return abort(env, nullptr);
    }
    if (obj == nullptr) {
        // A forward to the nil reference names no address: the call cannot
        // go anywhere, but the message was sound, so the connection stays.
        raise_system(env, exid::INV_OBJREF);
        return SYSTEM_EXCEPTION;
    }
    auto *forward = static_cast<iiop_profile *>(std::malloc(sizeof(iiop_profile)));
    if (forward == nullptr) {
        release_objref(obj, env);
        return abort(env, exid::NO_MEMORY);
    }
    *forward = obj->data->profile;
    obj->data->profile.host = nullptr;
    obj->data->profile.object_key = {0, 0, nullptr};
    if (data->forward_profile != nullptr) {
        clear_profile(*data->forward_profile);
        std::free(data->forward_profile);
    }
    data->forward_profile = forward;
    release_objref(obj, env);
    env.clear();
    if (endpoint != nullptr) release_endpoint(endpoint);
    endpoint = nullptr;
    fd = -1;
    return LOCATION_FORWARD;
}

void Invocation::closeconn(Environment &env) {
    TRACE("closeconn:  entering _data=" PTR_FMT, ptrv(data));
    const iiop_profile &p = profile_in_force(*data);
    client_endpoint *e = lookup(p.host, p.port, env);
    if (e == nullptr) return;
    if (endpoint != nullptr) release_endpoint(endpoint);
    endpoint = e;
    fd = e->fd;
    TRACE("closeconn:  closesocket %d", fd);
    close_endpoint(e);
    fd = -1;
    TRACE("closeconn:  exiting");
}

}  // namespace GIOP
