#include "tools/ovcert/CmdConvert.h"

#include <cstdio>
#include <string>

#include "cert/CertCore.h"
#include "tools/ovcert/Shared.h"

namespace {

struct ConvertOptions {
    CommonOptions common;
    std::string to;
    std::string out;
    std::vector<std::string> files;
};

int parseOptions(int argc, char** argv, ConvertOptions& o) {
    int st = parseArgs(kConvertCommand, argc, argv, o.common,
                       {{"--to", &o.to, nullptr}, {"-o", &o.out, nullptr}}, o.files);
    if (st != kExitOk) return st;
    if (o.common.help) return kExitOk;
    if (o.files.size() != 1) return usageError(kConvertCommand, "give exactly one FILE");
    if (o.to != "der" && o.to != "pem" && o.to != "pkipath")
        return usageError(kConvertCommand, "--to takes der, pem or pkipath");
    return kExitOk;
}

int run(int argc, char** argv) {
    ConvertOptions o;
    int st = parseOptions(argc, argv, o);
    if (st != kExitOk) return st;
    if (o.common.help) return printUsage(kConvertCommand);

    LoadedInput in(o.files[0], o.common.verbose);
    LogTree& log = in.log();
    if (!in.load(false)) {
        fprintf(stderr, "ovcert: %s: %s\n", o.files[0].c_str(), in.failure().c_str());
        if (o.common.showLog) printLog(log);
        return kExitFailed;
    }
    CertCore* cert = in.chosen();
    DataBuffer bytes;
    bool ok;
    if (o.to == "der") {
        ok = cert->getDEREncodedCert(bytes);
    } else {
        StringBuffer text;
        ok = (o.to == "pem") ? cert->getPem(text, log) : cert->getX509PKIPathv1(text, log);
        if (o.to == "pkipath") text.append("\n");
        bytes.append(text.getString(), text.getSize());
    }
    if (ok) {
        if (!o.out.empty()) {
            ok = bytes.saveToFileUtf8(o.out.c_str(), &log);
        } else {
            ok = fwrite(bytes.getData2(), 1, bytes.getSize(), stdout) == bytes.getSize();
        }
    }
    if (!ok) fprintf(stderr, "ovcert: the conversion failed; the log below says why\n");
    if (!ok || o.common.showLog) printLog(log);
    return ok ? kExitOk : kExitFailed;
}

}  // namespace

const Command kConvertCommand = {
    "convert",
    "re-encode a certificate as DER, PEM or PkiPath",
    "usage: ovcert convert FILE --to der|pem|pkipath [-o OUT] [--log] [--verbose]\n"
    "\n"
    "Loads FILE (- for standard input) and writes the certificate the component\n"
    "chooses (the one carrying the private key in a bundle with a key) in the\n"
    "form asked: DER, PEM, or a one-certificate PkiPath in base64. Without -o\n"
    "the result goes to standard output.\n",
    run,
};
