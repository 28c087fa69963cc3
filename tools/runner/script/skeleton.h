// A script to start from: written from an interface's description, it binds
// an object and calls each operation once, with a placeholder for every
// value to give and commented checks for every value that comes back.
#ifndef ORBELLE_RUNNER_SCRIPT_SKELETON_H
#define ORBELLE_RUNNER_SCRIPT_SKELETON_H

#include <string>
#include <vector>

#include "tools/runner/script/describe.h"

namespace runner {

// The script for repoid and the named operations (every operation of the
// description when none is named), in out. False with the reason in why
// when there is no description or an operation named is not in it.
bool write_skeleton(Descriptions &descriptions, const std::string &repoid,
                    const std::vector<std::string> &operations, std::string &out, std::string &why);

}  // namespace runner

#endif
