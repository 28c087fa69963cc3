// Helpers shared by the unit tests.
#ifndef ORBELLE_TEST_SUPPORT_H
#define ORBELLE_TEST_SUPPORT_H

#include <string>
#include <vector>

#include "host/kit/hostkit.h"

#ifdef _WIN32
// The tests set and clear environment variables the POSIX way. Windows
// keeps a variable set to the empty text, as the library must see it.
int setenv(const char *name, const char *value, int overwrite);
int unsetenv(const char *name);
#endif

namespace testsupport {

// A host on the linked library, with the kit's slots installed and the
// captured lines cleared.
hostkit::Host linked_host();

// The whole text of a file (Windows line ends read as "\n"), empty if it
// cannot be read.
std::string read_file(const std::string &path);

// Fails the calling test for each of parts that text does not hold
// (expect_has) or does hold (expect_lacks); the failure shows the text.
void expect_has(const std::string &text, const std::vector<std::string> &parts);
void expect_lacks(const std::string &text, const std::vector<std::string> &parts);

// How many times what occurs in text, overlaps counted.
size_t count_of(const std::string &text, const std::string &what);

// Path of a file under tests/data.
std::string data_path(const std::string &relative);

// Runs the test's body in a fresh temporary directory (the library reads
// idl/ of the current directory); removed again on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    const std::string &path() const { return path_; }
    // Writes a file below the directory, making folders as needed.
    void write(const std::string &relative, const std::string &content) const;

private:
    std::string path_;
    std::string previous_;
};

}  // namespace testsupport

#endif
