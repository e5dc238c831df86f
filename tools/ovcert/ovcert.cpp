// ovcert: the command-line face of the certificate component.
//
//   ovcert inspect [--json] [--log] [--verbose] FILE...   (FILE may be -)
//   ovcert convert FILE --to der|pem|pkipath [-o OUT] [--log] [--verbose]
//
// A thin layer: loading goes through the component's format detection, and
// every answer comes from one of its operations.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "cert/CertCore.h"
#include "support/store/SystemCerts.h"
#include "tools/ovcert/CertSummary.h"
#include "tools/ovcert/CmdOcsp.h"

namespace {

const char kUsage[] =
    "usage:\n"
    "  ovcert inspect [--json] [--log] [--verbose] FILE...\n"
    "  ovcert convert FILE --to der|pem|pkipath [-o OUT] [--log] [--verbose]\n"
    "  ovcert ocsp CERT [--issuer FILE] [--url URL] [--json] [--log] [--verbose]\n"
    "  ovcert ocsp --respin FILE [--issuer FILE] [--json] [--log] [--verbose]\n"
    "FILE may be - for standard input. Any form loads: DER, PEM (also bundles\n"
    "with keys), PKCS#7, base64, UTF-16LE base64, a JSON array of base64.\n";

struct Options {
    bool json = false;
    bool showLog = false;
    bool verbose = false;
    std::string to;
    std::string out;
    std::vector<std::string> files;
};

bool parseArgs(int argc, char** argv, int start, Options& o) {
    for (int i = start; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--json") {
            o.json = true;
        } else if (a == "--log") {
            o.showLog = true;
        } else if (a == "--verbose") {
            o.verbose = true;
        } else if ((a == "--to" || a == "-o") && i + 1 < argc) {
            (a == "--to" ? o.to : o.out) = argv[++i];
        } else if (a.size() > 1 && a[0] == '-' && a != "-") {
            fprintf(stderr, "ovcert: unknown option %s\n", a.c_str());
            return false;
        } else {
            o.files.push_back(a);
        }
    }
    return true;
}

void printLog(const LogTree& log) {
    std::string t = log.text();
    if (!t.empty()) fprintf(stderr, "%s", t.c_str());
}

// Loads one file (or standard input) through format detection. Certificates
// of a bundle other than the one chosen land in the store.
CertCore* loadInput(const std::string& file, SystemCerts* store, LogBase& log) {
    if (file != "-") return CertCore::createFromFile2(file.c_str(), store, log);
    std::string data((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
    return CertCore::createFromBinary2(data.data(), static_cast<unsigned>(data.size()), store, log);
}

int inspect(const Options& o) {
    if (o.files.empty()) {
        fputs(kUsage, stderr);
        return 2;
    }
    bool tty = isatty(STDOUT_FILENO);
    int status = 0;
    for (const std::string& file : o.files) {
        LogTree log;
        log.verboseLogging = o.verbose ? 1 : 0;
        SystemCerts* store = new (std::nothrow) SystemCerts();
        if (!store) return 1;
        store->incRefCount();
        CertCore* cert = loadInput(file, store, log);
        if (!cert) {
            fprintf(stderr, "ovcert: %s: no certificate could be loaded from it\n", file.c_str());
            printLog(log);
            store->decRefCount();
            status = 1;
            continue;
        }
        cert->incRefCount();
        std::vector<CertCore*> all{cert};
        for (int i = 0; i < store->numCerts(); ++i) all.push_back(store->certAt(i));
        for (CertCore* c : all) {
            auto s = summarizeCert(*c, file, log);
            if (o.json)
                printf("%s\n", s.dump(tty ? 2 : -1).c_str());
            else
                printf("%s\n", summaryText(s).c_str());
        }
        cert->decRefCount();
        store->decRefCount();
        if (o.showLog) printLog(log);
    }
    return status;
}

int convert(const Options& o) {
    if (o.files.size() != 1 || (o.to != "der" && o.to != "pem" && o.to != "pkipath")) {
        fputs(kUsage, stderr);
        return 2;
    }
    LogTree log;
    log.verboseLogging = o.verbose ? 1 : 0;
    CertCore* cert = loadInput(o.files[0], nullptr, log);
    if (!cert) {
        fprintf(stderr, "ovcert: %s: no certificate could be loaded from it\n", o.files[0].c_str());
        printLog(log);
        return 1;
    }
    cert->incRefCount();
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
    cert->decRefCount();
    if (!ok) fprintf(stderr, "ovcert: conversion failed\n");
    if (!ok || o.showLog) printLog(log);
    return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || !strcmp(argv[1], "-h") || !strcmp(argv[1], "--help")) {
        fputs(kUsage, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    if (!strcmp(argv[1], "ocsp")) return runOcspCommand(argc - 1, argv + 1);
    Options o;
    if (!parseArgs(argc, argv, 2, o)) return 2;
    std::string cmd = argv[1];
    if (cmd == "inspect") return inspect(o);
    if (cmd == "convert") return convert(o);
    fprintf(stderr, "ovcert: unknown command %s\n", cmd.c_str());
    fputs(kUsage, stderr);
    return 2;
}
