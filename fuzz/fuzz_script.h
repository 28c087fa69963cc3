// Set-up shared by the targets that run a script's requests through the door
// against the scripted network of fuzz_common.h, with the parameter lists of
// the demo bank's descriptions.
#ifndef ORBELLE_FUZZ_SCRIPT_H
#define ORBELLE_FUZZ_SCRIPT_H

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/fuzz_common.h"

namespace fuzz {

// Ports of the scripted servers.
constexpr uint16_t kServerPort = 7001;
constexpr uint16_t kForwardPort = 7002;
constexpr uint16_t kNamingPort = 7003;

struct Operation {
    std::string repo_id;
    std::string name;
};

// Once per process: a working folder of its own whose idl/ holds copies of
// the demo's descriptions (the library reads idl/ of the current folder),
// removed at exit; and every operation they list.
struct Workdir {
    std::string path;
    std::vector<Operation> operations;
};

inline const Workdir &workdir() {
    static const Workdir made = [] {
        namespace fs = std::filesystem;
        char dir[] = "/tmp/orbelle-fuzz-XXXXXX";
        if (mkdtemp(dir) == nullptr) std::abort();
        static const std::string removed_at_exit = dir;
        std::atexit([] {
            std::error_code ignored;
            fs::remove_all(removed_at_exit, ignored);
        });
        fs::create_directories(fs::path(dir) / "idl");
        // In name order, so that an operation's index is the same everywhere.
        std::vector<fs::path> files;
        for (const auto &file : fs::directory_iterator(ORBELLE_SOURCE_DIR "/demo/idl"))
            files.push_back(file.path());
        std::sort(files.begin(), files.end());
        Workdir out{dir, {}};
        for (const fs::path &file : files) {
            fs::copy_file(file, fs::path(dir) / "idl" / file.filename());
            std::ifstream in(file);
            std::string line, repo_id;
            while (std::getline(in, line)) {
                if (repo_id.empty() && line.find(", IDL:") != std::string::npos)
                    repo_id = line.substr(line.find(", IDL:") + 2);
                std::istringstream words(line);
                std::string record, id, name;
                if (words >> record >> id >> name && record == "opr")
                    out.operations.push_back({repo_id, name});
            }
        }
        // The operations every interface has without a description, and
        // one that no description knows.
        for (const char *name :
             {"_is_a", "_non_existent", "_get_interface", "_get_implementation", "unknown_op"})
            out.operations.push_back({"IDL:Banking/Account:1.0", name});
        return out;
    }();
    return made;
}

// The working folder is current while one input runs, and only then: the
// fuzzer's own paths (corpus, artifacts) are relative to where it started.
class InWorkdir {
public:
    InWorkdir() : previous_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (previous_ < 0 || chdir(workdir().path.c_str()) != 0) std::abort();
    }
    ~InWorkdir() {
        if (fchdir(previous_) != 0) std::abort();
        close(previous_);
    }
    InWorkdir(const InWorkdir &) = delete;
    InWorkdir &operator=(const InWorkdir &) = delete;

private:
    int previous_;
};

inline const Operation &operation(uint8_t index) {
    return workdir().operations[index % workdir().operations.size()];
}

// A request of a script: the operation's parameter list as the door makes
// it, with every sequence length set to length (so the list shows that many
// elements), and the request block that carries it. The door makes each list
// once (reading a description costs more than the call); each input gets a
// copy of its own.
class ScriptCall {
public:
    ScriptCall(const Operation &op, int length, int32_t flags) {
        req.parms = hostkit::copy_list(made_list(op, length));
        target.repoid = const_cast<char *>(op.repo_id.c_str());
        req.target = &target;
        req.operation = const_cast<char *>(op.name.c_str());
        req.flags = flags;
    }
    // Appends the record that carries raw bytes: an inout "*", whose text in
    // byte notation goes out as it is, and which takes the rest of a Reply.
    void add_opaque(const std::string &text) {
        ScriptParm **tail = &req.parms;
        while (*tail != nullptr) tail = &(*tail)->next;
        *tail = static_cast<ScriptParm *>(std::calloc(1, sizeof(ScriptParm)));
        (*tail)->flags = PARM_INOUT;
        (*tail)->type = tk_string;
        (*tail)->name = strdup("*");
        (*tail)->strval = strdup(text.c_str());
    }
    ~ScriptCall() {
        hostkit::Host(_iiop_entry).release_references(req.parms);
        hostkit::free_list(req.parms);
    }
    ScriptCall(const ScriptCall &) = delete;
    ScriptCall &operator=(const ScriptCall &) = delete;

    iiop_target target{};
    iiop_req req{};

private:
    static const ScriptParm *made_list(const Operation &op, int length) {
        // Never destroyed, so the lists stay reachable to the leak check at exit.
        static auto &made = *new std::map<std::pair<std::string, int>, ScriptParm *>;
        auto key = std::make_pair(op.repo_id + " " + op.name, length);
        auto it = made.find(key);
        if (it != made.end()) return it->second;
        // Lengths show only once the length outside them is set: ask again
        // while new ones show (bounded: nesting in the descriptions is shallow).
        hostkit::Plist plist;
        std::vector<std::string> lengths;
        ScriptParm *list = nullptr;
        for (int round = 0; round < 4; ++round) {
            iiop_req r{};
            iiop_target t{};
            hostkit::Host(_iiop_entry).get_parms(r, t, op.repo_id.c_str(), op.name.c_str(), &plist);
            hostkit::free_list(list);
            list = r.parms;
            size_t before = lengths.size();
            for (const std::string &n : hostkit::names(list))
                if (length > 0 && n.size() > 7 && n.compare(n.size() - 7, 7, "^length") == 0 &&
                    std::find(lengths.begin(), lengths.end(), n) == lengths.end()) {
                    lengths.push_back(n);
                    plist.set(n, std::to_string(length).c_str());
                }
            if (lengths.size() == before) break;
        }
        return made[key] = list;
    }
};

// Binds through the door to the scripted server at port; null on failure.
inline void *bind_to(uint16_t port, const char *repo_id) {
    std::string ior = "iiop:1.0//127.0.0.1:" + std::to_string(port) + "/key";
    return bind(repo_id, "one", "IOR", ior.c_str());
}

// Runs a request operation (IIOP_INVOKE, IIOP_GET_RESPONSE) through the
// door, giving the record's texts back to the heap.
inline int32_t door(int32_t op, iiop_req &req, int32_t timeout_ms = 1000) {
    iiop_record r = hostkit::make_record(op);
    r.u.invoke.req = &req;
    r.timeout_ms = timeout_ms;
    int32_t status = _iiop_entry(&r);
    std::free(r.status_text);
    std::free(r.u.invoke.connect_host);
    return status;
}

}  // namespace fuzz

#endif
