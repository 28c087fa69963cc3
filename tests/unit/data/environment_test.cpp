#include "data/environment.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/kit/hostkit.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace {

int kind_of(const char *id) {
    Environment env;
    env.take_system(new_system_exception(id, 0, 0));
    return env.exception_kind();
}

TEST(Environment, ExceptionKindByIdPrefix) {
    EXPECT_EQ(Environment().exception_kind(), 0);
    for (const char *id :
         {exid::COMM_FAILURE, exid::Bounds, "IDL:omg.org/CORBA/SOMETHING_NEWER:1.0"})
        EXPECT_EQ(kind_of(id), 1) << id;
    for (const char *id :
         {"IDL:omg.org/CORBA/TypeCode/BadKind:1.0", "IDL:omg.org/CORBA",
          "IDL:omg.org/corba/MARSHAL:1.0", "IDL:Demo/Oops:1.0", static_cast<const char *>(nullptr)})
        EXPECT_EQ(kind_of(id), 2) << nz(id);
}

TEST(Environment, RaiseReplacesAndClearReleases) {
    Environment env;
    env.clear();  // empty: nothing happens
    EXPECT_EQ(raise_system(env, exid::MARSHAL), 0);
    ASSERT_NE(env.system_exception(), nullptr);
    EXPECT_STREQ(env.id(), exid::MARSHAL);
    EXPECT_NE(env.id(), exid::MARSHAL);  // a copy
    EXPECT_EQ(std::make_tuple(env.system_exception()->minor, env.system_exception()->completed),
              std::make_tuple(0xFFFF0000u, 2u));

    raise_bounds(env);
    EXPECT_STREQ(env.id(), exid::Bounds);
    EXPECT_EQ(std::make_tuple(env.system_exception()->minor, env.system_exception()->completed),
              std::make_tuple(0u, 0u));

    // A user exception block: id then members.
    struct User {
        char *id;
        int32_t member;
    };
    auto *user = static_cast<User *>(std::malloc(sizeof(User)));
    user->id = strdup("IDL:Demo/E:1.0");
    env.take_user(user);
    EXPECT_EQ(std::make_tuple(env.exception(), env.system_exception(), env.exception_kind()),
              std::make_tuple(static_cast<void *>(user), nullptr, 2));
    env.clear();
    env.clear();
    EXPECT_EQ(std::make_tuple(env.has_exception(), env.id()), std::make_tuple(false, nullptr));
}

TEST(Environment, DmsgXFillsErrorTextAtEveryLevelAndPrintsWhenTracing) {
    set_host_slots(hostkit::slots());
    hostkit::clear_printed();
    set_error_text("connect failure to '%s:%d'", "host", 1);
    Environment env;
    env.take_system(new_system_exception(exid::TRANSIENT, 5, 1));
    _dmsg_x(env, "here");
    EXPECT_STREQ(error_text, exid::TRANSIENT);

    set_debug_level(1);
    _dmsg_x(env, "do_call, invoke");
    EXPECT_EQ(hostkit::printed(),
              (std::vector<std::string>{
                  "exception 'IDL:omg.org/CORBA/TRANSIENT:1.0' at 'do_call, invoke'\n",
                  "minor 0x5, completion 0x1\n"}));

    // A user exception prints no minor or completion.
    hostkit::clear_printed();
    auto *user = static_cast<char **>(std::malloc(sizeof(char *)));
    *user = strdup("IDL:X:1.0");
    env.take_user(user);
    _dmsg_x(env, "w");
    EXPECT_EQ(hostkit::printed().size(), 1u);

    // An id longer than error_text is cut, never overflowed.
    std::string id = "IDL:omg.org/CORBA/" + std::string(2000, 'X');
    env.take_system(new_system_exception(id.c_str(), 0, 0));
    _dmsg_x(env, "w");
    EXPECT_EQ(std::string(error_text), id.substr(0, error_text_size - 1));
    set_debug_level(0);
}

}  // namespace
