// An omniORB static-stub client of the echo server: calls echoLong n times
// and prints the number of calls per second. Used as the yardstick of the
// round-trip benchmark.
#include <omniORB4/CORBA.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "echo.hh"

int main(int argc, char **argv) {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: omni_client IOR count\n");
        return 2;
    }
    CORBA::Object_var obj = orb->string_to_object(argv[1]);
    EchoTest::Echo_var echo = EchoTest::Echo::_narrow(obj);
    long n = std::atol(argv[2]);
    echo->echoLong(0);  // connect outside the timed part
    auto t0 = std::chrono::steady_clock::now();
    for (long i = 0; i < n; ++i) {
        if (echo->echoLong(static_cast<CORBA::Long>(i)) != i) return 1;
    }
    double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::printf("%.0f\n", static_cast<double>(n) / s);
    orb->destroy();
    return 0;
}
