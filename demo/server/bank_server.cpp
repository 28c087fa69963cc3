// The demo bank's server. Usage:
//
//   OMNIORB_CONFIG=/dev/null bank_server -ORBendPoint giop:tcp:127.0.0.1:PORT
//       -ORBmaxGIOPVersion 1.0 [-ior FILE] [-iorlist FILE] [-register] [-quiet]
//
// Objects live on omniORB's INS adapter, so their object keys are plain
// texts ("Bank", "Diagnostics", "account/1001"), stable across restarts on
// the same port and reachable as corbaloc::127.0.0.1:PORT/KEY. A second
// adapter, "forward", answers every request with a location forward to the
// object of the same id on the first one.
//
// On start-up the server prints one line "NAME IOR:..." per object, then
// "bank_server: ready". SIGINT or SIGTERM stop it cleanly.
#include <omniORB4/omniInterceptors.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <omniORB4/Naming.hh>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bank_impl.h"
#include "diagnostics_impl.h"

namespace {

struct Options {
    std::string ior_file;  // the Bank's reference alone
    std::string ior_list;  // "repository id,reference" lines
    bool register_names = false;
    bool quiet = false;
};

void usage() {
    std::fprintf(stderr,
                 "usage: bank_server [omniORB -ORB options] [-ior FILE] [-iorlist FILE] "
                 "[-register] [-quiet]\n"
                 "  -ior FILE      write the Bank's reference to FILE\n"
                 "  -iorlist FILE  write a reference list file (repository id,IOR per line)\n"
                 "  -register      bind Bank and Diagnostics in the naming service\n"
                 "                 (give -ORBInitRef NameService=corbaloc::HOST:PORT/NameService)\n"
                 "  -quiet         print only the ready line\n");
}

bool parse(int argc, char **argv, Options &opt) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if ((a == "-ior" || a == "-iorlist") && i + 1 < argc)
            (a == "-ior" ? opt.ior_file : opt.ior_list) = argv[++i];
        else if (a == "-register")
            opt.register_names = true;
        else if (a == "-quiet")
            opt.quiet = true;
        else {
            std::fprintf(stderr, "bank_server: unknown or incomplete option '%s'\n", argv[i]);
            return false;
        }
    }
    return true;
}

// Writes the whole file under a temporary name first, so that whoever waits
// for it never reads half of it.
bool write_file(const std::string &path, const std::string &text) {
    std::string temp = path + ".tmp";
    {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        out << text;
        if (!out.flush()) return false;
    }
    return std::rename(temp.c_str(), path.c_str()) == 0;
}

// Answers every request with a location forward to the object of the same id
// on the INS adapter.
class Forwarder : public POA_PortableServer::ServantLocator {
public:
    Forwarder(CORBA::Object_ptr bank, CORBA::Object_ptr diagnostics, demo::BankImpl &impl)
        : bank_(CORBA::Object::_duplicate(bank)),
          diagnostics_(CORBA::Object::_duplicate(diagnostics)),
          impl_(impl) {}

    PortableServer::Servant preinvoke(const PortableServer::ObjectId &oid, PortableServer::POA_ptr,
                                      const char *,
                                      PortableServer::ServantLocator::Cookie &) override {
        CORBA::String_var id = PortableServer::ObjectId_to_string(oid);
        CORBA::Object_var target;
        if (std::strcmp(id, "Bank") == 0)
            target = CORBA::Object::_duplicate(bank_);
        else if (std::strcmp(id, "Diagnostics") == 0)
            target = CORBA::Object::_duplicate(diagnostics_);
        else if (std::strncmp(id, "account/", 8) == 0)
            target = impl_.reference_of(id.in() + 8);
        if (CORBA::is_nil(target)) throw CORBA::OBJECT_NOT_EXIST(0, CORBA::COMPLETED_NO);
        throw PortableServer::ForwardRequest(target);
    }

    void postinvoke(const PortableServer::ObjectId &, PortableServer::POA_ptr, const char *,
                    PortableServer::ServantLocator::Cookie, PortableServer::Servant) override {}

private:
    CORBA::Object_var bank_;
    CORBA::Object_var diagnostics_;
    demo::BankImpl &impl_;
};

CORBA::Object_ptr activate(PortableServer::POA_ptr poa, const char *id,
                           PortableServer::ServantBase *servant) {
    PortableServer::ObjectId_var oid = PortableServer::string_to_ObjectId(id);
    poa->activate_object_with_id(oid, servant);
    servant->_remove_ref();  // the adapter holds it now
    return poa->id_to_reference(oid);
}

PortableServer::POA_ptr forwarding_poa(PortableServer::POA_ptr root) {
    PortableServer::POAManager_var manager = root->the_POAManager();
    CORBA::PolicyList policies;
    policies.length(4);
    policies[0] = root->create_lifespan_policy(PortableServer::PERSISTENT);
    policies[1] = root->create_id_assignment_policy(PortableServer::USER_ID);
    policies[2] = root->create_servant_retention_policy(PortableServer::NON_RETAIN);
    policies[3] = root->create_request_processing_policy(PortableServer::USE_SERVANT_MANAGER);
    PortableServer::POA_ptr poa = root->create_POA("forward", manager, policies);
    for (CORBA::ULong i = 0; i < policies.length(); ++i) policies[i]->destroy();
    return poa;
}

void register_names(CORBA::ORB_ptr orb,
                    const std::vector<std::pair<std::string, CORBA::Object_ptr>> &names) {
    CORBA::Object_var obj = orb->resolve_initial_references("NameService");
    CosNaming::NamingContext_var root = CosNaming::NamingContext::_narrow(obj);
    if (CORBA::is_nil(root)) throw CORBA::OBJECT_NOT_EXIST(0, CORBA::COMPLETED_NO);
    for (const auto &n : names) {
        CosNaming::Name name;
        name.length(1);
        name[0].id = n.first.c_str();
        name[0].kind = "";
        root->rebind(name, n.second);
    }
}

}  // namespace

int main(int argc, char **argv) {
    // Stop signals go to one waiting thread, which shuts the ORB down.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    try {
        CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
        omniORB::getInterceptors()->serverReceiveRequest.add(
            [](omni::omniInterceptors::serverReceiveRequest_T::info_T &) -> CORBA::Boolean {
                demo::DiagnosticsImpl::count_request();
                return true;
            });
        Options opt;
        if (!parse(argc, argv, opt)) {
            usage();
            orb->destroy();
            return 2;
        }

        CORBA::Object_var obj = orb->resolve_initial_references("RootPOA");
        PortableServer::POA_var root = PortableServer::POA::_narrow(obj);
        obj = orb->resolve_initial_references("omniINSPOA");
        PortableServer::POA_var ins = PortableServer::POA::_narrow(obj);

        auto *bank = new demo::BankImpl(ins, "Harbour Bank");
        bank->_add_ref();  // kept for the forwarder
        CORBA::Object_var bank_ref = activate(ins, "Bank", bank);
        CORBA::Object_var diag_ref = activate(ins, "Diagnostics", new demo::DiagnosticsImpl);
        bank->open_sample_accounts();

        PortableServer::POA_var fwd = forwarding_poa(root);
        auto *forwarder = new Forwarder(bank_ref, diag_ref, *bank);
        PortableServer::ServantLocator_var locator = forwarder->_this();
        fwd->set_servant_manager(locator);
        forwarder->_remove_ref();
        CORBA::Object_var fwd_bank = fwd->create_reference_with_id(
            PortableServer::ObjectId_var(PortableServer::string_to_ObjectId("Bank")),
            Banking::Bank::_PD_repoId);
        CORBA::Object_var fwd_diag = fwd->create_reference_with_id(
            PortableServer::ObjectId_var(PortableServer::string_to_ObjectId("Diagnostics")),
            Banking::Diagnostics::_PD_repoId);

        CORBA::Object_var acc1 = bank->reference_of("1001");
        CORBA::Object_var acc2 = bank->reference_of("1002");
        CORBA::Object_var acc3 = bank->reference_of("1003");
        struct Published {
            const char *name;
            const char *repo_id;  // for the list file; null: not listed
            CORBA::Object_ptr ref;
        };
        const Published published[] = {
            {"Bank", Banking::Bank::_PD_repoId, bank_ref},
            {"Diagnostics", Banking::Diagnostics::_PD_repoId, diag_ref},
            {"Account/1001", Banking::Account::_PD_repoId, acc1},
            {"Account/1002", nullptr, acc2},
            {"SavingsAccount/1003", Banking::SavingsAccount::_PD_repoId, acc3},
            {"Forward/Bank", nullptr, fwd_bank},
            {"Forward/Diagnostics", nullptr, fwd_diag},
        };

        std::string list;
        for (const auto &p : published) {
            CORBA::String_var ior = orb->object_to_string(p.ref);
            if (!opt.quiet) std::printf("%s %s\n", p.name, ior.in());
            if (p.repo_id) list += std::string(p.repo_id) + "," + ior.in() + "\n";
            if (p.ref == bank_ref.in() && !opt.ior_file.empty() &&
                !write_file(opt.ior_file, std::string(ior) + "\n")) {
                std::fprintf(stderr, "bank_server: cannot write %s\n", opt.ior_file.c_str());
                return 1;
            }
        }
        if (!opt.ior_list.empty() && !write_file(opt.ior_list, list)) {
            std::fprintf(stderr, "bank_server: cannot write %s\n", opt.ior_list.c_str());
            return 1;
        }

        PortableServer::POAManager_var(root->the_POAManager())->activate();
        PortableServer::POAManager_var(ins->the_POAManager())->activate();

        if (opt.register_names) {
            try {
                register_names(orb, {{"Bank", bank_ref.in()}, {"Diagnostics", diag_ref.in()}});
            } catch (const CORBA::ORB::InvalidName &) {
                std::fprintf(stderr, "bank_server: -register needs -ORBInitRef NameService=...\n");
                return 1;
            } catch (const CORBA::Exception &e) {
                std::fprintf(stderr, "bank_server: cannot register with the naming service: %s\n",
                             e._name());
                return 1;
            }
        }

        std::printf("bank_server: ready\n");
        std::fflush(stdout);

        std::thread waiter([&stop, &orb] {
            int sig = 0;
            sigwait(&stop, &sig);
            orb->shutdown(0);
        });
        orb->run();
        waiter.join();
        bank->_remove_ref();
        orb->destroy();
    } catch (const CORBA::SystemException &e) {
        std::fprintf(stderr, "bank_server: %s, minor 0x%lx\n", e._name(),
                     static_cast<unsigned long>(e.minor()));
        return 1;
    } catch (const CORBA::Exception &e) {
        std::fprintf(stderr, "bank_server: %s\n", e._name());
        return 1;
    }
    return 0;
}
