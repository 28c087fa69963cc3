// Runs orbelle-run as a user would, for the tool tests.
#ifndef ORBELLE_TESTS_RUN_TOOL_H
#define ORBELLE_TESTS_RUN_TOOL_H

#ifndef _WIN32
#include <sys/wait.h>
#endif

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/peer/peer.h"

namespace testsupport {

// Runs command through the shell, standard error with standard output
// unless the command redirects it; output gets what it printed. Returns the
// exit status.
inline int run_command(std::string command, std::string &output) {
    if (command.find("2>") == std::string::npos) command += " 2>&1";
    FILE *p = popen(command.c_str(), "r");
    if (!p) return -1;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, p)) > 0) output.append(buffer, n);
    int status = pclose(p);
#ifdef _WIN32
    return status;
#else
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
}

// Runs "orbelle-run args" as run_command does.
inline int run_runner(const std::string &args, std::string &output) {
    return run_command(std::string(ORBELLE_RUNNER_PATH) + " " + args, output);
}

// What "orbelle-run args" prints, as run_runner gives it; a failure of
// the test unless it exits with status.
inline std::string runner_output(const std::string &args, int status) {
    std::string output;
    EXPECT_EQ(run_runner(args, output), status) << args << "\n" << output;
    return output;
}

// A well-formed reference to a port nothing listens on: it binds, and only
// calls fail.
inline std::string closed_ior() {
    return peer::ior_text(peer::ior_bytes("IDL:Thing:1.0", "127.0.0.1", peer::closed_port(), "k"));
}

}  // namespace testsupport

#endif
