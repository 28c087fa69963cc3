// An omniORB server for the echo interface. Prints its references as
// "ECHO <IOR>" and "FORWARD <IOR>" lines on standard output and a ready line,
// then serves until killed. The FORWARD object answers every call with a location
// forward to the ECHO object.
#include <omniORB4/CORBA.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "echo.hh"

namespace {

class EchoImpl : public POA_EchoTest::Echo {
public:
    CORBA::Long echoLong(CORBA::Long value) override { return value; }
    char *echoString(const char *text) override { return CORBA::string_dup(text); }
    EchoTest::LongSeq *echoSeq(const EchoTest::LongSeq &values) override {
        return new EchoTest::LongSeq(values);
    }
    void raiseUser(const char *reason, CORBA::Long code) override {
        throw EchoTest::Oops(reason, code);
    }
    void raiseSystem(CORBA::Long which, CORBA::ULong minor, CORBA::Long completed) override {
        auto c = static_cast<CORBA::CompletionStatus>(completed);
        if (which == 0) throw CORBA::BAD_PARAM(minor, c);
        if (which == 1) throw CORBA::NO_PERMISSION(minor, c);
        if (which == 2) throw CORBA::NO_RESOURCES(minor, c);
        throw CORBA::TRANSIENT(minor, c);
    }
    void notify(CORBA::Long value) override { sum_ += value; }
    CORBA::Long notified() override { return sum_; }
    CORBA::Long delay(CORBA::Long ms) override {
        if (ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        return ms;
    }
    CORBA::Long add(CORBA::Long a, CORBA::Long b) override {
        return static_cast<CORBA::Long>(static_cast<CORBA::ULong>(a) +
                                        static_cast<CORBA::ULong>(b));
    }

private:
    CORBA::Long sum_ = 0;
};

// Sends every request on its POA elsewhere.
class Forwarder : public PortableServer::ServantLocator {
public:
    explicit Forwarder(CORBA::Object_ptr target) : target_(CORBA::Object::_duplicate(target)) {}
    PortableServer::Servant preinvoke(const PortableServer::ObjectId &, PortableServer::POA_ptr,
                                      const char *, Cookie &) override {
        throw PortableServer::ForwardRequest(target_);
    }
    void postinvoke(const PortableServer::ObjectId &, PortableServer::POA_ptr, const char *, Cookie,
                    PortableServer::Servant) override {}

private:
    CORBA::Object_var target_;
};

}  // namespace

int main(int argc, char **argv) {
    try {
        CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
        CORBA::Object_var obj = orb->resolve_initial_references("RootPOA");
        PortableServer::POA_var root = PortableServer::POA::_narrow(obj);
        PortableServer::POAManager_var manager = root->the_POAManager();

        EchoImpl *echo = new EchoImpl;
        PortableServer::ObjectId_var id = root->activate_object(echo);
        CORBA::Object_var echo_ref = echo->_this();

        CORBA::PolicyList policies;
        policies.length(3);
        policies[0] = root->create_request_processing_policy(PortableServer::USE_SERVANT_MANAGER);
        policies[1] = root->create_servant_retention_policy(PortableServer::NON_RETAIN);
        policies[2] = root->create_id_assignment_policy(PortableServer::USER_ID);
        PortableServer::POA_var fwd_poa = root->create_POA("forward", manager, policies);
        Forwarder *locator = new Forwarder(echo_ref);
        fwd_poa->set_servant_manager(locator);
        PortableServer::ObjectId_var fwd_id = PortableServer::string_to_ObjectId("fwd");
        CORBA::Object_var fwd_ref =
            fwd_poa->create_reference_with_id(fwd_id, "IDL:EchoTest/Echo:1.0");

        manager->activate();
        CORBA::String_var s1 = orb->object_to_string(echo_ref);
        CORBA::String_var s2 = orb->object_to_string(fwd_ref);
        std::printf("ECHO %s\nFORWARD %s\necho_server: ready\n", static_cast<const char *>(s1),
                    static_cast<const char *>(s2));
        std::fflush(stdout);
        orb->run();
    } catch (const CORBA::Exception &e) {
        std::fprintf(stderr, "echo_server: %s\n", e._name());
        return 1;
    }
    return 0;
}
