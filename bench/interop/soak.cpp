// A long run against the demo bank server, by hand (not in CI):
//   soak [CALLS]
// First CALLS (100,000) calls of echo_long, with open descriptors and
// resident memory sampled after warm-up and at the end. Then, with calls
// running all the while, the server is killed and restarted eight times and
// stopped cleanly once. Every answer is checked against what was sent; the
// figures go to standard output, and the exit status is 1 when a call came
// back with a wrong value or a call stayed failing for two seconds after a
// restart.
#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "host/kit/hostkit.h"
#include "tests/interop/bank/bank_servers.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kDiagnosticsId[] = "IDL:Banking/Diagnostics:1.0";
// Long enough for a loaded machine, short enough that a call on a frozen or
// dying server gives way quickly.
constexpr int32_t kCallTimeoutMs = 1000;
constexpr int kRestarts = 8;
// Calls between two restarts, so each restart happens under load.
constexpr int kCallsPerRestart = 3000;
// A restart must be followed by a working call within this.
constexpr double kRecoveryLimitMs = 2000;

int open_descriptors() {
    int n = 0;
    if (DIR *d = opendir("/proc/self/fd")) {
        while (readdir(d) != nullptr) ++n;
        closedir(d);
    }
    return n - 3;  // ".", ".." and the directory's own descriptor
}

long resident_kib() {
    long pages = 0, resident = 0;
    if (FILE *f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

double ms_since(Clock::time_point t) {
    return std::chrono::duration<double, std::milli>(Clock::now() - t).count();
}

struct Soak {
    hostkit::Host host{&_iiop_entry};
    iiop_req req{};
    iiop_target target{};
    long value = 0;
    long ok = 0, failed = 0, wrong = 0;

    bool bind(const std::string &ior) {
        host.init();
        hostkit::set_capture(false);
        iiop_record r = hostkit::make_record(IIOP_BIND);
        r.u.bind.repository_id = const_cast<char *>(kDiagnosticsId);
        r.u.bind.instance_id = const_cast<char *>("diag");
        r.u.bind.modus = const_cast<char *>("IOR");
        r.u.bind.ior = const_cast<char *>(ior.c_str());
        if (host.call(r) != IIOP_OK) return false;
        host.get_parms(req, target, kDiagnosticsId, "echo_long");
        target.objref = r.u.bind.objref;
        req.flags = IIOP_TWOWAY;
        return true;
    }
    // One call with a fresh value; true when it worked.
    bool call() {
        std::string sent = std::to_string(++value);
        hostkit::set_value(req.parms, "a", sent.c_str());
        hostkit::set_value(req.parms, "c", "0");
        iiop_record r = hostkit::make_record(IIOP_INVOKE);
        r.u.invoke.req = &req;
        r.timeout_ms = kCallTimeoutMs;
        int32_t result = host.call(r);
        std::free(r.u.invoke.connect_host);
        std::free(r.status_text);
        if (result != IIOP_OK) {
            ++failed;
            return false;
        }
        const char *got = hostkit::value(req.parms, "^echo_long");
        if (got == nullptr || sent != got) {
            ++wrong;
            return false;
        }
        ++ok;
        return true;
    }
};

}  // namespace

int main(int argc, char **argv) {
    long calls = argc > 1 ? std::atol(argv[1]) : 100000;
    char pattern[] = "/tmp/orbelle-soak-XXXXXX";
    std::string dir = mkdtemp(pattern);
    std::system(
        ("mkdir -p " + dir + "/idl && cp " ORBELLE_DEMO_DIR "/idl/*.csv " + dir + "/idl/").c_str());
    if (chdir(dir.c_str()) != 0) return 2;
    bank::BankServer server(dir);
    Soak s;
    if (!server.running() || !s.bind(server.ior("Diagnostics"))) {
        std::fprintf(stderr, "soak: no server or no bind\n");
        return 2;
    }

    // Steady load.
    // Warm-up also fills the host kit's record of allocation sizes, which
    // stops growing at 65,536 entries.
    long warm_up = calls / 4;
    int fds_warm = 0;
    long rss_warm = 0;
    auto t0 = Clock::now();
    for (long i = 0; i < calls; ++i) {
        s.call();
        if (i + 1 == warm_up) {
            fds_warm = open_descriptors();
            rss_warm = resident_kib();
        }
    }
    double steady_ms = ms_since(t0);
    std::printf("steady: %ld calls in %.0f ms (%.1f us/call), %ld ok, %ld failed, %ld wrong\n",
                calls, steady_ms, steady_ms * 1000 / calls, s.ok, s.failed, s.wrong);
    std::printf(
        "steady: descriptors %d after warm-up, %d at the end; resident %ld KiB after "
        "warm-up, %ld KiB at the end\n",
        fds_warm, open_descriptors(), rss_warm, resident_kib());

    // Restarts under load: a kill (or, last, a clean stop) every
    // kCallsPerRestart calls; the time from the restart to the first call
    // that works again is each restart's recovery.
    int max_fds = 0;
    double worst_recovery = 0;
    bool recovered_all = true;
    long failed_before = s.failed;
    for (int round = 0; round <= kRestarts; ++round) {
        bool clean = round == kRestarts;
        for (int i = 0; i < kCallsPerRestart; ++i) s.call();
        server.stop(clean ? SIGTERM : SIGKILL);
        for (int i = 0; i < 20; ++i) s.call();  // calls against no server
        if (!server.start()) {
            std::fprintf(stderr, "soak: restart %d failed\n", round + 1);
            return 2;
        }
        auto restarted = Clock::now();
        bool back = false;
        while (!back && ms_since(restarted) < 10 * kRecoveryLimitMs) back = s.call();
        double recovery = ms_since(restarted);
        if (!back || recovery > kRecoveryLimitMs) recovered_all = false;
        if (recovery > worst_recovery) worst_recovery = recovery;
        int fds = open_descriptors();
        if (fds > max_fds) max_fds = fds;
        std::printf("restart %d (%s): working again after %.1f ms, %d descriptors open\n",
                    round + 1, clean ? "clean stop" : "killed", recovery, fds);
    }
    std::printf(
        "restarts: %ld failed calls in all, worst recovery %.1f ms, at most %d "
        "descriptors; %ld ok, %ld wrong values in all\n",
        s.failed - failed_before, worst_recovery, max_fds, s.ok, s.wrong);
    iiop_record r = hostkit::make_record(IIOP_RELEASE);
    r.u.release.objref = s.target.objref;
    s.host.call(r);
    hostkit::free_list(s.req.parms);
    server.stop(SIGTERM);
    std::system(("rm -rf " + dir).c_str());
    return s.wrong == 0 && recovered_all ? 0 : 1;
}
