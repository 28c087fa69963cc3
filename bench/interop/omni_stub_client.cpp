// omniORB's static-stub client of the echo server, the yardstick of the
// benchmarks: makes n calls of echoLong, add, echoString with a string of
// the given length or echoSeq with a sequence of the given length, and
// prints the seconds per call.
#include <omniORB4/CORBA.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "echo.hh"

int main(int argc, char **argv) {
    CORBA::ORB_var orb = CORBA::ORB_init(argc, argv);
    if (argc < 5) {
        std::fprintf(stderr, "usage: omni_stub_client IOR long|add|string|seq length count\n");
        return 2;
    }
    CORBA::Object_var obj = orb->string_to_object(argv[1]);
    EchoTest::Echo_var echo = EchoTest::Echo::_narrow(obj);
    const char *mode = argv[2];
    bool seq = std::strcmp(mode, "seq") == 0;
    bool add = std::strcmp(mode, "add") == 0;
    bool string = std::strcmp(mode, "string") == 0;
    CORBA::ULong length = static_cast<CORBA::ULong>(std::atol(argv[3]));
    long n = std::atol(argv[4]);
    EchoTest::LongSeq values;
    values.length(length);
    for (CORBA::ULong i = 0; i < length; ++i) values[i] = static_cast<CORBA::Long>(i);
    CORBA::String_var text = CORBA::string_alloc(string ? length : 0);
    for (CORBA::ULong i = 0; string && i < length; ++i) text[i] = static_cast<char>('a' + i % 26);
    text[string ? length : 0] = '\0';
    echo->echoLong(0);  // connect outside the timed part
    auto t0 = std::chrono::steady_clock::now();
    for (long i = 0; i < n; ++i) {
        if (seq) {
            EchoTest::LongSeq_var back = echo->echoSeq(values);
            if (back->length() != length) return 1;
        } else if (add) {
            if (echo->add(static_cast<CORBA::Long>(i), 1) != i + 1) return 1;
        } else if (string) {
            CORBA::String_var back = echo->echoString(text);
            if (std::strlen(back) != length) return 1;
        } else if (echo->echoLong(static_cast<CORBA::Long>(i)) != i) {
            return 1;
        }
    }
    double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::printf("%.9f\n", s / static_cast<double>(n));
    orb->destroy();
    return 0;
}
