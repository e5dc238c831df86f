#include "support_common/TestUtil.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "support/base/DataBuffer.h"
#include "support/base/LogBase.h"

namespace ovtest {

std::string dataPath(const std::string& rel) {
    const char* env = getenv("OV_TEST_DATA_DIR");
#ifdef OV_TEST_DATA_DIR
    std::string base = env ? env : OV_TEST_DATA_DIR;
#else
    std::string base = env ? env : "tests/data";
#endif
    return base + "/" + rel;
}

std::string readFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

std::vector<unsigned char> readFileBytes(const std::string& path) {
    std::string s = readFile(path);
    return std::vector<unsigned char>(s.begin(), s.end());
}

bool writeFile(const std::string& path, const std::string& content) {
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f << content;
    return static_cast<bool>(f);
}

std::string bytes(const DataBuffer& db) {
    return std::string(reinterpret_cast<const char*>(db.getData2()), db.getSize());
}

namespace {
void collectErrors(const LogTree::Entry& e, std::string& out) {
    if (e.kind == LogTree::Kind::Error) out += (out.empty() ? "" : " | ") + e.text;
    for (const auto& child : e.children) collectErrors(*child, out);
}
}  // namespace

std::string errors(const LogTree& log) {
    std::string out;
    collectErrors(log.root(), out);
    return out;
}

TempDir::TempDir() {
    const char* tmp = getenv("TMPDIR");
    std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/ovtest.XXXXXX";
    std::vector<char> buf(tmpl.begin(), tmpl.end());
    buf.push_back('\0');
    if (mkdtemp(buf.data())) m_path = buf.data();
}

TempDir::~TempDir() {
    if (!m_path.empty()) run("rm -rf " + shq(m_path));
}

std::string shq(const std::string& s) {
    std::string r = "'";
    for (char c : s) {
        if (c == '\'')
            r += "'\\''";
        else
            r += c;
    }
    return r + "'";
}

int run(const std::string& cmd, std::string* out, bool quiet) {
    std::string full = quiet ? "(" + cmd + ") 2>/dev/null" : cmd;
    FILE* p = popen(full.c_str(), "r");
    if (!p) return -1;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) {
        if (out) out->append(buf, n);
    }
    int st = pclose(p);
    return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

}  // namespace ovtest
