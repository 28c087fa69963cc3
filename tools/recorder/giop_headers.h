// The headers of GIOP 1.0, 1.1 and 1.2 messages as a server reads them:
// Requests (object key, also from a 1.2 TargetAddress of any kind),
// Replies, LocateRequests and LocateReplies, CancelRequests. Every length is
// checked against the message; nothing here allocates more than the
// message holds.
#ifndef ORBELLE_RECORDER_GIOP_HEADERS_H
#define ORBELLE_RECORDER_GIOP_HEADERS_H

#include <cstdint>
#include <string>

#include "tools/recorder/giop_framer.h"

namespace recorder {

struct GiopHeader {
    uint32_t request_id = 0;
    bool response_expected = false;  // Request, from the flag or 1.2's flags
    std::string object_key;          // Request, LocateRequest
    std::string operation;           // Request
    // How a 1.2 Request or LocateRequest named its target: 0 the key,
    // 1 a profile, 2 a reference (whose type id is kept).
    int target_kind = 0;
    std::string target_type_id;
    uint32_t status = 0;     // Reply's reply status, LocateReply's locate status
    size_t body_offset = 0;  // where the body starts in the message's bytes
};

// Reads the header of m (a Request, Reply, LocateRequest, LocateReply or
// CancelRequest). False with why set when the header does not fit the
// message or holds what no peer sends.
bool read_header(const GiopMessage &m, GiopHeader &h, std::string &why);

// The object key of an IIOP profile body (an encapsulation), or false.
bool iiop_profile_key(const std::string &profile, std::string &key);

}  // namespace recorder

#endif
