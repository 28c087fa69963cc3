#include "script/docall.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "data/decoder.h"
#include "data/encoder.h"
#include "data/environment.h"
#include "data/stdtypes.h"
#include "giop/invocation.h"
#include "orbelle/limits.h"
#include "repository/flatname.h"
#include "script/asciify.h"
#include "script/decimal.h"
#include "script/plain.h"
#include "script/runs.h"
#include "script/values.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace {
// Scripts never know the user exceptions of an operation: every user
// exception Reply ends as OBJ_ADAPTER.
const ExceptionTable no_user_exceptions{0, nullptr};

bool sends_value(const ScriptParm *p) { return p->flags == PARM_IN || p->flags == PARM_INOUT; }
bool receives_value(const ScriptParm *p) { return p->flags == PARM_OUT || p->flags == PARM_INOUT; }
bool is_opaque(const ScriptParm *p) {
    return sends_value(p) && p->name != nullptr && p->name[0] == '*' && p->name[1] == '\0';
}

void drop_area(ScriptParm *p, DataArea &area) {
    deletedataptr(p, area);
    p->ptr = nullptr;
}

// A record whose value lies in a block of its own (nonzero valuesize) has
// nothing a script could have written into it, so it is refused rather than
// sent or filled from memory nobody defined.
void refuse_outside_block(Environment &env) { raise_system(env, exid::MARSHAL); }

// The opaque way: strval is a stretch of the Request's body in byte
// notation, written as it stands with no alignment and no type.
void marshal_opaque(ScriptParm *p, DataArea &place, CDR &stream, Environment &env) {
    TRACE("vu_do_call: opaque parameter");
    char *copy = strdup(p->strval != nullptr ? p->strval : "");
    if (copy == nullptr) {
        TRACE("vu_do_call:  get_val returned NULL");
    } else {
        TRACE("vu_do_call: calling un_asciify '%s'", copy);
        size_t n = 0;
        unsigned char *bytes = un_asciify(copy, &n);
        TRACE("vu_do_call: len=%d", static_cast<int>(n));
        if (bytes == nullptr) {
            raise_system(env, exid::NO_MEMORY);
        } else {
            if (debug_level != 0)
                for (size_t i = 0; i < n; ++i)
                    TRACE("vu_do_call:  put_param 0x%x", static_cast<unsigned>(static_cast<int>(
                                                             static_cast<signed char>(bytes[i]))));
            // Single chars are unaligned, so the bytes go out back to back.
            if (n > UINT32_MAX || !stream.put_bytes(bytes, static_cast<uint32_t>(n)))
                raise_system(env, exid::MARSHAL);
            std::free(bytes);
        }
        std::free(copy);
    }
    drop_area(p, place);
}

// Tracing off, a plain record goes from its text to the stream with no
// data area; ptr ends null and valuesize as putdata leaves them.
void marshal_plain(ScriptParm *p, CDR &stream, Environment &env) {
    p->ptr = nullptr;
    if (!sends_value(p)) return;
    if (p->flags == PARM_IN || p->valuesize == 0) {
        if (p->strval != nullptr) p->valuesize = 0;
        if (!put_plain(stream, p->type, p->strval)) raise_system(env, exid::MARSHAL);
    } else {
        refuse_outside_block(env);
    }
}

// Marshals one record. False when the call must end at once (a type that
// can't be converted); other failures stay in env for the caller.
bool marshal_record(ScriptParm *p, CDR &stream, Environment &env, bool &opaque) {
    if (debug_level == 0 && is_plain_type(p->type) && !is_opaque(p)) {
        marshal_plain(p, stream, env);
        return true;
    }
    DataArea place;
    void *area = newdataptr(p, place);
    p->ptr = area;
    TRACE("vu_do_call:  new dataptr at " PTR_FMT, ptrv(area));
    if (area == nullptr) {
        raise_system(env, exid::MARSHAL);
        _dmsg_x(env, "vu_do_call:  dataptr NULL -- unsupported data type");
        return false;
    }
    if (!sends_value(p)) {
        drop_area(p, place);
        return true;
    }
    if (is_opaque(p)) {
        opaque = true;
        marshal_opaque(p, place, stream, env);
        return true;
    }
    if (p->flags == PARM_IN || p->valuesize == 0) {
        putdata(p, area, env);
        // A bad reference text has already failed the record.
        if (!env.has_exception()) encoder(get_typecodeptr(p->type), area, nullptr, &stream, env);
    } else {
        refuse_outside_block(env);
    }
    drop_area(p, place);
    return true;
}

// The start of a record's name. The names belong to the host's list, which
// stays as it is while a Reply is read, so the sequence stack points into
// them rather than copying a name for every element.
struct NamePart {
    const char *text;
    size_t length;
    std::string str() const { return std::string(text, length); }
};

// One sequence being followed through the list while a Reply is read.
struct Frame {
    NamePart basename;
    int32_t script_len;
    int32_t wire_len;
    int32_t members_processed;
    NamePart current_member_name;
    int32_t skip;
};

// Names are a few characters long and one of these runs for every record of
// a sequence: a plain loop costs less than a library call. Stops at the
// first difference, so a shorter a (ending in its terminator) is safe.
bool same_chars(const char *a, const char *b, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (a[i] != b[i]) return false;
    return true;
}

// The part of a record's name that tells which element of a sequence it
// belongs to: the first characters, as many as the sequence's basename has,
// and, behind a "[", the index up to the closing bracket (which is left
// out). in_sequence: the part begins with the basename.
struct Member {
    NamePart part;
    bool in_sequence;
};

Member member_of(const char *name, const NamePart &base) {
    // A basename holds no terminator, so the first loop stops at the end of
    // name too; the second finishes the part when the two differ.
    size_t n = 0;
    // Most records lie inside the sequence: one library compare tells.
    if (std::strncmp(name, base.text, base.length) == 0)
        n = base.length;
    else
        while (n < base.length && name[n] == base.text[n]) ++n;
    bool in_sequence = n == base.length;
    while (n < base.length && name[n] != '\0') ++n;
    if (n == base.length) n = flat_index_end(name, n);
    return Member{NamePart{name, n}, in_sequence};
}

// Element names of one sequence differ in their last characters, so the
// comparison runs from the end.
bool same_name(const NamePart &a, const NamePart &b) {
    if (a.length != b.length) return false;
    for (size_t i = a.length; i != 0; --i)
        if (a.text[i - 1] != b.text[i - 1]) return false;
    return true;
}

// Whether part begins with prefix.
bool begins_with(const NamePart &part, const NamePart &prefix) {
    return part.length >= prefix.length && same_chars(part.text, prefix.text, prefix.length);
}

// Where the index of name ends (at its closing bracket) when name is
// exactly base "[" digits "]"; 0 for any other name.
size_t element_index_end(const char *name, const NamePart &base) {
    if (std::strncmp(name, base.text, base.length) != 0 || name[base.length] != flat_index_open)
        return 0;
    size_t end = base.length + 1;
    while (static_cast<unsigned char>(name[end] - '0') < 10) ++end;
    if (end == base.length + 1 || name[end] != flat_index_close || name[end + 1] != '\0') return 0;
    return end;
}

// The frames of one reading. Replies seldom nest sequences deeply, so the
// first frames live in place and a reading takes no heap block for them.
class FrameStack {
public:
    bool empty() const { return size_ == 0; }
    Frame &back() { return size_ <= in_place ? first_[size_ - 1] : more_.back(); }
    void push_back(const Frame &frame) {
        if (size_ < in_place)
            first_[size_] = frame;
        else
            more_.push_back(frame);
        ++size_;
    }
    void pop_back() {
        if (size_ > in_place) more_.pop_back();
        --size_;
    }

private:
    static constexpr size_t in_place = 8;
    Frame first_[in_place];
    std::vector<Frame> more_;
    size_t size_ = 0;
};

class ReplyReader {
public:
    ReplyReader(CDR &stream, Environment &env) : stream_(stream), env_(env) {}
    // Passes over the runs of in records noted while the Request was built.
    void read(ScriptParm *parms, bool opaque, const InRuns &in_runs);

private:
    void read_opaque(ScriptParm *p);
    void open_sequence(ScriptParm *p, const char *mark);
    // Reads a plain value straight into strval; false with env set when the
    // Reply holds too few bytes.
    bool read_plain(ScriptParm *p);
    // Step of following the sequences: true when the record isn't on the wire.
    bool passed_over(const char *name);
    // Reads the element records that follow a sequence's length record.
    ScriptParm *read_elements(ScriptParm *length_record);

    CDR &stream_;
    Environment &env_;
    FrameStack stack_;
    // The data area of the record being read.
    DataArea place_;
};

void ReplyReader::read_opaque(ScriptParm *p) {
    if (p->flags != PARM_INOUT) return;
    uint32_t n = stream_.space_left;
    TRACE("vu_do_call:  (opaque) %d bytes to read", static_cast<int>(n));
    if (n == 0) return;
    auto *block = static_cast<unsigned char *>(std::malloc(n));
    if (block == nullptr) {
        raise_system(env_, exid::NO_MEMORY);
        return;
    }
    stream_.get_bytes(block, n);
    char *text = asciify(block, n);
    std::free(block);
    if (text == nullptr) {
        raise_system(env_, exid::NO_MEMORY);
        return;
    }
    if (p->strval != nullptr) vufree(p->strval);
    p->strval = vustrdup(text);
    std::free(text);
}

bool ReplyReader::read_plain(ScriptParm *p) {
    if (get_plain_text(stream_, p)) return true;
    raise_system(env_, exid::MARSHAL);
    return false;
}

void ReplyReader::open_sequence(ScriptParm *p, const char *mark) {
    NamePart base{p->name, static_cast<size_t>(mark - p->name)};
    TRACE("vu_do_call:");
    TRACE("vu_do_call:  new sequence, basename '%s'", base.str().c_str());
    if (!stack_.empty()) {
        Frame &top = stack_.back();
        if (top.script_len == top.members_processed && !begins_with(base, top.basename)) {
            TRACE("vu_do_call:  %s '%s'", "(A) done with sequence", top.basename.str().c_str());
            stack_.pop_back();
        }
    }
    TRACE("vu_do_call:  node->strval=[%s]", nz(p->strval));
    int32_t script_len = 0;
    if (p->strval == nullptr) {
        TRACE("vu_do_call:  No sequence length %s", "in script");
        TRACE("vu_do_call:  Check for possible %s", "mismatch between IDL and script");
    } else {
        script_len = decimal_wrapping(p->strval);
    }
    int32_t skip = 0;
    if (!stack_.empty()) {
        const Frame &top = stack_.back();
        skip = top.skip == 1 || top.members_processed > top.wire_len ? 1 : 0;
    }
    stack_.push_back(Frame{base, script_len, -1, 0, base, skip});
}

bool ReplyReader::passed_over(const char *name) {
    TRACE("vu_do_call:  sequence(s) in progress...");
    Frame *top = &stack_.back();
    Member member = member_of(name, top->basename);
    if (!same_name(member.part, top->current_member_name)) {
        TRACE("vu_do_call:  current_member_name '%s'", member.part.str().c_str());
        TRACE("vu_do_call:       %s '%s'", "does not match top",
              top->current_member_name.str().c_str());
        if (!member.in_sequence) {
            TRACE("vu_do_call:  %s '%s'", "(B) done with sequence", top->basename.str().c_str());
            stack_.pop_back();
            if (stack_.empty()) return false;
            // The record counts as an element of the frame below, even when
            // it continues that frame's current element.
            top = &stack_.back();
            member = member_of(name, top->basename);
        }
        top->current_member_name = member.part;
        ++top->members_processed;
        TRACE("vu_do_call:  %s '%s'", "new current_member_name", member.part.str().c_str());
        TRACE("vu_do_call:  %d members processed", static_cast<int>(top->members_processed));
    }
    if ((top->members_processed > top->wire_len && top->wire_len != -1) || top->skip == 1) {
        TRACE("vu_do_call:  whole sequence read");
        TRACE("vu_do_call:  skipping this parameter");
        top->skip = 1;
        return true;
    }
    return false;
}

// Tracing off, the elements of a sequence of a plain type follow its length
// record as records named "base[i]". They are read here one after another,
// counted as passed_over counts them, without searching their names for a
// length mark or an index end. Stops before a record of any other form, one
// that repeats the element before it or that the sequence would pass over:
// the general way takes those. Returns the last record read (the length
// record when none was); env is set when the Reply ran out.
ScriptParm *ReplyReader::read_elements(ScriptParm *length_record) {
    Frame &top = stack_.back();
    ScriptParm *last = length_record;
    if (debug_level != 0 || top.skip != 0) return last;
    const NamePart base = top.basename;
    // The frame's count and current element live in locals for the run.
    NamePart current = top.current_member_name;
    int32_t processed = top.members_processed;
    const int32_t wire_len = top.wire_len;
    ElementName expected(base.text, base.length, processed);
    // Whether the record before was the expected one.
    bool chained = false;
    for (ScriptParm *q = last->next; q != nullptr; q = q->next) {
        const char *name = q->name;
        const int32_t type = q->type;
        if (!receives_value(q) || !is_plain_type(type) || q->valuesize != 0 || name == nullptr)
            break;
        bool was_expected = expected.matches(name);
        size_t end = was_expected ? expected.index_end() : element_index_end(name, base);
        if (end == 0) break;
        NamePart part{name, end};
        // Two expected names in a row differ in their index.
        if ((!(chained && was_expected) && same_name(part, current)) || processed >= wire_len)
            break;
        chained = was_expected;
        current = part;
        ++processed;
        expected.advance();
        q->ptr = nullptr;
        uint32_t word = 0;
        if (is_word_type(type) && stream_.get_long(&word) != 0) {
            set_word_text(q, type, word);
        } else if (!get_plain_text(stream_, q)) {
            raise_system(env_, exid::MARSHAL);
            break;
        }
        last = q;
    }
    top.current_member_name = current;
    top.members_processed = processed;
    return last;
}

void ReplyReader::read(ScriptParm *parms, bool opaque, const InRuns &in_runs) {
    for (ScriptParm *p = parms; p != nullptr; p = p->next) {
        // In records have nothing in the Reply, opaque or not.
        if (p->flags == PARM_IN) {
            ScriptParm *last = in_runs.run_from(p);
            if (last != nullptr) p = last;
            continue;
        }
        if (opaque) {
            read_opaque(p);
            if (env_.has_exception()) {
                _dmsg_x(env_, "do_call, get reply parameter");
                return;
            }
            continue;
        }
        if (!receives_value(p)) continue;
        // Tracing off, a plain value goes from the stream to its text with
        // no data area.
        bool plain = debug_level == 0 && is_plain_type(p->type);
        void *area = plain ? nullptr : newdataptr(p, place_);
        p->ptr = area;
        TRACE("vu_do_call:  (out) new dataptr at " PTR_FMT, ptrv(area));
        TRACE("vu_do_call:  flags=%d, type=%d", static_cast<int>(p->flags),
              static_cast<int>(p->type));
        TRACE("vu_do_call:  script parm name='%s', supertype=%d", nz(p->name),
              static_cast<int>(p->supertype));
        const char *name = p->name != nullptr ? p->name : "";
        if (p->supertype == tk_sequence) {
            const char *mark = find_flat_length(name);
            if (mark != nullptr) open_sequence(p, mark);
        }

        bool area_live = !plain;
        bool length_read = false;
        if (p->valuesize != 0) {
            TRACE("there");
            refuse_outside_block(env_);
        } else {
            TRACE("vu_do_call:  beginning unmarshalling");
            if (!stack_.empty() && passed_over(name)) {
                drop_area(p, place_);
                continue;
            }
            TRACE("vu_do_call:  get_value for script parm '%s'", nz(p->name));
            bool read = false;
            if (plain) {
                read = read_plain(p);
            } else if (decoder(get_typecodeptr(p->type), area, nullptr, &stream_, env_)) {
                getdata(p, place_, env_);
                // getdata hands a reference over to ptr, which no longer
                // designates the area.
                area_live = p->type != tk_objref;
                read = true;
            }
            if (read && !env_.has_exception() && !stack_.empty() && stack_.back().wire_len == -1) {
                length_read = true;
                Frame &top = stack_.back();
                top.wire_len = decimal_wrapping(p->strval);
                TRACE("vu_do_call:  on wire seq len=%d", static_cast<int>(top.wire_len));
                if (top.script_len < top.wire_len)
                    TRACE("vu_do_call:  ERROR -- %s%s", "returned sequence longer than ",
                          "script is prepared for");
                if (top.script_len > top.wire_len) {
                    TRACE("vu_do_call:  WARNING -- %s%s", "returned sequence shorter than ",
                          "script is prepared for");
                    if (top.wire_len == 0) {
                        TRACE("vu_do_call:  seq len 0");
                        TRACE("vu_do_call:  exiting");
                        if (area_live) drop_area(p, place_);
                        return;
                    }
                }
            }
        }
        if (env_.has_exception()) {
            _dmsg_x(env_, "do_call, get reply parameter");
            if (area_live) drop_area(p, place_);
            return;
        }
        if (area_live) drop_area(p, place_);
        if (length_read) {
            p = read_elements(p);
            if (env_.has_exception()) {
                _dmsg_x(env_, "do_call, get reply parameter");
                return;
            }
        }
    }
    TRACE("vu_do_call:  exiting");
}
}  // namespace

void vu_do_call(objrefdata *target, iiop_req *req, Environment &env, int32_t deferred) {
    TRACE("vu_do_call:  entering");
    bool opaque = false;
    GIOP::Invocation call(target, req->operation != nullptr ? req->operation : "", req->roundtrip);
    // A call whose reply is read here can be built and sent again.
    call.resend_when_closed = req->roundtrip != 0 && deferred == 0;
    env.clear();
    call.start(&profile_in_force(*target).object_key, env, 0, req->principal);
    if (env.has_exception()) {
        _dmsg_x(env, "do_call, start request message");
        return;
    }
    InRuns in_runs;
    for (uint32_t restarts = 0;; ++restarts) {
        in_runs.clear();
        for (ScriptParm *p = req->parms; p != nullptr; p = p->next) {
            // Untraced, plain out records only lose their data area.
            if (debug_level == 0 && p->flags == PARM_OUT && is_plain_type(p->type)) {
                while (p->next != nullptr && p->next->flags == PARM_OUT &&
                       is_plain_type(p->next->type)) {
                    p->ptr = nullptr;
                    p = p->next;
                }
                p->ptr = nullptr;
                continue;
            }
            if (debug_level == 0 && sends_word(p)) {
                ScriptParm *last = marshal_words(p, call.stream, in_runs);
                if (last != nullptr) {
                    p = last;
                    continue;
                }
            }
            if (!marshal_record(p, call.stream, env, opaque)) return;
            if (env.has_exception()) {
                _dmsg_x(env, "do_call, put request parameter");
                return;
            }
        }
        int status = call.invoke(no_user_exceptions, env, 0);
        if (env.has_exception()) {
            _dmsg_x(env, "do_call, invoke");
            return;
        }
        if (req->roundtrip == 0 || deferred == 1 || status == USER_EXCEPTION ||
            status == SYSTEM_EXCEPTION)
            return;
        TRACE("vu_do_call:  roundtrip=%d", static_cast<int>(req->roundtrip));
        if (status == NO_EXCEPTION) {
            ReplyReader(call.stream, env).read(req->parms, opaque, in_runs);
            return;
        }
        // A forward has moved the reference, or the peer closed the
        // connection: the Request is built again from the texts.
        if (restarts == limits::max_call_restarts) {
            TRACE("vu_do_call:  sent %u times without a reply, giving up", restarts + 1);
            set_error_text("request '%s' sent %u times without a reply", call.operation,
                           restarts + 1);
            raise_system(env, exid::COMM_FAILURE);
            _dmsg_x(env, "do_call, invoke");
            return;
        }
        call.start(&profile_in_force(*target).object_key, env, 0, req->principal);
        if (env.has_exception()) {
            _dmsg_x(env, "do_call, start request message");
            return;
        }
    }
}
