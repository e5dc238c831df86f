#include "tools/ovcert/Shared.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "cert/CertCore.h"
#include "support/store/SystemCerts.h"
#include "tools/ovcert/FailureText.h"

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

int parseArgs(const Command& cmd, int argc, char** argv, CommonOptions& common,
              std::initializer_list<OptionSpec> specs, std::vector<std::string>& operands,
              size_t maxOperands, const char* tooMany) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (takeCommonOption(a, common)) continue;
        const OptionSpec* match = nullptr;
        for (const OptionSpec& s : specs)
            if (a == s.name && (!s.value || i + 1 < argc)) match = &s;
        if (match && match->value) {
            *match->value = argv[++i];
        } else if (match) {
            *match->flag = true;
        } else if (isOption(a)) {
            return usageError(cmd, "unknown option " + a);
        } else if (maxOperands && operands.size() == maxOperands) {
            return usageError(cmd, tooMany);
        } else {
            operands.push_back(a);
        }
    }
    return kExitOk;
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

std::string mib(unsigned bytes) {
    return std::to_string(bytes >> 20) + " MiB";
}

// Reads a stream into pieces of 1 MiB, then joins them into a buffer of
// exactly the stream's size, wiping and freeing each piece once copied: a
// growing buffer would hold up to twice the stream (old and new block) while
// it doubles, and the loader may still need one copy of its own. An oversized
// stream is refused one read past the cap.
bool readStream(int fd, const std::string& label, DataBuffer& out, std::string& why) {
    const unsigned cap = DataBuffer::kMaxLoadSize;
    const unsigned kPiece = 1u << 20;
    std::vector<std::unique_ptr<DataBuffer>> pieces;
    unsigned total = 0;
    char chunk[65536];
    for (;;) {
        if (pieces.empty() || pieces.back()->getSize() + sizeof chunk > kPiece) {
            pieces.push_back(std::make_unique<DataBuffer>());
            pieces.back()->setSecure(true);  // standard input may carry a private key
            if (!pieces.back()->ensureCapacity(kPiece)) {
                why = "out of memory reading " + label;
                return false;
            }
        }
        ssize_t n = read(fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            why = label + " could not be read (" + strerror(errno) + ")";
            return false;
        }
        if (n == 0) break;
        if (static_cast<size_t>(n) > cap - total) {
            why = label + " is larger than " + mib(cap) + ", the most ovcert reads";
            return false;
        }
        pieces.back()->append(chunk, static_cast<unsigned>(n));
        total += static_cast<unsigned>(n);
    }
    // One byte more: the loader puts a zero after the bytes there.
    if (!out.ensureCapacity(total + 1)) {
        why = "out of memory reading " + label;
        return false;
    }
    for (auto& piece : pieces) {
        out.append(*piece);
        piece.reset();
    }
    return true;
}

// Why a path cannot be loaded as a file, or "" when it is a readable regular
// file within the cap (stream: not a regular file, to be read as a stream).
std::string fileProblem(const std::string& path, bool& stream) {
    stream = false;
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        return std::string("cannot be read (") + strerror(errno) + "); check the path";
    if (S_ISDIR(st.st_mode))
        return "is a directory; give the certificate files in it (ovcert inspect DIR/*.pem)";
    if (!S_ISREG(st.st_mode)) {
        stream = true;
        return "";
    }
    if (access(path.c_str(), R_OK) != 0)
        return std::string("cannot be read (") + strerror(errno) + ")";
    if (static_cast<unsigned long long>(st.st_size) > DataBuffer::kMaxLoadSize)
        return "is larger than " + mib(DataBuffer::kMaxLoadSize) + ", the most ovcert reads";
    return "";
}

}  // namespace

bool readInput(const std::string& name, DataBuffer& out, std::string& why) {
    out.clear();
    if (name == "-") return readStream(STDIN_FILENO, "standard input", out, why);
    bool stream = false;
    why = fileProblem(name, stream);
    if (!why.empty()) return false;
    if (stream) {
        int fd = open(name.c_str(), O_RDONLY);
        if (fd < 0) {
            why = std::string("cannot be read (") + strerror(errno) + ")";
            return false;
        }
        bool ok = readStream(fd, name, out, why);
        close(fd);
        return ok;
    }
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

LoadedInput::~LoadedInput() = default;

bool LoadedInput::load(bool withStore) {
    if (withStore) {
        m_store = RefPtr<SystemCerts>::retain(new (std::nothrow) SystemCerts());
        if (!m_store) {
            m_failure = "out of memory";
            return false;
        }
    }
    // The input may hold a private key's PEM text.
    DataBuffer data;
    data.setSecure(true);
    bool stream = m_name == "-";
    if (!stream) {
        m_failure = fileProblem(m_name, stream);
        if (!m_failure.empty()) {
            m_log.logError(m_failure.c_str());
            return false;
        }
    }
    if (stream) {
        if (!readInput(m_name, data, m_failure)) {
            m_log.logError(m_failure.c_str());
            return false;
        }
        m_cert = RefPtr<CertCore>::retain(
            CertCore::createFromBinaryDetectFmt(data, m_store.get(), m_log));
    } else {
        m_cert = RefPtr<CertCore>::retain(
            CertCore::createFromFile2(m_name.c_str(), m_store.get(), m_log));
        if (!m_cert && !readInput(m_name, data, m_failure)) return false;
    }
    if (!m_cert) {
        m_failure = explainLoadFailure(data, m_log);
        return false;
    }
    return true;
}

std::vector<CertCore*> LoadedInput::all() const {
    std::vector<CertCore*> out;
    if (!m_cert) return out;
    out.push_back(m_cert.get());
    if (m_store)
        for (int i = 0; i < m_store->numCerts(); ++i) out.push_back(m_store->certAt(i));
    return out;
}
