#include "gateway/getior.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "gateway/catalogue.h"
#include "orbelle/limits.h"
#include "orbelle/vbagent.h"
#include "platform/dynload.h"
#include "platform/platform.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

int32_t ior_modus_tried = 0;

namespace {
// Catalogue messages composed with arguments are cut to this size.
constexpr size_t message_buffer_size = 500;
// The interface that VisibrokerNameService asks the agent for.
constexpr const char naming_context_id[] = "IDL:omg.org/CosNaming/NamingContext:1.0";

std::string ior_result;
std::string name_service_reference;
// The one side library of the process, kept once loaded; the two agent
// kinds share whichever was loaded first.
void *vb_library = nullptr;
iiop_vb_find_ior_fn vb_find_ior = nullptr;

enum class kind { none, ior, file, name_service, visibroker_name_service, visibroker };

struct keyword {
    const char *text;
    kind which;
};
// Searched in this order: the first keyword that heads the alternative wins.
const keyword keywords[] = {
    {"IOR", kind::ior},
    {"FILE", kind::file},
    {"NameService", kind::name_service},
    {"VisibrokerNameService", kind::visibroker_name_service},
    {"Visibroker", kind::visibroker},
};

char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// True when text begins with word, letters compared without their case.
bool heads(const char *text, const char *word) {
    for (; *word != '\0'; ++text, ++word)
        if (*text == '\0' || lower(*text) != lower(*word)) return false;
    return true;
}

kind kind_of(const char *alternative) {
    for (const keyword &k : keywords)
        if (heads(alternative, k.text)) return k.which;
    return kind::none;
}

// The argument in parentheses: from behind the first "(" to the first ")",
// or to the end when that ")" stands ahead of the "(". False when either is
// missing.
bool argument_of(const char *alternative, std::string *argument) {
    const char *open = std::strchr(alternative, '(');
    const char *close = std::strchr(alternative, ')');
    if (open == nullptr || close == nullptr) return false;
    if (close < open)
        argument->assign(open + 1);
    else
        argument->assign(open + 1, static_cast<size_t>(close - open - 1));
    return true;
}

// Prints a catalogue message composed with two texts, cut to the buffer.
void print_catalogue(const char *id, const char *first, const char *second = "") {
    char line[message_buffer_size];
    // The catalogue text is the host's format for these arguments.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(line, sizeof line, mc_msg(id), nz(first), nz(second));
#pragma GCC diagnostic pop
    vuprint(line);
}

// Reads one line without its end into *line: a newline, or a carriage
// return and a newline as text mode on the other platform reads them. False
// at the end of the file and for a line longer than limits::max_list_line. Bytes
// behind a NUL are not part of the line's text.
bool read_list_line(std::FILE *file, std::string *line) {
    line->clear();
    int c;
    while ((c = platform::getc_unlocked(file)) != EOF) {
        if (c == '\n') break;
        if (c == '\r') {
            int next = platform::getc_unlocked(file);
            if (next == '\n') break;
            if (next != EOF) std::ungetc(next, file);
        }
        if (line->size() == limits::max_list_line) return false;
        line->push_back(static_cast<char>(c));
    }
    if (c == EOF && line->empty()) return false;
    line->resize(std::strlen(line->c_str()));
    return true;
}

// Loads the side library named file_name unless one is loaded, and finds its
// lookup function. A library without the function counts as not loaded.
bool vb_library_ready(const char *file_name) {
    std::string path;
    bool rooted = platform::agent_library_path(file_name, &path);
    TRACE("get_ior:  dllpath=[%s]", path.c_str());
    if (vb_library != nullptr) return true;
    void *library = rooted ? platform::load_library(path.c_str()) : nullptr;
    void *function = platform::find_symbol(library, IIOP_VB_FIND_IOR_NAME);
    if (function == nullptr) {
        platform::unload_library(library);
        TRACE("get_ior:  Visibroker modus failed, unable to load");
        TRACE("          %s", path.c_str());
        return false;
    }
    vb_library = library;
    vb_find_ior = reinterpret_cast<iiop_vb_find_ior_fn>(function);
    return true;
}

const char *ior_kind(const iiop_record *record) {
    TRACE("get_ior:  IOR modus");
    ++ior_modus_tried;
    if (record->u.bind.ior == nullptr) {
        TRACE("get_ior:  IOR modus, but no IOR supplied");
        return ior_result.c_str();
    }
    return record->u.bind.ior;
}

const char *file_kind(const iiop_record *record, const char *alternative) {
    std::string file_name;
    if (!argument_of(alternative, &file_name)) {
        TRACE("get_ior:  Bad file modus.  Expected FILE(filename), got '%s'", alternative);
        return ior_result.c_str();
    }
    TRACE("get_ior:  File modus");
    ior_result = findiorinfile(record->u.bind.repository_id, file_name.c_str());
    return ior_result.c_str();
}

const char *name_service_kind(const char *alternative) {
    std::string reference;
    if (!argument_of(alternative, &reference)) {
        TRACE("get_ior:  Bad NameService modus.");
        TRACE("get_ior:  Expected NameService(IOR), got '%s'", alternative);
        return ior_result.c_str();
    }
    name_service_reference = reference;
    TRACE("get_ior:  NameService modus");
    ior_result = name_service_marker;
    return ior_result.c_str();
}

const char *visibroker_kind(const iiop_record *record, const char *alternative) {
    TRACE("get_ior:  Visibroker modus");
    if (!vb_library_ready("brokvane.dll")) return ior_result.c_str();
    TRACE("get_ior:  Visibroker modus successfully loaded brokvane.dll");
    std::string port;
    if (std::strchr(alternative, '(') == nullptr) {
        TRACE("get_ior:  Visibroker modus, default agent port 14000");
    } else if (!argument_of(alternative, &port)) {
        TRACE("get_ior:  Visibroker modus malformed, %s", "default agent port 14000");
    } else {
        TRACE("get_ior:  Visibroker modus, agent port %s", port.c_str());
    }
    const char *found = vb_find_ior(record->u.bind.repository_id, record->u.bind.instance_id,
                                    vuprint_slot(), port.c_str());
    if (found != nullptr) {
        TRACE("get_ior:  iorfound=%s", found);
        ior_result = found;
        return ior_result.c_str();
    }
    print_catalogue("MC_8_6_6", record->u.bind.repository_id, record->u.bind.instance_id);
    vuprint(mc_msg("MC_8_6_7"));
    return ior_result.c_str();
}

const char *visibroker_name_service_kind(const char *alternative) {
    std::string instance;
    if (!argument_of(alternative, &instance)) {
        TRACE("get_ior:  Bad VisibrokerNameService modus.");
        TRACE("get_ior:  Expected VisibrokerNameService(instance), got '%s'", alternative);
        return ior_result.c_str();
    }
    TRACE("get_ior:  VisibrokerNameService modus");
    if (!vb_library_ready("oldvane.dll")) return ior_result.c_str();
    // Names brokvane.dll whichever of the two files is loaded.
    TRACE("get_ior:  VisibrokerNameService modus successfully loaded %s", "brokvane.dll");
    const char *found = vb_find_ior(naming_context_id, instance.c_str(), vuprint_slot(), "");
    if (found == nullptr) {
        TRACE("get_ior:  No match found for repo id '%s'", naming_context_id);
        TRACE("          and instance id '%s'", instance.c_str());
        return ior_result.c_str();
    }
    TRACE("get_ior:  VisibrokerNameService modus successfully");
    TRACE("          matched repo id '%s'", naming_context_id);
    TRACE("          and instance id '%s'", instance.c_str());
    TRACE("get_ior:  IOR=%s", found);
    name_service_reference = found;
    ior_result = name_service_marker;
    return ior_result.c_str();
}
}  // namespace

const char *get_ior(const iiop_record *record, const char *alternative) {
    ior_result.clear();
    if (alternative == nullptr) alternative = "";
    switch (kind_of(alternative)) {
        case kind::ior:
            return ior_kind(record);
        case kind::file:
            return file_kind(record, alternative);
        case kind::name_service:
            return name_service_kind(alternative);
        case kind::visibroker_name_service:
            return visibroker_name_service_kind(alternative);
        case kind::visibroker:
            return visibroker_kind(record, alternative);
        case kind::none:
            break;
    }
    print_catalogue("MC_8_6_8", alternative);
    return ior_result.c_str();
}

std::string findiorinfile(const char *repository_id, const char *file_name) {
    std::FILE *file = std::fopen(file_name, "r");
    if (file == nullptr) {
        TRACE("findiorinfile:  can't open '%s': %s\n", file_name, std::strerror(errno));
        return std::string();
    }
    std::string result;
    std::string line;
    for (;;) {
        if (!read_list_line(file, &line)) {
            TRACE("findiorinfile:  no match in '%s' for %s\n", file_name, nz(repository_id));
            break;
        }
        size_t comma = line.find(',');
        if (comma == std::string::npos) {
            TRACE("findiorinfile:  line has no , delimiter\n");
            continue;
        }
        if (repository_id == nullptr || line.compare(0, comma, repository_id) != 0) continue;
        TRACE("findiorinfile:  IOR match found for repository_id '%s'", repository_id);
        result = line.substr(comma + 1);
        break;
    }
    std::fclose(file);
    return result;
}

const char *name_service_ior() { return name_service_reference.c_str(); }
