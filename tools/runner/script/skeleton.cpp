#include "tools/runner/script/skeleton.h"

#include <cctype>

#include "orbelle/host.h"
#include "orbelle/kinds.h"
#include "tools/runner/script/mistakes.h"
#include "tools/runner/script/values.h"

namespace runner {
namespace {

// Nesting of in sequences given a length of 1 so that their elements show;
// each level asks the library for the list once more.
constexpr int deepest_sequence = 8;
// Column at which a line's comment starts, when the line is shorter.
constexpr size_t comment_column = 44;

// A word made of letters, digits and underscores from text.
std::string identifier(const std::string &text) {
    std::string out;
    for (char c : text) {
        if (std::isalnum(static_cast<unsigned char>(c)))
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        else if (!out.empty() && out.back() != '_')
            out += '_';
    }
    while (!out.empty() && out.back() == '_') out.pop_back();
    return out.empty() ? "value" : out;
}

// The object's name: the interface's own name, in lower case.
std::string object_name(const std::string &repoid) {
    size_t last = repoid.rfind(':');
    std::string path =
        repoid.substr(0, last == 0 || last == std::string::npos ? repoid.size() : last);
    size_t slash = path.find_last_of("/:");
    return identifier(slash == std::string::npos ? path : path.substr(slash + 1));
}

void line(std::string &out, const std::string &code, const std::string &comment) {
    out += code;
    if (!comment.empty()) {
        out += std::string(code.size() < comment_column ? comment_column - code.size() : 1, ' ');
        out += "# " + comment;
    }
    out += '\n';
}

std::string type_comment(const ParmInfo &p) {
    if (p.is_length()) return "sequence length";
    if (p.name.size() > 14 && p.name.compare(p.name.size() - 14, 14, "^discriminator") == 0)
        return type_name(p.type) + ": the label of the member listed below";
    if (p.type == tk_enum) return "enum: a member's number, from 0";
    if (p.type == tk_boolean) return "boolean: 1 or 0";
    if (p.type == tk_objref) return "objref: an IOR text, e.g. ${saved}";
    if (p.type == tk_octet) return "octet: one byte, e.g. A or `ff`";
    return type_name(p.type);
}

// The sequence lengths that give every in sequence one element.
std::vector<std::pair<std::string, std::string>> lengths_for(Descriptions &descriptions,
                                                             const std::string &repoid,
                                                             const std::string &operation) {
    std::vector<std::pair<std::string, std::string>> lengths;
    for (int round = 0; round < deepest_sequence; ++round) {
        const ParmList &list = descriptions.parameters(repoid, operation, lengths);
        size_t before = lengths.size();
        for (const ParmInfo &p : list.parms) {
            if (!p.is_length() || p.flags == PARM_OUT) continue;
            bool known = false;
            for (const auto &given : lengths) known = known || given.first == p.name;
            if (!known) lengths.emplace_back(p.name, "1");
        }
        if (lengths.size() == before) break;
    }
    return lengths;
}

void write_operation(Descriptions &descriptions, const std::string &repoid,
                     const std::string &object, const Operation &op, std::string &out) {
    auto lengths = lengths_for(descriptions, repoid, op.name);
    const ParmList &list = descriptions.parameters(repoid, op.name, lengths);
    out += "\n# " + op.name + (op.oneway ? " (one-way: no reply)" : "") + "\n";
    std::string params = "params " + object + " " + op.name;
    for (const auto &length : lengths) params += " " + length.first + "=" + length.second;
    line(out, params, lengths.empty() ? "" : "one element for each sequence; change as needed");
    for (const ParmInfo &p : list.parms) {
        if (p.flags == PARM_OUT || p.is_length()) continue;
        std::string value = placeholder(p.type);
        if (value.empty())
            line(out, "# set " + p.name, type_name(p.type) + ": a script cannot give this type");
        else
            line(out, "set " + p.name + " " + value, type_comment(p));
    }
    out += op.oneway ? "invoke oneway\n" : "invoke\n";
    for (const ParmInfo &p : list.parms) {
        if (p.flags == PARM_IN) continue;
        std::string value = p.is_length() ? "0" : placeholder(p.type);
        if (!value.empty() && p.type != tk_objref)
            line(out, "# check " + p.name + " " + value, type_comment(p));
        line(out, "# save " + p.name + " " + identifier(p.name), "");
    }
}

}  // namespace

bool write_skeleton(Descriptions &descriptions, const std::string &repoid,
                    const std::vector<std::string> &operations, std::string &out,
                    std::string &why) {
    const Interface *ifc = descriptions.find_interface(repoid, why);
    if (ifc == nullptr) {
        why += did_you_mean(repoid, descriptions.known_ids());
        return false;
    }
    std::vector<Operation> chosen;
    for (const std::string &name : operations) {
        const Operation *op = ifc->find(name);
        if (op == nullptr && !is_well_known(name)) {
            why = "operation '" + name + "' is not one of " + repoid +
                  did_you_mean(name, ifc->operation_names());
            return false;
        }
        chosen.push_back(op != nullptr ? *op : Operation{name, false});
    }
    if (operations.empty()) chosen = ifc->operations;
    const std::string object = object_name(repoid);
    out = "# A script for " + repoid + ", written from " + ifc->path +
          " by orbelle-run --skeleton.\n"
          "# Give the bind line the object's instance and modus, replace the placeholder\n"
          "# values, and uncomment the checks you want; orbelle-run --check tells what is\n"
          "# still wrong before anything is sent.\n";
    line(out, "bind " + object + " " + repoid + " INSTANCE \"FILE(objects.iorlist)\"",
         "modus: IOR IOR:..., FILE(list), NameService(...)");
    for (const Operation &op : chosen) write_operation(descriptions, repoid, object, op, out);
    out += "\nrelease " + object + "\n";
    return true;
}

}  // namespace runner
