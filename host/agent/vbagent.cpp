// Stand-in for an agent side library of the host's installation. Built twice,
// as brokvane.dll and oldvane.dll (AGENT_NAME tells which), it answers
// iiop_vb_find_ior from a plain-text agent directory instead of an agent on
// the network.
//
// The directory is the file named by ZANTH_AGENT_DIRECTORY, or else
// $ZANTH_HOME/shlib/iiop/agents.txt. One entry per line, four fields
// separated by blanks, the last running to the end of the line:
//
//     <agent port> <repository id> <instance id> <reference text>
//
// Empty lines and lines starting with '#' are passed over. An entry answers
// when its port equals the port asked for (the empty port means 14000), its
// repository id equals the one asked for, and its instance id equals the
// one asked for; a null or empty instance id asked for accepts any. The
// first such entry wins.
#include "orbelle/vbagent.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#ifndef AGENT_NAME
#define AGENT_NAME "brokvane"
#endif

namespace {
// Lines printed through the host are cut to this size.
constexpr size_t line_size = 1024;
// The answer of the latest call, kept for the caller until the next one.
std::string answer;

template <typename... Args>
void say(vuprint_fn print, const char *format, Args... args) {
    if (print == nullptr) return;
    char line[line_size];
    std::snprintf(line, sizeof line, format, args...);
    print(line);
}

std::string directory_path() {
    if (const char *named = std::getenv("ZANTH_AGENT_DIRECTORY")) return named;
    const char *root = std::getenv("ZANTH_HOME");
    return std::string(root ? root : "") + "/shlib/iiop/agents.txt";
}

struct entry {
    std::string port, repository_id, instance_id, reference;
};

bool parse(const std::string &line, entry *e) {
    std::istringstream in(line);
    if (!(in >> e->port >> e->repository_id >> e->instance_id)) return false;
    std::getline(in >> std::ws, e->reference);
    return !e->reference.empty();
}
}  // namespace

extern "C" IIOP_VB_EXPORT const char *iiop_vb_find_ior(const char *repository_id,
                                                       const char *instance_id, vuprint_fn print,
                                                       const char *agent_port) {
    std::string port = (agent_port && *agent_port) ? agent_port : IIOP_VB_DEFAULT_AGENT_PORT;
    const char *wanted_instance = instance_id ? instance_id : "";
    say(print, AGENT_NAME ":  asking agent, port='%s' repository id='%s' instance id='%s'",
        agent_port ? agent_port : "NULL", repository_id ? repository_id : "NULL", wanted_instance);
    if (repository_id == nullptr) return nullptr;

    std::string path = directory_path();
    std::ifstream directory(path);
    if (!directory) {
        say(print, AGENT_NAME ":  cannot read agent directory '%s'", path.c_str());
        return nullptr;
    }
    std::string line;
    entry e;
    while (std::getline(directory, line)) {
        if (line.empty() || line[0] == '#' || !parse(line, &e)) continue;
        if (e.port != port || e.repository_id != repository_id) continue;
        if (*wanted_instance != '\0' && e.instance_id != wanted_instance) continue;
        answer = e.reference;
        say(print, AGENT_NAME ":  agent at port %s answered with instance '%s'", port.c_str(),
            e.instance_id.c_str());
        return answer.c_str();
    }
    say(print, AGENT_NAME ":  agent at port %s knows no such object", port.c_str());
    return nullptr;
}
