#include "gateway/getior.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/support.h"
#include "trace/trace.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {
const std::string zanth = std::string(ORBELLE_BINARY_DIR) + "/zanth";
const std::string broken_zanth = std::string(ORBELLE_BINARY_DIR) + "/zanth-broken";

struct GetIor : ::testing::Test {
    GetIor() : host(testsupport::linked_host()) { set_debug_level(1); }

    // get_ior for one alternative with the lines it printed; the record has
    // repository id "A", instance id "one" and the given ior.
    std::string run(const char *alternative, char *ior = nullptr) {
        iiop_record record = hostkit::make_record(IIOP_BIND);
        record.u.bind.repository_id = repository_id;
        record.u.bind.instance_id = instance_id;
        record.u.bind.ior = ior;
        hostkit::clear_printed();
        return get_ior(&record, alternative);
    }
    const std::vector<std::string> &lines() { return hostkit::printed(); }

    hostkit::Host host;
    testsupport::TempDir dir;
    char repository_id[2] = "A";
    char instance_id[4] = "one";
};

TEST_F(GetIor, KindIsTheFirstKeywordHeadingTheAlternativeInAnyCase) {
    char ior[] = "IOR:00";
    EXPECT_EQ(run("ior", ior), "IOR:00");
    EXPECT_EQ(run("IORS(whatever)", ior), "IOR:00");
    EXPECT_THAT(lines(), ElementsAre("get_ior:  IOR modus\n"));
    EXPECT_EQ(ior_modus_tried, 2);
    EXPECT_EQ(run("IOR"), "");
    EXPECT_THAT(lines(),
                ElementsAre("get_ior:  IOR modus\n", "get_ior:  IOR modus, but no IOR supplied\n"));

    dir.write("x", "A,fromfile\n");
    EXPECT_EQ(run("filed(x)"), "fromfile");
    EXPECT_EQ(run("nameservice(IOR:ns)"), "NameService");
    EXPECT_STREQ(name_service_ior(), "IOR:ns");
    run("visibrokernameservice");
    EXPECT_THAT(lines(), ElementsAre("get_ior:  Bad VisibrokerNameService modus.\n",
                                     "get_ior:  Expected VisibrokerNameService(instance), got "
                                     "'visibrokernameservice'\n"));
    EXPECT_EQ(ior_modus_tried, 3);
}

TEST_F(GetIor, UnknownAlternativePrintsTheCatalogueMessageEvenWithTracingOff) {
    set_debug_level(0);
    EXPECT_EQ(run("Visibroke"), "");
    EXPECT_EQ(run(""), "");
    EXPECT_THAT(lines(), ElementsAre("MC_8_6_8: unknown binding alternative '' is ignored"));
    std::string huge(5000, 'x');
    run(huge.c_str());
    ASSERT_EQ(lines().size(), 1u);
    EXPECT_EQ(lines()[0].size(), 499u);
}

TEST_F(GetIor, ArgumentNeedsBothParenthesesAndKeepsItsBlanks) {
    dir.write("a.txt", "A,x\n");
    for (const char *bad : {"FILE(a.txt", "FILE a.txt"}) {
        EXPECT_EQ(run(bad), "");
        EXPECT_THAT(lines(), ElementsAre("get_ior:  Bad file modus.  Expected FILE(filename), "
                                         "got '" +
                                         std::string(bad) + "'\n"));
    }
    dir.write("tail", "A,closing first\n");
    EXPECT_EQ(run("FILE)(tail"), "closing first");
    EXPECT_EQ(run("NameService( IOR:x )"), "NameService");
    EXPECT_STREQ(name_service_ior(), " IOR:x ");
    EXPECT_EQ(run("NameService"), "");
    EXPECT_THAT(lines(), ElementsAre("get_ior:  Bad NameService modus.\n",
                                     "get_ior:  Expected NameService(IOR), got 'NameService'\n"));
    EXPECT_STREQ(name_service_ior(), " IOR:x ");
}

TEST_F(GetIor, ListFileFirstMatchingLineDecides) {
    dir.write("l", "no comma\n\nA ,blank\nA,1,2\nA,3\n");
    EXPECT_EQ(run("FILE(l)"), "1,2");
    EXPECT_THAT(lines(),
                ElementsAre("get_ior:  File modus\n", "findiorinfile:  line has no , delimiter\n",
                            "findiorinfile:  line has no , delimiter\n",
                            "findiorinfile:  IOR match found for repository_id 'A'\n"));
    dir.write("last", "B,1\r\nA,no newline");
    EXPECT_EQ(findiorinfile("B", "last"), "1");
    EXPECT_EQ(findiorinfile("A", "last"), "no newline");
    EXPECT_EQ(findiorinfile("C", "last"), "");
    EXPECT_EQ(lines().back(), "findiorinfile:  no match in 'last' for C\n");
    EXPECT_EQ(findiorinfile("A", "missing"), "");
    EXPECT_EQ(lines().back(), "findiorinfile:  can't open 'missing': No such file or directory\n");
}

TEST_F(GetIor, ListFileLineOverNineHundredNinetyNineEndsTheSearch) {
    std::string fits = "A," + std::string(997, 'f');
    dir.write("fits", "B,x\n" + fits + "\n");
    EXPECT_EQ(findiorinfile("A", "fits"), fits.substr(2));
    dir.write("long", "B," + std::string(998, 'x') + "\nA,after\n");
    hostkit::clear_printed();
    EXPECT_EQ(findiorinfile("A", "long"), "");
    EXPECT_THAT(lines(), ElementsAre("findiorinfile:  no match in 'long' for A\n"));
    dir.write("huge", std::string(1 << 20, 'z') + "\nA,after\n");
    EXPECT_EQ(findiorinfile("A", "huge"), "");
}

TEST_F(GetIor, ListFileWithBinaryBytesNeverMatchesPastANul) {
    const char raw[] = "\x01\xff,\x80\nA\0,hidden\nB,\x7f\x00tail\nA,ok";
    std::string binary(raw, sizeof raw - 1);
    dir.write("bin", binary);
    EXPECT_EQ(findiorinfile("A", "bin"), "ok");
    EXPECT_EQ(findiorinfile("B", "bin"), "\x7f");
    std::string many;
    for (int i = 0; i < 20000; ++i) many += "X" + std::to_string(i) + ",IOR:\n";
    dir.write("many", many + "A,found");
    set_debug_level(0);
    EXPECT_EQ(findiorinfile("A", "many"), "found");
}

struct Agent : GetIor {
    Agent() {
        setenv("ZANTH_HOME", zanth.c_str(), 1);
        dir.write("agents.txt",
                  "# port repository instance reference\n"
                  "14000 A one IOR:default\n"
                  "15000 A one IOR:fifteen\n"
                  "14000 IDL:omg.org/CosNaming/NamingContext:1.0 ns IOR:naming\n");
        setenv("ZANTH_AGENT_DIRECTORY", (dir.path() + "/agents.txt").c_str(), 1);
    }
};

TEST_F(Agent, VisibrokerPassesThePortAsWritten) {
    EXPECT_EQ(run("Visibroker"), "IOR:default");
    EXPECT_THAT(lines(),
                ElementsAre("get_ior:  Visibroker modus\n",
                            "get_ior:  dllpath=[" + zanth + "/shlib/iiop/brokvane.dll]\n",
                            "get_ior:  Visibroker modus successfully loaded brokvane.dll\n",
                            "get_ior:  Visibroker modus, default agent port 14000\n",
                            "brokvane:  asking agent, port='' repository id='A' instance id='one'",
                            "brokvane:  agent at port 14000 answered with instance 'one'",
                            "get_ior:  iorfound=IOR:default\n"));
    EXPECT_EQ(run("visibroker(15000)"), "IOR:fifteen");
    EXPECT_EQ(lines()[3], "get_ior:  Visibroker modus, agent port 15000\n");
    EXPECT_EQ(run("Visibroker(15000"), "IOR:default");
    EXPECT_EQ(lines()[3], "get_ior:  Visibroker modus malformed, default agent port 14000\n");
    EXPECT_EQ(run("Visibroker()"), "IOR:default");
    EXPECT_EQ(lines()[3], "get_ior:  Visibroker modus, agent port \n");
    EXPECT_EQ(lines()[4], "brokvane:  asking agent, port='' repository id='A' instance id='one'");
}

TEST_F(Agent, VisibrokerWithoutAnswerPrintsTwoCatalogueMessages) {
    set_debug_level(0);
    EXPECT_EQ(run("Visibroker(16000)"), "");
    EXPECT_THAT(lines(),
                ElementsAre("brokvane:  asking agent, port='16000' repository id='A' "
                            "instance id='one'",
                            "brokvane:  agent at port 16000 knows no such object",
                            "MC_8_6_6: the agent found no object of interface 'A' named 'one'",
                            "MC_8_6_7: check that the server is running and registered with "
                            "the agent"));
}

TEST_F(Agent, VisibrokerNameServiceLoadsOldvaneAndAsksForTheNamingContext) {
    EXPECT_EQ(run("VisibrokerNameService(ns)"), "NameService");
    EXPECT_STREQ(name_service_ior(), "IOR:naming");
    EXPECT_THAT(lines(),
                ElementsAre("get_ior:  VisibrokerNameService modus\n",
                            "get_ior:  dllpath=[" + zanth + "/shlib/iiop/oldvane.dll]\n",
                            "get_ior:  VisibrokerNameService modus successfully loaded "
                            "brokvane.dll\n",
                            "oldvane:  asking agent, port='' repository "
                            "id='IDL:omg.org/CosNaming/NamingContext:1.0' instance id='ns'",
                            "oldvane:  agent at port 14000 answered with instance 'ns'",
                            "get_ior:  VisibrokerNameService modus successfully\n",
                            "          matched repo id "
                            "'IDL:omg.org/CosNaming/NamingContext:1.0'\n",
                            "          and instance id 'ns'\n", "get_ior:  IOR=IOR:naming\n"));
    // The library loaded first serves the other kind too.
    EXPECT_EQ(run("Visibroker"), "IOR:default");
    EXPECT_EQ(lines()[4], "oldvane:  asking agent, port='' repository id='A' instance id='one'");
    EXPECT_EQ(run("VisibrokerNameService(other)"), "");
    EXPECT_THAT(std::vector<std::string>(lines().end() - 2, lines().end()),
                ElementsAre("get_ior:  No match found for repo id "
                            "'IDL:omg.org/CosNaming/NamingContext:1.0'\n",
                            "          and instance id 'other'\n"));
}

TEST_F(Agent, FailedLoadGivesEmptyTextAndALaterAlternativeMayStillLoad) {
    unsetenv("ZANTH_HOME");
    EXPECT_EQ(run("Visibroker"), "");
    EXPECT_THAT(lines(), ElementsAre("get_ior:  Visibroker modus\n",
                                     "get_ior:  dllpath=[/shlib/iiop/brokvane.dll]\n",
                                     "get_ior:  Visibroker modus failed, unable to load\n",
                                     "          /shlib/iiop/brokvane.dll\n"));
    setenv("ZANTH_HOME", broken_zanth.c_str(), 1);
    EXPECT_EQ(run("VisibrokerNameService(ns)"), "");
    EXPECT_EQ(lines().back(), "          " + broken_zanth + "/shlib/iiop/oldvane.dll\n");
    setenv("ZANTH_HOME", zanth.c_str(), 1);
    EXPECT_EQ(run("Visibroker"), "IOR:default");
}
}  // namespace
