#include "tests/support.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

extern "C" int32_t _iiop_entry(iiop_record *record);

namespace testsupport {

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
    char templ[] = "/tmp/orbelle-test-XXXXXX";
    if (mkdtemp(templ) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = templ;
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
