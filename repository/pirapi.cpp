#include "repository/pirapi.h"

#include <cstring>
#include <memory>

#include "repository/pirassert.h"
#include "repository/pircsv.h"

namespace {
PirParNod *first_parameter_from(const std::vector<PirNod *> &children, size_t from) {
    for (size_t i = from; i < children.size(); ++i)
        if (children[i]->kind == pirParKind) return static_cast<PirParNod *>(children[i]);
    return nullptr;
}

PirTypNod *first_type(PirNod *node) {
    if (node->children.empty()) return nullptr;
    return static_cast<PirTypNod *>(node->children.front());
}
}  // namespace

std::string PirInterfacePath(const char *scrDir, const char *repId) {
    PIR_ASSERT(scrDir != 0);
    PIR_ASSERT(repId != 0);
    if (std::strncmp(repId, "IDL:", 4) != 0) throw PirException("invalid repId");
    const char *first = std::strchr(repId, ':');
    const char *last = std::strrchr(repId, ':');
    // Without a version part the first colon is also the last one, and the
    // stem runs to the end.
    std::string stem = first == last ? std::string(first + 1) : std::string(first + 1, last);
    for (char &c : stem)
        if (c == '/') c = '-';
    return std::string(scrDir) + "/idl/" + stem + ".csv";
}

PirIntNod *PirGetInterface(const char *scrDir, const char *repId) {
    PIR_ASSERT(scrDir != 0);
    PIR_ASSERT(repId != 0);
    std::string path = PirInterfacePath(scrDir, repId);
    return PirReadInterfaceFile(path.c_str());
}

PirIntNod *PirReadInterfaceFile(const char *filNam) {
    PIR_ASSERT(filNam != 0);
    PirCsvFile file;
    file.read(filNam);
    if (file.empty()) throw PirException(".csv is empty");
    auto ifc = std::make_unique<PirIntNod>();
    file.parse(ifc.get());
    return ifc.release();
}

void PirFreeInterface(PirIntNod *ifc) {
    PIR_ASSERT(ifc != 0);
    delete ifc;
}

PirOprNod *PirGetOperation(PirIntNod *ifc, const char *oprNam) {
    PIR_ASSERT(ifc != 0);
    PIR_ASSERT(oprNam != 0);
    for (PirNod *child : ifc->children) {
        if (child->kind != pirOprKind) continue;
        auto *opr = static_cast<PirOprNod *>(child);
        if (opr->oprNam == oprNam) return opr;
    }
    throw PirException("operation not found");
}

PirResNod *PirGetResult(PirOprNod *opr) {
    PIR_ASSERT(opr != 0);
    for (PirNod *child : opr->children)
        if (child->kind == pirResKind) return static_cast<PirResNod *>(child);
    throw PirException("result not found");
}

PirParNod *PirGetFirstParameter(PirOprNod *opr) {
    PIR_ASSERT(opr != 0);
    return first_parameter_from(opr->children, 0);
}

PirParNod *PirGetNextParameter(PirParNod *par) {
    PIR_ASSERT(par != 0);
    PirNod *opr = par->parent;
    if (opr == nullptr) return nullptr;
    const std::vector<PirNod *> &children = opr->children;
    // The node knows its place, which keeps a walk over all parameters
    // linear; a node placed by other means is searched for.
    size_t at = par->position;
    if (at >= children.size() || children[at] != par) {
        at = 0;
        while (at < children.size() && children[at] != par) ++at;
        if (at == children.size()) return nullptr;
    }
    return first_parameter_from(children, at + 1);
}

PirTypNod *PirGetResultType(PirResNod *res) {
    PIR_ASSERT(res != 0);
    return first_type(res);
}

PirTypNod *PirGetParameterType(PirParNod *par) {
    PIR_ASSERT(par != 0);
    return first_type(par);
}
