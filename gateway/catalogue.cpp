#include "gateway/catalogue.h"

#include <cstdio>
#include <cstring>

#include "host/tellcat/tellcat.h"
#include "trace/host_slots.h"

namespace {
constexpr size_t mc_buffer_size = 512;
// At most this much of a message text is appended behind its identity.
constexpr size_t mc_text_limit = 500;
char mc_buffer[mc_buffer_size];

// Appends at most limit bytes of text behind what buffer holds, never past
// its end; the buffer stays terminated.
void append_bounded(char *buffer, size_t capacity, const char *text, size_t limit) {
    size_t used = std::strlen(buffer);
    size_t room = capacity - 1 - used;
    size_t n = text ? std::strlen(text) : 0;
    if (n > limit) n = limit;
    if (n > room) n = room;
    std::memcpy(buffer + used, text, n);
    buffer[used + n] = '\0';
}
}  // namespace

const char *mc_msg(const char *id) {
    int a = 0, b = 0, c = 0;
    std::sscanf(id, "%*c%*c%*c%d%*c%d%*c%d", &a, &b, &c);
    mc_buffer[0] = '\0';
    append_bounded(mc_buffer, mc_buffer_size, mc_get_msg_identity(0, a, b, c), mc_buffer_size);
    append_bounded(mc_buffer, mc_buffer_size, mc_get_msg_text(a, b, c), mc_text_limit);
    return mc_buffer;
}

char *catalogue_block(const char *id, size_t block_size) {
    char *block = static_cast<char *>(vumalloc(block_size));
    if (block == nullptr) return nullptr;
    block[0] = '\0';
    append_bounded(block, block_size, mc_msg(id), block_size);
    return block;
}

int32_t gateway_failure(iiop_record *record, int32_t exception_index, const char *id,
                        size_t block_size) {
    record->status = IIOP_STATUS_GATEWAY_FAILURE;
    record->exception_index = exception_index;
    record->status_text = catalogue_block(id, block_size);
    return IIOP_STATUS_GATEWAY_FAILURE;
}
