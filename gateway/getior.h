// Binding alternatives: one piece of a modus, such as IOR, FILE(list),
// NameService(IOR), Visibroker(port) or VisibrokerNameService(instance),
// turned into the text of an object reference. Nothing here contacts a
// server or raises an exception: every failure gives the empty text.
#ifndef ORBELLE_GETIOR_H
#define ORBELLE_GETIOR_H

#include <cstdint>
#include <string>

#include "orbelle/host.h"

// A result of get_ior that is no reference: ask the naming service whose
// reference name_service_ior() holds.
constexpr const char name_service_marker[] = "NameService";

// Alternatives of the kind "IOR" tried since the bind set it to 0; a bind
// falls back to the record's ior only while it is 0.
extern int32_t ior_modus_tried;

// The reference text for one trimmed alternative, reading repository_id,
// instance_id and ior of the record's bind arguments: a reference, the
// marker, or the empty text. Never null. Valid until the next get_ior; the
// caller copies it.
const char *get_ior(const iiop_record *record, const char *alternative);

// The reference text behind the first comma of the first line of the list
// file whose text ahead of the comma equals repository_id; the empty text when
// there is none or the file can't be read.
std::string findiorinfile(const char *repository_id, const char *file_name);

// The naming service's reference of the latest alternative that named one.
// Meaningful directly after a get_ior that returned the marker.
const char *name_service_ior();

#endif
