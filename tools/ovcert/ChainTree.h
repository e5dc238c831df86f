// Who issued whom among the certificates of one input, by subject and issuer
// names and key identifiers as the certificate object reports them.
#pragma once

#include <string>
#include <vector>

class CertCore;
class LogBase;

struct ChainTree {
    // Input positions, leaves first and each followed by its issuers upwards.
    std::vector<size_t> order;
    // By input position: the position of the issuer in the input, the
    // certificate's own for a self-issued one, -1 when not in the input.
    std::vector<int> issuer;
};

// keyCarrier: the input position of the certificate carrying the private key
// (-1 for none); its path is listed first.
ChainTree buildChainTree(const std::vector<CertCore*>& certs, int keyCarrier, LogBase& log);

// The tree as text: each leaf on its own line, its issuers below it, indented.
std::string drawChainTree(const ChainTree& tree, const std::vector<CertCore*>& certs,
                          int keyCarrier, LogBase& log);
