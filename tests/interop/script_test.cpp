// A script's whole road against the omniORB echo server: bind by reference
// text or through omniNames, parameter lists from the interface's
// description, requests of every kind through the door.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "gateway/report.h"
#include "giop/invocation.h"
#include "giop/objref.h"
#include "giop/waitlist.h"
#include "tests/interop/echo_fixture.h"
#include "tests/support.h"

namespace {

constexpr char repoid[] = "IDL:EchoTest/Echo:1.0";

struct Script : ::testing::Test {
    Script() : host(testsupport::linked_host()) {
        std::ifstream in(testsupport::data_path("idl/EchoTest-Echo.csv"));
        std::stringstream text;
        text << in.rdbuf();
        dir.write("idl/EchoTest-Echo.csv", text.str());
    }
    ~Script() override {
        while (wait_list != nullptr) wait_list_remove(wait_list->req);
        for (ScriptParm *list : lists) hostkit::free_list(list);
        for (void *obj : bound) {
            iiop_record r = hostkit::make_record(IIOP_RELEASE);
            r.u.release.objref = obj;
            host.call(r);
        }
    }
    void *bind(const std::string &modus, const std::string &ior, const char *instance = "echo") {
        iiop_record r = hostkit::make_record(IIOP_BIND);
        r.u.bind.repository_id = const_cast<char *>(repoid);
        r.u.bind.instance_id = const_cast<char *>(instance);
        r.u.bind.modus = const_cast<char *>(modus.c_str());
        r.u.bind.ior = const_cast<char *>(ior.c_str());
        if (host.call(r) != IIOP_OK) {
            std::free(r.status_text);
            return nullptr;
        }
        bound_modus = r.u.bind.bound_modus;
        std::free(r.u.bind.bound_modus);
        bound.push_back(r.u.bind.objref);
        return r.u.bind.objref;
    }
    // The operation's list from its description, with the given values.
    iiop_req &prepare(void *obj, const char *operation, int32_t flags,
                      std::vector<std::pair<std::string, std::string>> values = {},
                      hostkit::Plist *plist = nullptr) {
        reqs.emplace_back();
        targets.emplace_back();
        iiop_req &req = reqs.back();
        host.get_parms(req, targets.back(), repoid, operation, plist);
        lists.push_back(req.parms);
        for (auto &v : values)
            EXPECT_TRUE(hostkit::set_value(req.parms, v.first.c_str(), v.second.c_str()))
                << v.first;
        targets.back().objref = obj;
        req.flags = flags;
        return req;
    }
    int32_t call(int32_t op, iiop_req &req, int32_t timeout = 5000) {
        iiop_record r = hostkit::make_record(op);
        r.u.invoke.req = &req;
        r.timeout_ms = timeout;
        int32_t result = host.call(r);
        status = r.status;
        index = r.exception_index;
        text = r.status_text != nullptr ? r.status_text : "";
        std::free(r.status_text);
        std::free(r.u.invoke.connect_host);
        return result;
    }
    static std::string value(const iiop_req &req, const char *name) {
        const char *v = hostkit::value(req.parms, name);
        return v != nullptr ? v : "NULL";
    }

    hostkit::Host host;
    testsupport::TempDir dir;
    std::deque<iiop_req> reqs;
    std::deque<iiop_target> targets;
    std::vector<ScriptParm *> lists;
    std::vector<void *> bound;
    std::string bound_modus, text;
    int32_t status = 0, index = 0;
};

TEST_F(Script, EveryOperationOfTheEchoServerRunsThroughTheDoor) {
    interop::EchoServer server;
    ASSERT_TRUE(server.running());
    void *obj = bind("IOR", server.ior());
    ASSERT_NE(obj, nullptr);

    iiop_req &l = prepare(obj, "echoLong", IIOP_TWOWAY, {{"value", "-2147483648"}});
    ASSERT_EQ(call(IIOP_INVOKE, l), IIOP_OK) << text;
    EXPECT_EQ(value(l, "^echoLong"), "-2147483648");

    iiop_req &s = prepare(obj, "echoString", IIOP_TWOWAY, {{"text", "ab`01`cd `5c60`"}});
    ASSERT_EQ(call(IIOP_INVOKE, s), IIOP_OK) << text;
    EXPECT_EQ(value(s, "^echoString"), "ab`01`cd `5c60`");

    hostkit::Plist lengths;
    lengths.set("values^length", "3");
    lengths.set("^echoSeq^length", "3");
    iiop_req &q = prepare(obj, "echoSeq", IIOP_TWOWAY,
                          {{"values[0]", "7"}, {"values[1]", "-8"}, {"values[2]", "9"}}, &lengths);
    ASSERT_EQ(call(IIOP_INVOKE, q), IIOP_OK) << text;
    EXPECT_EQ(value(q, "^echoSeq^length"), "3");
    EXPECT_EQ(value(q, "^echoSeq[0]"), "7");
    EXPECT_EQ(value(q, "^echoSeq[1]"), "-8");
    EXPECT_EQ(value(q, "^echoSeq[2]"), "9");

    iiop_req &n = prepare(obj, "notify", IIOP_ONEWAY, {{"value", "40"}});
    ASSERT_EQ(call(IIOP_INVOKE, n), IIOP_OK) << text;
    ASSERT_EQ(call(IIOP_INVOKE, n), IIOP_OK) << text;
    // The server may run one-way requests beside later ones: ask until
    // both have been counted.
    iiop_req &sum = prepare(obj, "notified", IIOP_TWOWAY);
    for (int i = 0; i < 50 && value(sum, "^notified") != "80"; ++i) {
        ASSERT_EQ(call(IIOP_INVOKE, sum), IIOP_OK) << text;
        if (value(sum, "^notified") != "80")
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(value(sum, "^notified"), "80");

    iiop_req &u = prepare(obj, "raiseUser", IIOP_TWOWAY, {{"reason", "no"}, {"code", "3"}});
    EXPECT_EQ(call(IIOP_INVOKE, u), 2);
    EXPECT_EQ(index, 23);
    EXPECT_EQ(text, "IDL:omg.org/CORBA/OBJ_ADAPTER:1.0");

    iiop_req &x = prepare(obj, "raiseSystem", IIOP_TWOWAY,
                          {{"which", "1"}, {"minor", "77"}, {"completed", "1"}});
    EXPECT_EQ(call(IIOP_INVOKE, x), 1);
    EXPECT_EQ(index, 6);
    EXPECT_EQ(text, "IDL:omg.org/CORBA/NO_PERMISSION:1.0");
    EXPECT_EQ(env.system_exception()->minor, 77u);
    EXPECT_EQ(env.system_exception()->completed, 1u);

    // The forwarding object sends the request on to the echo object.
    void *fwd = bind("IOR", server.forward_ior());
    iiop_req &f = prepare(fwd, "echoLong", IIOP_TWOWAY, {{"value", "12"}});
    ASSERT_EQ(call(IIOP_INVOKE, f), IIOP_OK) << text;
    EXPECT_EQ(value(f, "^echoLong"), "12");
}

TEST_F(Script, DeferredRequestsArePolledAndFetched) {
    interop::EchoServer server;
    ASSERT_TRUE(server.running());
    void *obj = bind("IOR", server.ior());
    iiop_req &d = prepare(obj, "delay", IIOP_DEFERRED, {{"ms", "200"}});
    d.request_id = static_cast<int32_t>(next_request_id);
    // A wait that has run out already: the request is sent and left on the
    // list, as after a time-out shorter than the server's answer.
    EXPECT_EQ(call(IIOP_INVOKE, d, -1), 1);
    EXPECT_EQ(index, 4);
    EXPECT_EQ(call(IIOP_GET_RESPONSE, d, 0), 0);
    EXPECT_EQ(value(d, "^delay"), "NULL");
    ASSERT_EQ(call(IIOP_GET_RESPONSE, d, 5000), IIOP_OK) << text;
    EXPECT_EQ(value(d, "^delay"), "200");
    EXPECT_EQ(call(IIOP_GET_RESPONSE, d, 0), 1);

    // Another deferred request's reply is read by the next two-way call.
    iiop_req &e = prepare(obj, "echoLong", IIOP_DEFERRED, {{"value", "5"}});
    e.request_id = static_cast<int32_t>(next_request_id);
    EXPECT_EQ(call(IIOP_INVOKE, e, -1), 1);
    iiop_req &l = prepare(obj, "echoLong", IIOP_TWOWAY, {{"value", "6"}});
    ASSERT_EQ(call(IIOP_INVOKE, l), IIOP_OK) << text;
    EXPECT_EQ(value(l, "^echoLong"), "6");
    EXPECT_EQ(value(e, "^echoLong"), "5");
    EXPECT_EQ(call(IIOP_GET_RESPONSE, e, 0), 1);
}

// omniNames on a loopback port of its own, stopped with the test.
class NameServer {
public:
    NameServer() : port_(interop::free_port()) {
        char pattern[] = "/tmp/orbelle-names-XXXXXX";
        dir_ = mkdtemp(pattern) != nullptr ? pattern : "";
        pid_ = fork();
        if (pid_ == 0) {
            setenv("OMNIORB_CONFIG", "/dev/null", 1);
            std::string port = std::to_string(port_);
            std::string endpoint = "giop:tcp:127.0.0.1:" + port;
            std::string log = dir_ + "/err.log";
            execlp("omniNames", "omniNames", "-start", port.c_str(), "-always", "-datadir",
                   dir_.c_str(), "-errlog", log.c_str(), "-ORBendPoint", endpoint.c_str(),
                   "-ORBmaxGIOPVersion", "1.0", static_cast<char *>(nullptr));
            _exit(127);
        }
        // The root context's reference appears in the log once it serves.
        for (int i = 0; i < 100 && root_.empty(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            std::ifstream log(dir_ + "/err.log");
            std::string word;
            while (log >> word)
                if (word.compare(0, 4, "IOR:") == 0) root_ = word;
        }
    }
    ~NameServer() {
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
            waitpid(pid_, nullptr, 0);
        }
        if (!dir_.empty()) std::system(("rm -rf " + dir_).c_str());
    }
    const std::string &root() const { return root_; }
    std::string init_ref() const {
        return "NameService=corbaloc::1.0@127.0.0.1:" + std::to_string(port_) + "/NameService";
    }

private:
    uint16_t port_;
    pid_t pid_ = -1;
    std::string dir_;
    std::string root_;
};

TEST_F(Script, BindingResolvesNamesThroughOmniNames) {
    if (system("command -v omniNames nameclt > /dev/null") != 0) GTEST_SKIP() << "no omniNames";
    NameServer names;
    ASSERT_FALSE(names.root().empty());
    interop::EchoServer server;
    ASSERT_TRUE(server.running());
    std::string out = interop::capture({"env", "OMNIORB_CONFIG=/dev/null", "nameclt", "-ORBInitRef",
                                        names.init_ref(), "bind", "teller", server.ior()});

    // An unknown name fails that alternative; the next one resolves.
    std::string naming = "NameService(" + names.root() + ")";
    void *obj = bind(naming, "", "nobody");
    EXPECT_EQ(obj, nullptr);
    obj = bind("NameService(IOR:00) | " + naming, "", "teller");
    ASSERT_NE(obj, nullptr);
    EXPECT_EQ(bound_modus, naming);
    iiop_req &l = prepare(obj, "echoLong", IIOP_TWOWAY, {{"value", "31"}});
    ASSERT_EQ(call(IIOP_INVOKE, l), IIOP_OK) << text;
    EXPECT_EQ(value(l, "^echoLong"), "31");
}

}  // namespace
