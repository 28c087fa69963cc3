// Catalogue messages: an id such as "MC_8_6_1" to the host catalogue's text.
#ifndef ORBELLE_CATALOGUE_H
#define ORBELLE_CATALOGUE_H

#include <cstddef>

#include "orbelle/host.h"

// The catalogue's identity and text for the id, as one text in a static
// 512-byte buffer that the next call overwrites. A caller copies it first.
const char *mc_msg(const char *id);

// A block of block_size bytes from vumalloc holding mc_msg(id), cut to fit
// and always terminated. The host owns it.
char *catalogue_block(const char *id, size_t block_size);

// Fails the record as the gateway itself: status 3, the given index and a
// status_text block of block_size bytes with the text of id. Returns 3.
int32_t gateway_failure(iiop_record *record, int32_t exception_index, const char *id,
                        size_t block_size);

#endif
