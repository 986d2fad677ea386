#include "TestSupport.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace tmaintest {

TempDir::TempDir() {
    const char* base = getenv("TMPDIR");
    std::string tmpl = std::string(base && *base ? base : "/tmp") + "/tmain-test-XXXXXX";
    std::vector<char> buf(tmpl.begin(), tmpl.end());
    buf.push_back(0);
    if (!mkdtemp(buf.data()))
        throw std::runtime_error("mkdtemp failed");
    mPath = buf.data();
}

TempDir::~TempDir() {
    run("rm -rf '" + mPath + "'");
}

bool underWine() {
    return false;
}

int run(const std::string& command, std::string* output) {
    FILE* p = popen(command.c_str(), "r");
    if (!p)
        return -1;
    std::string out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0)
        out.append(buf, n);
    int status = pclose(p);
    if (output)
        *output = out;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace tmaintest
