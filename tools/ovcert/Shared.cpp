#include "tools/ovcert/Shared.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "cert/CertCore.h"
#include "support/store/SystemCerts.h"

bool takeCommonOption(const std::string& arg, CommonOptions& o) {
    if (arg == "--help" || arg == "-h") {
        o.help = true;
    } else if (arg == "--log") {
        o.showLog = true;
    } else if (arg == "--verbose") {
        o.verbose = true;
    } else if (arg == "--no-color") {
        o.noColor = true;
    } else {
        return false;
    }
    return true;
}

bool isOption(const std::string& arg) {
    return arg.size() > 1 && arg[0] == '-';
}

int usageError(const Command& cmd, const std::string& message) {
    fprintf(stderr, "ovcert %s: %s\nTry 'ovcert help %s' for its usage.\n", cmd.name,
            message.c_str(), cmd.name);
    return kExitUsage;
}

int printUsage(const Command& cmd) {
    fputs(cmd.usage, stdout);
    return kExitOk;
}

namespace {

// Standard input is read in pieces, stopping one byte past the cap so an
// oversized stream is refused without holding more than the cap.
bool readStdin(DataBuffer& out, std::string& why) {
    const unsigned cap = DataBuffer::kMaxLoadSize;
    char chunk[65536];
    for (;;) {
        ssize_t n = read(STDIN_FILENO, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            why = std::string("standard input could not be read: ") + strerror(errno);
            return false;
        }
        if (n == 0) return true;
        if (static_cast<size_t>(n) > cap - out.getSize()) {
            why = "standard input is larger than " + std::to_string(cap >> 20) +
                  " MiB, the most ovcert reads";
            return false;
        }
        if (!out.append(chunk, static_cast<unsigned>(n))) {
            why = "out of memory reading standard input";
            return false;
        }
    }
}

}  // namespace

bool readInput(const std::string& name, DataBuffer& out, std::string& why) {
    out.clear();
    if (name == "-") return readStdin(out, why);
    LogNull quiet;
    if (out.loadFileUtf8(name.c_str(), &quiet)) return true;
    why = "could not be read";
    return false;
}

bool colourWanted(int fd, const CommonOptions& o) {
    if (o.noColor) return false;
    const char* noColor = getenv("NO_COLOR");
    if (noColor && *noColor) return false;
    return isatty(fd) != 0;
}

void printLog(const LogTree& log) {
    std::string t = log.text();
    if (!t.empty()) fprintf(stderr, "%s", t.c_str());
}

LoadedInput::LoadedInput(std::string name, bool verbose) : m_name(std::move(name)) {
    m_log.verboseLogging = verbose ? 1 : 0;
}

LoadedInput::~LoadedInput() {
    if (m_cert) m_cert->decRefCount();
    if (m_store) m_store->decRefCount();
}

bool LoadedInput::load(bool withStore) {
    if (withStore) {
        m_store = new (std::nothrow) SystemCerts();
        if (!m_store) return false;
        m_store->incRefCount();
    }
    if (m_name != "-") {
        m_cert = CertCore::createFromFile2(m_name.c_str(), m_store, m_log);
    } else {
        DataBuffer data;
        std::string why;
        if (!readInput(m_name, data, why)) {
            m_log.logError(why.c_str());
            return false;
        }
        m_cert = CertCore::createFromBinary2(reinterpret_cast<const char*>(data.getData2()),
                                             data.getSize(), m_store, m_log);
    }
    if (!m_cert) return false;
    m_cert->incRefCount();
    return true;
}

std::vector<CertCore*> LoadedInput::all() const {
    std::vector<CertCore*> out;
    if (!m_cert) return out;
    out.push_back(m_cert);
    if (m_store)
        for (int i = 0; i < m_store->numCerts(); ++i) out.push_back(m_store->certAt(i));
    return out;
}
