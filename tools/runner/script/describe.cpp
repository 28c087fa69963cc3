#include "tools/runner/script/describe.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "orbelle/kinds.h"
#include "orbelle/limits.h"

namespace runner {
namespace {

const char *const well_known[] = {"_get_implementation", "_get_interface", "_is_a",
                                  "_non_existent"};

// Longest description line looked at; the library refuses tokens past 255
// characters, so an operation line is far shorter.
constexpr size_t longest_line = 1 << 16;

}  // namespace

bool is_well_known(const std::string &operation) {
    for (const char *name : well_known)
        if (operation == name) return true;
    return false;
}

const Operation *Interface::find(const std::string &name) const {
    for (const Operation &op : operations)
        if (op.name == name) return &op;
    return nullptr;
}

std::vector<std::string> Interface::operation_names() const {
    std::vector<std::string> names;
    for (const Operation &op : operations) names.push_back(op.name);
    for (const char *name : well_known) names.push_back(name);
    return names;
}

bool ParmInfo::is_length() const {
    static const std::string suffix = "^length";
    return supertype == tk_sequence && name.size() > suffix.size() &&
           name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
}

const ParmInfo *ParmList::find(const std::string &name) const {
    auto it = index.find(name);
    return it == index.end() ? nullptr : &parms[it->second];
}

std::vector<std::string> ParmList::names() const {
    std::vector<std::string> out;
    for (size_t i = 0; i < parms.size() && i < limits::max_suggestion_candidates; ++i)
        out.push_back(parms[i].name);
    return out;
}

std::string Descriptions::path_of(const std::string &repoid) const {
    // As the library names it: the part between the first and the last colon,
    // slashes made dashes.
    size_t first = repoid.find(':'), last = repoid.rfind(':');
    std::string stem =
        first == last ? repoid.substr(first + 1) : repoid.substr(first + 1, last - first - 1);
    for (char &c : stem)
        if (c == '/') c = '-';
    return dir_ + "/idl/" + stem + ".csv";
}

std::vector<std::string> Descriptions::known_ids() const {
    std::vector<std::string> ids;
    std::error_code ec;
    std::filesystem::directory_iterator it(dir_ + "/idl", ec), end;
    for (; !ec && it != end; it.increment(ec)) {
        const std::filesystem::path &p = it->path();
        if (p.extension() != ".csv") continue;
        std::string stem = p.stem().string();
        for (char &c : stem)
            if (c == '-') c = '/';
        ids.push_back("IDL:" + stem + ":1.0");
    }
    return ids;
}

const Interface *Descriptions::find_interface(const std::string &repoid, std::string &why) {
    auto found = interfaces_.find(repoid);
    if (found != interfaces_.end()) return found->second.get();
    auto failed = failures_.find(repoid);
    if (failed != failures_.end()) {
        why = failed->second;
        return nullptr;
    }
    auto fail = [&](const std::string &reason) -> const Interface * {
        why = failures_[repoid] = reason;
        return nullptr;
    };
    if (repoid.rfind("IDL:", 0) != 0)
        return fail("'" + repoid + "' is not an interface id: IDL:Module/Interface:1.0");
    auto ifc = std::make_unique<Interface>();
    ifc->repoid = repoid;
    ifc->path = path_of(repoid);
    std::ifstream in(ifc->path, std::ios::binary);
    if (!in) return fail("no description of " + repoid + ": cannot read " + ifc->path);
    // Operation lines: "opr ID NAME normal|oneway"; the rest is the
    // library's to read.
    std::string line;
    while (std::getline(in, line)) {
        if (line.size() > longest_line || line.compare(0, 4, "opr ") != 0) continue;
        std::istringstream words(line);
        std::string keyword, id, name, mode;
        if (!(words >> keyword >> id >> name)) continue;
        words >> mode;
        ifc->operations.push_back(Operation{name, mode == "oneway"});
    }
    if (ifc->operations.empty())
        return fail("the description " + ifc->path + " of " + repoid + " names no operation");
    return interfaces_.emplace(repoid, std::move(ifc)).first->second.get();
}

const ParmList &Descriptions::parameters(
    const std::string &repoid, const std::string &operation,
    const std::vector<std::pair<std::string, std::string>> &lengths) {
    std::string key = repoid + '\n' + operation;
    for (const auto &length : lengths) key += '\n' + length.first + '=' + length.second;
    auto found = lists_.find(key);
    if (found != lists_.end()) return *found->second;
    hostkit::Plist plist;
    for (const auto &length : lengths) plist.set(length.first, length.second.c_str());
    iiop_req req{};
    iiop_target target{};
    host_.get_parms(req, target, repoid.c_str(), operation.c_str(), &plist);
    auto list = std::make_unique<ParmList>();
    for (const ScriptParm *p = req.parms; p != nullptr; p = p->next)
        if (p->name != nullptr)
            list->parms.push_back(ParmInfo{p->name, p->flags, p->type, p->supertype});
    hostkit::free_list(req.parms);
    list->index.reserve(list->parms.size());
    for (size_t i = 0; i < list->parms.size(); ++i) list->index.emplace(list->parms[i].name, i);
    return *lists_.emplace(key, std::move(list)).first->second;
}

}  // namespace runner
