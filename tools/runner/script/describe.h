// What the interface descriptions (DIR/idl/*.csv) say about the operations a
// script calls: which operations an interface has, which are one-way, and
// the parameter records of a call, which the library itself lists through
// its door exactly as it will when the call runs.
#ifndef ORBELLE_RUNNER_SCRIPT_DESCRIBE_H
#define ORBELLE_RUNNER_SCRIPT_DESCRIBE_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/kit/hostkit.h"

namespace runner {

struct Operation {
    std::string name;
    bool oneway = false;
};

struct Interface {
    std::string repoid;
    std::string path;                   // the description read
    std::vector<Operation> operations;  // in the description's order
    const Operation *find(const std::string &name) const;
    std::vector<std::string> operation_names() const;
};

struct ParmInfo {
    std::string name;
    int32_t flags = 0;  // PARM_IN, PARM_OUT, PARM_INOUT
    int32_t type = 0;   // TCKind
    int32_t supertype = 0;
    // The record of a sequence's length (name^length), which the params
    // line gives.
    bool is_length() const;
};

struct ParmList {
    std::vector<ParmInfo> parms;
    // By name; the keys are the names held in parms, which never changes
    // once the list is made.
    std::unordered_map<std::string_view, size_t> index;
    const ParmInfo *find(const std::string &name) const;
    // The first names, as many as a suggestion looks at.
    std::vector<std::string> names() const;
};

// The operations the library answers for every interface (_is_a and the
// like), with no description.
bool is_well_known(const std::string &operation);

class Descriptions {
public:
    // dir is the folder that holds idl/ ("." as the library reads it).
    Descriptions(hostkit::Host &host, std::string dir = ".") : host_(host), dir_(std::move(dir)) {}

    // The interface of repoid, read once; null with the reason in why when
    // there is no readable description of it.
    const Interface *find_interface(const std::string &repoid, std::string &why);

    // The records of operation on repoid with the given sequence lengths
    // (name^length, N), as the library lists them; asked once per
    // different question.
    const ParmList &parameters(const std::string &repoid, const std::string &operation,
                               const std::vector<std::pair<std::string, std::string>> &lengths);

    // The description file that would describe repoid.
    std::string path_of(const std::string &repoid) const;
    // The interface ids of every description under dir/idl.
    std::vector<std::string> known_ids() const;

private:
    hostkit::Host &host_;
    std::string dir_;
    std::map<std::string, std::unique_ptr<Interface>> interfaces_;
    std::map<std::string, std::string> failures_;
    std::map<std::string, std::unique_ptr<ParmList>> lists_;
};

}  // namespace runner

#endif
