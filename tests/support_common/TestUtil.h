// Helpers shared by the test programs: fixture paths, files, and running the
// openssl command line as an oracle.
#pragma once

#include <string>
#include <vector>

class DataBuffer;
class LogTree;

namespace ovtest {

// Path of a fixture under tests/data.
std::string dataPath(const std::string& rel);
std::string readFile(const std::string& path);
std::vector<unsigned char> readFileBytes(const std::string& path);
bool writeFile(const std::string& path, const std::string& content);
// The bytes held by the buffer.
std::string bytes(const DataBuffer& db);
// The error lines of the log in order, joined by " | "; empty when there are none.
std::string errors(const LogTree& log);

// A fresh directory under the system temp dir, removed by the destructor.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

  private:
    std::string m_path;
};

// Runs a shell command, returning its exit status and (optionally) its standard
// output. Standard error is passed through unless quiet is set.
int run(const std::string& cmd, std::string* out = nullptr, bool quiet = true);

// Quotes a string for the shell.
std::string shq(const std::string& s);

}  // namespace ovtest
