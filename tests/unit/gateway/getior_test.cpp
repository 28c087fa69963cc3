#include "gateway/getior.h"

#include "tests/unit/gateway/road.h"

namespace {
const std::string zanth = std::string(ORBELLE_BINARY_DIR) + "/zanth";
// Where the agent libraries lie below ZANTH_HOME, in the system's separators.
#ifdef _WIN32
const std::string shlib = "\\shlib\\iiop\\";
#else
const std::string shlib = "/shlib/iiop/";
#endif
const char naming[] = "IDL:omg.org/CosNaming/NamingContext:1.0";

struct GetIor : ::testing::Test {
    GetIor() : host(testsupport::linked_host()) {
        set_debug_level(1);
        setenv("ZANTH_HOME", zanth.c_str(), 1);
        dir.write("agents", "14000 A one IOR:default\n15000 A one IOR:15000\n14000 " +
                                std::string(naming) + " ns IOR:naming\n");
        setenv("ZANTH_AGENT_DIRECTORY", (dir.path() + "/agents").c_str(), 1);
    }
    // get_ior for repository id "A", instance "one"; printed() then holds
    // only what this call printed.
    std::string run(const char *alternative, const char *ior = nullptr) {
        iiop_record record = road::bind_record(nullptr, ior, "A", "one");
        hostkit::clear_printed();
        return get_ior(&record, alternative);
    }
    std::string line(size_t i) { return hostkit::printed().at(i); }
    std::string out() { return hostkit::printed_text(); }

    hostkit::Host host;
    testsupport::TempDir dir;
};

TEST_F(GetIor, KindIsTheFirstKeywordHeadingTheAlternativeInAnyCase) {
    EXPECT_EQ(run("ior", "IOR:00"), "IOR:00");
    EXPECT_EQ(run("IORS(x)", "IOR:00"), "IOR:00");
    EXPECT_EQ(out(), "get_ior:  IOR modus\n");
    EXPECT_EQ(run("IOR"), "");
    EXPECT_EQ(out(), "get_ior:  IOR modus\nget_ior:  IOR modus, but no IOR supplied\n");
    dir.write("x", "A,fromfile\n");
    EXPECT_EQ(run("filed(x)"), "fromfile");
    EXPECT_EQ(run("nameservice(IOR:ns)"), "NameService");
    EXPECT_STREQ(name_service_ior(), "IOR:ns");
    EXPECT_EQ(run("visibrokernameservice"), "");
    EXPECT_EQ(line(0), "get_ior:  Bad VisibrokerNameService modus.\n");
    EXPECT_EQ(ior_modus_tried, 3);

    set_debug_level(0);  // the unknown kind prints at every level
    EXPECT_EQ(run(""), "");
    EXPECT_EQ(out(), "MC_8_6_8: unknown binding alternative '' is ignored");
    EXPECT_EQ(run("Visibroke"), "");
    EXPECT_EQ(run(std::string(5000, 'x').c_str()), "");
    EXPECT_EQ(out().size(), 499u);
}

TEST_F(GetIor, ArgumentNeedsBothParenthesesAndKeepsItsBlanks) {
    for (std::string bad : {"FILE(a.txt", "FILE a.txt"}) {
        EXPECT_EQ(run(bad.c_str()), "");
        EXPECT_EQ(out(), "get_ior:  Bad file modus.  Expected FILE(filename), got '" + bad + "'\n");
    }
    dir.write("tail", "A,closing first\n");
    EXPECT_EQ(run("FILE)(tail"), "closing first");
    EXPECT_EQ(run("NameService( IOR:x )"), "NameService");
    EXPECT_STREQ(name_service_ior(), " IOR:x ");
}

TEST_F(GetIor, ListFileFirstLineWithTheIdAheadOfTheFirstCommaDecides) {
    dir.write("l", "no comma\n\nA ,blank\nA,1,2\nA,3\n");
    EXPECT_EQ(run("FILE(l)"), "1,2");
    EXPECT_EQ(out(),
              "get_ior:  File modus\nfindiorinfile:  line has no , delimiter\n"
              "findiorinfile:  line has no , delimiter\n"
              "findiorinfile:  IOR match found for repository_id 'A'\n");
    const char raw[] = "\x01\xff,\x80\nA\0,hidden\nB,\x7f\x00tail\r\nA,no newline";
    dir.write("bin", std::string(raw, sizeof raw - 1));
    EXPECT_EQ(findiorinfile("B", "bin"), "\x7f");
    EXPECT_EQ(findiorinfile("A", "bin"), "no newline");
    EXPECT_EQ(findiorinfile("A", "none"), "");
    EXPECT_EQ(hostkit::printed().back(),
              "findiorinfile:  can't open 'none': No such file or directory\n");
}

TEST_F(GetIor, ListFileLineOfThousandCharactersEndsTheSearch) {
    std::string fits = "A," + std::string(997, 'f');
    dir.write("fits", "B,x\n" + fits + "\n");
    EXPECT_EQ(findiorinfile("A", "fits"), fits.substr(2));
    dir.write("long", "B," + std::string(998, 'x') + "\nA,after\n");
    EXPECT_EQ(run("FILE(long)"), "");
    EXPECT_EQ(line(1), "findiorinfile:  no match in 'long' for A\n");
    dir.write("huge", std::string(1 << 20, 'z') + "\nA,after\n");
    EXPECT_EQ(findiorinfile("A", "huge"), "");
}

TEST_F(GetIor, VisibrokerAsksTheSideLibraryAtThePortAsWritten) {
    EXPECT_EQ(run("Visibroker"), "IOR:default");
    EXPECT_EQ(out(), "get_ior:  Visibroker modus\nget_ior:  dllpath=[" + zanth + shlib +
                         "brokvane.dll]\n"
                         "get_ior:  Visibroker modus successfully loaded brokvane.dll\n"
                         "get_ior:  Visibroker modus, default agent port 14000\n"
                         "brokvane:  asking agent, port='' repository id='A' instance id='one'"
                         "brokvane:  agent at port 14000 answered with instance 'one'"
                         "get_ior:  iorfound=IOR:default\n");
    EXPECT_EQ(run("visibroker(15000)"), "IOR:15000");
    EXPECT_EQ(run("Visibroker(15000"), "IOR:default");
    EXPECT_EQ(line(3), "get_ior:  Visibroker modus malformed, default agent port 14000\n");
    EXPECT_EQ(run("Visibroker()"), "IOR:default");
    EXPECT_EQ(line(3), "get_ior:  Visibroker modus, agent port \n");
    EXPECT_EQ(line(4), "brokvane:  asking agent, port='' repository id='A' instance id='one'");

    set_debug_level(0);
    EXPECT_EQ(run("Visibroker(16000)"), "");
    EXPECT_EQ(line(2), "MC_8_6_6: the agent found no object of interface 'A' named 'one'");
    EXPECT_EQ(line(3), "MC_8_6_7: check that the server is running and registered with the agent");
}

TEST_F(GetIor, VisibrokerNameServiceLoadsOldvaneAndAsksForTheNamingContext) {
    EXPECT_EQ(run("VisibrokerNameService(ns)"), "NameService");
    EXPECT_STREQ(name_service_ior(), "IOR:naming");
    EXPECT_EQ(line(1), "get_ior:  dllpath=[" + zanth + shlib + "oldvane.dll]\n");
    EXPECT_EQ(line(2), "get_ior:  VisibrokerNameService modus successfully loaded brokvane.dll\n");
    EXPECT_EQ(line(8), "get_ior:  IOR=IOR:naming\n");
    EXPECT_EQ(run("Visibroker"), "IOR:default");  // the library loaded first serves
    EXPECT_EQ(line(4), "oldvane:  asking agent, port='' repository id='A' instance id='one'");
    EXPECT_EQ(run("VisibrokerNameService(x)"), "");
    EXPECT_EQ(line(5), "get_ior:  No match found for repo id '" + std::string(naming) + "'\n");
    EXPECT_EQ(line(6), "          and instance id 'x'\n");
}

TEST_F(GetIor, FailedLoadGivesTheEmptyTextUntilALibraryLoads) {
    unsetenv("ZANTH_HOME");
    EXPECT_EQ(run("Visibroker"), "");
    EXPECT_EQ(out(), "get_ior:  Visibroker modus\nget_ior:  dllpath=[" + shlib + "brokvane.dll]\n" +
                         "get_ior:  Visibroker modus failed, unable to load\n" + "          " +
                         shlib + "brokvane.dll\n");
    setenv("ZANTH_HOME", (zanth + "-broken").c_str(), 1);  // no iiop_vb_find_ior there
    EXPECT_EQ(run("VisibrokerNameService(ns)"), "");
    EXPECT_EQ(line(2), "get_ior:  Visibroker modus failed, unable to load\n");
    setenv("ZANTH_HOME", zanth.c_str(), 1);
    EXPECT_EQ(run("Visibroker"), "IOR:default");
}
}  // namespace
