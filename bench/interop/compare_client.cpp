// One client of the side-by-side comparison (bench/compare.sh). It loads the
// library as a host does and calls the echo server through _iiop_entry, or
// replays the bytes of one such call over a plain TCP socket: the floor any
// client of the same Request and Reply can reach on this machine.
//
//   compare_client orbelle|raw|floor LIBRARY IOR add|string|longs SECONDS|Nx
//
// "floor" times, after one real call, only the text work that any client of
// the host must do with the same list (see floor_rate): with the raw
// replay's round trip it bounds what a client of the text model can reach.
// "Nx" makes exactly N timed calls (for callgrind: instructions per call).
// Runs in a folder whose idl/ describes the echo interface; prints calls per
// second. The library's send and recv are this program's (it exports them),
// which is how the raw mode learns the bytes of a call.
#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/kit/hostkit.h"

namespace {

using send_fn = ssize_t (*)(int, const void *, size_t, int);
using recv_fn = ssize_t (*)(int, void *, size_t, int);
send_fn real_send() {
    static auto fn = reinterpret_cast<send_fn>(dlsym(RTLD_NEXT, "send"));
    return fn;
}
recv_fn real_recv() {
    static auto fn = reinterpret_cast<recv_fn>(dlsym(RTLD_NEXT, "recv"));
    return fn;
}

bool recording = false;
int recorded_fd = -1;
std::string recorded_request;
std::string recorded_reply;

constexpr char repoid[] = "IDL:EchoTest/Echo:1.0";
constexpr int string_length = 5000;
constexpr int sequence_length = 1000;
constexpr int warm_up_calls = 200;
// The clock is read once per batch so that it costs nothing per call.
constexpr int batch = 64;

void *plain_malloc(size_t n) { return std::malloc(n); }
void *plain_realloc(void *p, size_t n) { return std::realloc(p, n); }
void plain_free(void *p) { std::free(p); }
void no_print(const char *) {}

struct Call {
    const char *operation;
    const char *result;    // the record checked after the run
    std::string expected;  // its text
};

// A parameter list for the case, filled with its values.
bool prepare(hostkit::Host &host, const std::string &which, iiop_req &req, iiop_target &target,
             Call &call) {
    hostkit::Plist plist;
    std::string text;
    if (which == "add") {
        call = {"add", "^add", "42"};
    } else if (which == "string") {
        for (int i = 0; i < string_length; ++i) text += static_cast<char>('a' + i % 26);
        call = {"echoString", "^echoString", text};
    } else if (which == "longs") {
        plist.set("values^length", std::to_string(sequence_length).c_str());
        plist.set("^echoSeq^length", std::to_string(sequence_length).c_str());
        call = {"echoSeq", "^echoSeq[999]", std::to_string(999 * 7)};
    } else {
        return false;
    }
    if (host.get_parms(req, target, repoid, call.operation, &plist) != IIOP_OK ||
        req.parms == nullptr)
        return false;
    if (which == "add") {
        hostkit::set_value(req.parms, "a", "40");
        hostkit::set_value(req.parms, "b", "2");
    } else if (which == "string") {
        hostkit::set_value(req.parms, "text", text.c_str());
    } else {
        for (int i = 0; i < sequence_length; ++i)
            hostkit::set_value(req.parms, ("values[" + std::to_string(i) + "]").c_str(),
                               std::to_string(i * 7).c_str());
    }
    req.flags = IIOP_TWOWAY;
    return true;
}

// How long to measure: so many seconds, or a fixed number of calls.
struct Span {
    double seconds = 0;
    long calls = 0;
};

// Calls per second of call() over the span.
template <typename Fn>
double rate(const Span &span, Fn call) {
    for (int i = 0; i < warm_up_calls; ++i)
        if (!call()) return -1;
    auto t0 = std::chrono::steady_clock::now();
    long calls = 0;
    double elapsed = 0;
    for (; calls < span.calls; ++calls)
        if (!call()) return -1;
    elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    while (elapsed < span.seconds) {
        for (int i = 0; i < batch; ++i)
            if (!call()) return -1;
        calls += batch;
        elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    }
    return static_cast<double>(calls) / elapsed;
}

// Sends the recorded Request and reads as many bytes as its Reply had, on a
// connection of its own to the same server.
double raw_rate(const Span &span) {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    if (getpeername(recorded_fd, reinterpret_cast<sockaddr *>(&peer), &size) != 0) return -1;
    int fd = socket(peer.ss_family, SOCK_STREAM, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr *>(&peer), size) != 0) return -1;
    std::string in(recorded_reply.size(), '\0');
    double r = rate(span, [&] {
        if (real_send()(fd, recorded_request.data(), recorded_request.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(recorded_request.size()))
            return false;
        for (size_t got = 0; got < in.size();) {
            ssize_t n = real_recv()(fd, &in[got], in.size() - got, 0);
            if (n <= 0) return false;
            got += static_cast<size_t>(n);
        }
        return true;
    });
    close(fd);
    return r;
}

// Digits as the fastest formatters write them: two per division, into a
// block of the exact length counted beforehand.
struct Pairs {
    char text[200];
    constexpr Pairs() : text() {
        for (int i = 0; i < 100; ++i) {
            text[2 * i] = static_cast<char>('0' + i / 10);
            text[2 * i + 1] = static_cast<char>('0' + i % 10);
        }
    }
};
constexpr Pairs pairs;
size_t digits(uint32_t v) {
    size_t n = 1;
    for (; v >= 10000; v /= 10000) n += 4;
    return n + (v >= 10) + (v >= 100) + (v >= 1000);
}

// The floor of the text model: what any client of this host must do per
// call with the same list, with no wire and no names. Before sending, each
// in text is read as a number; after the reply, each out record gives its
// text back to the host and takes a new one with a number written in it.
double floor_rate(const Span &span, ScriptParm *parms) {
    std::vector<uint32_t> numbers;
    return rate(span, [&] {
        numbers.clear();
        for (ScriptParm *p = parms; p != nullptr; p = p->next) {
            if (p->flags != PARM_IN) continue;
            uint32_t v = 0;
            for (const char *c = p->strval; *c >= '0' && *c <= '9'; ++c)
                v = v * 10 + static_cast<uint32_t>(*c - '0');
            numbers.push_back(v);
        }
        size_t i = 0;
        for (ScriptParm *p = parms; p != nullptr; p = p->next) {
            if (p->flags != PARM_OUT) continue;
            uint32_t v = i < numbers.size() ? numbers[i++] : 0;
            size_t n = digits(v);
            plain_free(p->strval);
            auto *text = static_cast<char *>(plain_malloc(n + 1));
            text[n] = '\0';
            for (; v >= 100; v /= 100, n -= 2)
                std::memcpy(text + n - 2, pairs.text + 2 * (v % 100), 2);
            if (v >= 10)
                std::memcpy(text, pairs.text + 2 * v, 2);
            else
                text[0] = static_cast<char>('0' + v);
            p->strval = text;
        }
        return true;
    });
}

}  // namespace

extern "C" __attribute__((visibility("default"))) ssize_t send(int fd, const void *bytes, size_t n,
                                                               int flags) {
    ssize_t r = real_send()(fd, bytes, n, flags);
    if (recording && r > 0) {
        recorded_fd = fd;
        recorded_request.append(static_cast<const char *>(bytes), static_cast<size_t>(r));
    }
    return r;
}

extern "C" __attribute__((visibility("default"))) ssize_t recv(int fd, void *bytes, size_t n,
                                                               int flags) {
    ssize_t r = real_recv()(fd, bytes, n, flags);
    if (recording && r > 0)
        recorded_reply.append(static_cast<const char *>(bytes), static_cast<size_t>(r));
    return r;
}

int main(int argc, char **argv) {
    if (argc != 6) {
        std::fprintf(
            stderr,
            "usage: compare_client orbelle|raw|floor LIBRARY IOR add|string|longs SECONDS|Nx\n");
        return 2;
    }
    std::string mode = argv[1];
    if (mode == "floor" && std::string(argv[4]) != "longs") {
        std::fprintf(stderr, "compare_client: the floor is the bulk call's, longs only\n");
        return 2;
    }
    std::string error;
    hostkit::entry_fn entry = hostkit::load_library(argv[2], &error);
    if (entry == nullptr) {
        std::fprintf(stderr, "compare_client: %s\n", error.c_str());
        return 2;
    }
    hostkit::Host host(entry);
    iiop_record init = hostkit::make_record(IIOP_INIT);
    init.u.init = iiop_init_args{plain_malloc, plain_realloc, plain_free, no_print};
    host.call(init);

    iiop_record bind = hostkit::make_record(IIOP_BIND);
    bind.u.bind.repository_id = const_cast<char *>(repoid);
    bind.u.bind.instance_id = const_cast<char *>("echo");
    bind.u.bind.modus = const_cast<char *>("IOR");
    bind.u.bind.ior = argv[3];
    if (host.call(bind) != IIOP_OK) {
        std::fprintf(stderr, "compare_client: bind failed\n");
        return 1;
    }
    iiop_req req{};
    iiop_target target{};
    Call call;
    if (!prepare(host, argv[4], req, target, call)) {
        std::fprintf(stderr, "compare_client: no parameter list for %s\n", argv[4]);
        return 2;
    }
    target.objref = bind.u.bind.objref;
    iiop_record invoke = hostkit::make_record(IIOP_INVOKE);
    invoke.u.invoke.req = &req;
    invoke.timeout_ms = 5000;
    auto one = [&] { return host.call(invoke) == IIOP_OK; };
    if (!one()) {
        std::fprintf(stderr, "compare_client: the first call failed\n");
        return 1;
    }

    Span span;
    std::string length = argv[5];
    if (!length.empty() && length.back() == 'x')
        span.calls = std::atol(argv[5]);
    else
        span.seconds = std::atof(argv[5]);
    double calls_per_second;
    if (mode == "raw") {
        recording = true;
        bool ok = one();
        recording = false;
        if (!ok || recorded_fd < 0) return 1;
        calls_per_second = raw_rate(span);
    } else {
        // The floor's texts must be the library's, or it measured other work.
        calls_per_second = mode == "floor" ? floor_rate(span, req.parms) : rate(span, one);
        const char *got = hostkit::value(req.parms, call.result);
        if (got == nullptr || call.expected != got) {
            std::fprintf(stderr, "compare_client: %s is '%s'\n", call.result, got ? got : "(null)");
            return 1;
        }
    }
    if (calls_per_second <= 0) {
        std::fprintf(stderr, "compare_client: a call failed\n");
        return 1;
    }
    std::printf("%.0f\n", calls_per_second);
    return 0;
}
