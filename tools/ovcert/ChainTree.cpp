#include "tools/ovcert/ChainTree.h"

#include <algorithm>

#include "cert/CertCore.h"

namespace {

struct Facts {
    DataBuffer subject, issuer, aki;
    std::string ski;
    bool selfIssued = false;
};

std::string hexOf(const DataBuffer& db) {
    StringBuffer sb;
    db.encodeDB("hex", sb);
    return sb.getString();
}

std::string dnOf(CertCore& cert, bool subject, LogBase& log) {
    XString dn;
    bool ok = subject ? cert.getSubjectDN(dn, log) : cert.getIssuerDN(dn, log);
    return ok ? std::string(dn.getUtf8()) : std::string("(unreadable name)");
}

}  // namespace

ChainTree buildChainTree(const std::vector<CertCore*>& certs, int keyCarrier, LogBase& log) {
    LogNull quiet(log);
    const size_t n = certs.size();
    std::vector<Facts> f(n);
    for (size_t i = 0; i < n; ++i) {
        certs[i]->getPartDer(1, f[i].subject, quiet);
        certs[i]->getPartDer(0, f[i].issuer, quiet);
        certs[i]->getAuthorityKeyIdentifier(f[i].aki, nullptr, quiet);
        StringBuffer ski;
        if (certs[i]->getSubjectKeyIdentifier(ski, quiet)) f[i].ski = ski.getString();
        f[i].selfIssued = certs[i]->isIssuerSelf(quiet);
    }
    ChainTree t;
    t.issuer.assign(n, -1);
    for (size_t i = 0; i < n; ++i) {
        if (f[i].selfIssued) {
            t.issuer[i] = static_cast<int>(i);
            continue;
        }
        std::string aki = hexOf(f[i].aki);
        for (size_t j = 0; j < n; ++j) {
            if (j == i || f[i].issuer.isEmpty() || !f[j].subject.equals(f[i].issuer)) continue;
            // Same name, other key (a re-keyed or cross-certified CA): not this one.
            if (!aki.empty() && !f[j].ski.empty() && aki != f[j].ski) continue;
            bool keyMatch = !aki.empty() && aki == f[j].ski;
            if (t.issuer[i] < 0 || keyMatch) t.issuer[i] = static_cast<int>(j);
            if (keyMatch) break;
        }
    }
    // Leaves issued nothing in the input; the key's certificate goes first.
    std::vector<size_t> starts;
    for (size_t i = 0; i < n; ++i) {
        bool issuedSome = false;
        for (size_t k = 0; k < n; ++k)
            if (k != i && t.issuer[k] == static_cast<int>(i)) issuedSome = true;
        if (!issuedSome) starts.push_back(i);
    }
    std::stable_partition(starts.begin(), starts.end(),
                          [&](size_t i) { return static_cast<int>(i) == keyCarrier; });
    // Certificates only on cycles (cross-certified pairs) have no leaf.
    for (size_t i = 0; i < n; ++i) starts.push_back(i);
    std::vector<bool> seen(n, false);
    for (size_t s : starts) {
        for (int c = static_cast<int>(s); c >= 0 && !seen[c]; c = t.issuer[c]) {
            seen[c] = true;
            t.order.push_back(static_cast<size_t>(c));
        }
    }
    return t;
}

std::string drawChainTree(const ChainTree& tree, const std::vector<CertCore*>& certs,
                          int keyCarrier, LogBase& log) {
    LogNull quiet(log);
    std::string out;
    std::vector<bool> drawn(certs.size(), false);
    for (size_t pos = 0; pos < tree.order.size(); ++pos) {
        size_t i = tree.order[pos];
        // A new path starts where the previous certificate's issuer is not this one.
        bool continues = pos > 0 && tree.issuer[tree.order[pos - 1]] == static_cast<int>(i);
        int depth = 0;
        if (continues) {
            for (size_t back = pos; back > 0; --back) {
                if (tree.issuer[tree.order[back - 1]] != static_cast<int>(tree.order[back])) break;
                ++depth;
            }
        }
        auto lineFor = [&](size_t c, int d, const std::string& note) {
            std::string l = d == 0 ? "" : std::string(3 * (d - 1), ' ') + "└─ ";
            l += dnOf(*certs[c], true, quiet);
            if (static_cast<int>(c) == keyCarrier) l += "  [private key]";
            if (tree.issuer[c] == static_cast<int>(c)) l += "  (self-issued)";
            if (tree.issuer[c] < 0)
                l += "  [issuer not in file: " + dnOf(*certs[c], false, quiet) + "]";
            return l + note + "\n";
        };
        out += lineFor(i, depth, "");
        drawn[i] = true;
        // The path ends at a certificate drawn under an earlier leaf: show the link.
        int up = tree.issuer[i];
        bool lastOfPath =
            pos + 1 == tree.order.size() || tree.order[pos + 1] != static_cast<size_t>(up);
        if (lastOfPath && up >= 0 && up != static_cast<int>(i) && drawn[up])
            out += lineFor(static_cast<size_t>(up), depth + 1, "  (shown above)");
    }
    return out;
}
