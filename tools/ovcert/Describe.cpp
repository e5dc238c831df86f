#include "tools/ovcert/Describe.h"

#include <cstdio>
#include <new>

#include "cert/CertCore.h"
#include "support/store/SystemCerts.h"

int runDescribe(const std::vector<std::string>& files, bool showLog, bool verbose) {
    if (files.empty()) return 2;
    int status = 0;
    for (const std::string& file : files) {
        LogTree log;
        log.verboseLogging = verbose ? 1 : 0;
        SystemCerts* store = new (std::nothrow) SystemCerts();
        if (!store) return 1;
        store->incRefCount();
        CertCore* cert = CertCore::createFromFile2(file.c_str(), store, log);
        if (!cert) {
            fprintf(stderr, "ovcert: %s: no certificate could be loaded from it\n", file.c_str());
            fputs(log.text().c_str(), stderr);
            store->decRefCount();
            status = 1;
            continue;
        }
        cert->incRefCount();
        std::vector<CertCore*> all{cert};
        for (int i = 0; i < store->numCerts(); ++i) all.push_back(store->certAt(i));
        for (CertCore* c : all) {
            // The members are the caller's to wrap: here in one object.
            StringBuffer json("{");
            c->appendDescriptiveJson(json, log);
            json.append("}");
            printf("%s\n", json.getString());
        }
        cert->decRefCount();
        store->decRefCount();
        if (showLog) fputs(log.text().c_str(), stderr);
    }
    return status;
}
