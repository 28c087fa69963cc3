#include "tests/support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#ifdef _WIN32
#include <windows.h>

int setenv(const char *name, const char *value, int) {
    // The process environment for the library, the C library's copy for
    // getenv (which cannot hold an empty text).
    _putenv_s(name, value[0] != '\0' ? value : "");
    return SetEnvironmentVariableA(name, value) ? 0 : -1;
}

int unsetenv(const char *name) {
    _putenv_s(name, "");
    return SetEnvironmentVariableA(name, nullptr) ? 0 : -1;
}
#endif

extern "C" int32_t _iiop_entry(iiop_record *record);

namespace testsupport {

std::string read_file(const std::string &path) {
    std::ifstream in(path);  // text: Windows line ends read as "\n"
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void expect_has(const std::string &text, const std::vector<std::string> &parts) {
    for (const std::string &part : parts)
        if (text.find(part) == std::string::npos)
            ADD_FAILURE() << "missing: " << part << "\nin:\n" << text;
}

void expect_lacks(const std::string &text, const std::vector<std::string> &parts) {
    for (const std::string &part : parts)
        if (text.find(part) != std::string::npos)
            ADD_FAILURE() << "present: " << part << "\nin:\n" << text;
}

size_t count_of(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

hostkit::Host linked_host() {
    hostkit::Host host(&_iiop_entry);
    host.init();
    hostkit::clear_printed();
    return host;
}

std::string data_path(const std::string &relative) {
    return std::string(ORBELLE_TEST_DATA) + "/" + relative;
}

TempDir::TempDir() {
    // A fresh folder of a random name; create_directory says whether it
    // was new, so two tests never share one.
    std::random_device random;
    auto base = std::filesystem::temp_directory_path();
    for (int attempt = 0;; ++attempt) {
        if (attempt == 100) throw std::runtime_error("no fresh temporary folder");
        auto candidate = base / ("orbelle-test-" + std::to_string(random()));
        std::error_code failed;
        if (std::filesystem::create_directory(candidate, failed)) {
            path_ = candidate.generic_string();
            break;
        }
    }
    previous_ = std::filesystem::current_path().string();
    std::filesystem::current_path(path_);
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::current_path(previous_, ignored);
    std::filesystem::remove_all(path_, ignored);
}

void TempDir::write(const std::string &relative, const std::string &content) const {
    std::filesystem::path p = std::filesystem::path(path_) / relative;
    std::filesystem::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary);
    out << content;
}

}  // namespace testsupport
