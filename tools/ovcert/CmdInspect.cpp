#include "tools/ovcert/CmdInspect.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "cert/CertCore.h"
#include "tools/ovcert/CertSummary.h"
#include "tools/ovcert/ChainTree.h"
#include "tools/ovcert/FailureText.h"
#include "tools/ovcert/KeySources.h"
#include "tools/ovcert/Shared.h"

namespace {

// Everything inspect understands. New options get a member here and a branch
// in parseOptions; options that add per-certificate answers add them in
// addOptionFields.
struct InspectOptions {
    CommonOptions common;
    bool json = false;
    bool jsonl = false;
    bool chain = false;
    time_t moment = 0;
    KeyOptions keys;
    std::vector<std::string> files;
};

// Returns kExitOk to go on, anything else to stop with that status.
int parseOptions(int argc, char** argv, InspectOptions& o) {
    o.moment = time(nullptr);
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (takeCommonOption(a, o.common)) continue;
        if (a == "--json") {
            o.json = true;
        } else if (a == "--jsonl") {
            o.jsonl = true;
        } else if (a == "--chain") {
            o.chain = true;
        } else if ((a == "--key" || a == "--pass-env" || a == "--pkcs11" || a == "--pin-env") &&
                   i + 1 < argc) {
            std::string& dst = a == "--key"        ? o.keys.keyFile
                               : a == "--pass-env" ? o.keys.passEnv
                               : a == "--pkcs11"   ? o.keys.module
                                                   : o.keys.pinEnv;
            dst = argv[++i];
        } else if (a == "--slot" && i + 1 < argc) {
            char* end = nullptr;
            o.keys.slot = strtol(argv[++i], &end, 10);
            if (!*argv[i] || *end || o.keys.slot < 0)
                return usageError(kInspectCommand, "--slot takes a slot number");
        } else if (a == "--at") {
            if (i + 1 >= argc || !parseUtcTime(argv[i + 1], o.moment))
                return usageError(kInspectCommand, "--at takes a UTC time: 2030-01-01T00:00:00Z");
            ++i;
        } else if (isOption(a)) {
            return usageError(kInspectCommand, "unknown option " + a);
        } else {
            o.files.push_back(a);
        }
    }
    if (o.common.help) return kExitOk;
    if (o.json && o.jsonl)
        return usageError(kInspectCommand, "--json and --jsonl exclude each other");
    if (o.files.empty())
        return usageError(kInspectCommand, "no FILE given (use - for standard input)");
    // The PIN never goes on the command line: only the variable's name does.
    if (!o.keys.module.empty() && o.keys.pinEnv.empty())
        return usageError(kInspectCommand, "--pkcs11 needs --pin-env VAR");
    return kExitOk;
}

// Per-certificate answers that options ask for, added to the summary before
// it is printed (JSON members; text lines in summary.extraText).
void addOptionFields(KeySources* keys, CertCore& cert, CertSummary& s) {
    if (keys && keys->certificate() == &cert) keys->report(s);
}

std::string countLine(const std::string& file, size_t n) {
    return file + ": " + std::to_string(n) + " certificates\n";
}

int run(int argc, char** argv) {
    InspectOptions o;
    int st = parseOptions(argc, argv, o);
    if (st != kExitOk) return st;
    if (o.common.help) return printUsage(kInspectCommand);

    bool colour = colourWanted(STDOUT_FILENO, o.common);
    int status = kExitOk;
    nlohmann::ordered_json document = nlohmann::ordered_json::array();
    for (const std::string& file : o.files) {
        LoadedInput in(file, o.common.verbose);
        if (!in.load(true)) {
            fprintf(stderr, "ovcert: %s: %s\n", file.c_str(), in.failure().c_str());
            if (o.common.showLog) printLog(in.log());
            status = kExitFailed;
            continue;
        }
        // With --key the caller is already attaching a key; the hint would be noise.
        if (o.keys.keyFile.empty()) fputs(loadNotes(file, in.log()).c_str(), stderr);
        std::unique_ptr<KeySources> keys;
        if (o.keys.any()) {
            keys = std::make_unique<KeySources>(*in.chosen(), o.keys);
            std::string why;
            if (!keys->attach(in.log(), why)) {
                fprintf(stderr, "ovcert: %s\n", why.c_str());
                status = kExitFailed;
            } else {
                keys->moveKeyToItsCertificate(in.all());
            }
        }
        std::vector<CertCore*> certs = in.all();
        int carrier = -1;
        for (size_t i = 0; i < certs.size(); ++i)
            if (carriesPrivateKey(*certs[i], in.log())) carrier = static_cast<int>(i);

        std::vector<size_t> order;
        ChainTree tree;
        if (o.chain) {
            tree = buildChainTree(certs, carrier, in.log());
            order = tree.order;
        } else {
            for (size_t i = 0; i < certs.size(); ++i) order.push_back(i);
        }
        std::vector<CertSummary> summaries;
        for (size_t i : order) {
            SummaryContext ctx;
            ctx.moment = o.moment;
            ctx.carriesKey = static_cast<int>(i) == carrier;
            CertSummary s = summarizeCert(*certs[i], file, ctx, in.log());
            addOptionFields(keys.get(), *certs[i], s);
            if (s.unreadable && status == kExitOk) status = kExitUnreadable;
            summaries.push_back(std::move(s));
        }
        if (o.chain && (o.json || o.jsonl)) {
            // The issuer's index in this file's part of the output, or null.
            size_t base = document.size();
            for (size_t k = 0; k < order.size(); ++k) {
                int up = tree.issuer[order[k]];
                nlohmann::ordered_json idx;
                for (size_t m = 0; m < order.size(); ++m)
                    if (up >= 0 && order[m] == static_cast<size_t>(up)) idx = base + m;
                summaries[k].json["chainIssuer"] = idx;
            }
        }

        if (o.json || o.jsonl) {
            for (CertSummary& s : summaries) {
                if (o.jsonl)
                    printf("%s\n", s.json.dump().c_str());
                else
                    document.push_back(std::move(s.json));
            }
        } else {
            if (certs.size() > 1) fputs(countLine(file, certs.size()).c_str(), stdout);
            if (o.chain) {
                fputs(drawChainTree(tree, certs, carrier, in.log()).c_str(), stdout);
            } else {
                if (certs.size() > 1) fputs("\n", stdout);
                for (const CertSummary& s : summaries)
                    printf("%s\n", summaryText(s, colour).c_str());
            }
        }
        if (o.common.showLog) printLog(in.log());
    }
    if (o.json && !document.empty()) {
        bool tty = isatty(STDOUT_FILENO);
        const nlohmann::ordered_json& out = document.size() == 1 ? document[0] : document;
        printf("%s\n", out.dump(tty ? 2 : -1).c_str());
    }
    return status;
}

}  // namespace

const Command kInspectCommand = {
    "inspect",
    "what a file's certificates say (text or JSON)",
    "usage: ovcert inspect [--json | --jsonl] [--chain] [--at TIME] [--log] [--verbose]\n"
    "                      [--no-color] [KEY OPTIONS] FILE...\n"
    "\n"
    "Loads each FILE (- for standard input) through format detection and prints\n"
    "a summary of every certificate in it. Any form loads: DER, PEM (also bundles\n"
    "with keys), PKCS#7, base64, UTF-16LE base64, a JSON array of base64.\n"
    "\n"
    "  --json       one JSON document: an object for one certificate, an array\n"
    "               for several\n"
    "  --jsonl      one JSON object per certificate, one per line\n"
    "  --chain      order each file's certificates from the leaf up and draw who\n"
    "               issued whom (with --json: the members chainIssuer)\n"
    "  --at TIME    judge validity at TIME (2030-01-01T00:00:00Z) instead of now\n"
    "  --log        the component's log tree on standard error\n"
    "  --verbose    the component's verbose logging (with --log)\n"
    "  --no-color   no colour even on a terminal (NO_COLOR=1 does the same)\n"
    "\n"
    "Key options attach a private key to the certificate the component chooses\n"
    "(hasPrivateKey then answers for it):\n"
    "  --key KEYFILE [--pass-env VAR]\n"
    "               a PEM or DER key; says whether it is the certificate's key. An\n"
    "               encrypted key's password comes from the environment variable\n"
    "               VAR, else it is asked for on the terminal\n"
    "  --pkcs11 MODULE [--slot N] --pin-env VAR\n"
    "               links a session of the token (first initialised one without\n"
    "               --slot); hasPrivateKey logs in with the PIN held in VAR and\n"
    "               looks for the key; says whether a key handle was found\n",
    run,
};
