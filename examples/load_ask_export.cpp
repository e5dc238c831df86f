// Load a certificate in any form, ask it a few questions, and write it out as
// PEM: the library's certificate object in twenty lines.
//
//   load_ask_export FILE
#include <cstdio>

#include "cert/CertCore.h"
#include "cert/CertificateHolder.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: load_ask_export FILE\n");
        return 2;
    }
    LogTree log;  // records what happened; print it when something fails
    CertificateHolder* holder = CertificateHolder::createFromFile(argv[1], nullptr, log);
    CertCore* cert = holder ? holder->getCertPtr(log) : nullptr;
    if (!cert) {
        fprintf(stderr, "%s", log.text().c_str());
        delete holder;
        return 1;
    }
    XString cn, serial;
    StringBuffer validTo, pem;
    cert->getSubjectPart("CN", cn, log);
    cert->getSerialNumber(serial, log);
    cert->getValidToSb(validTo, log);
    cert->getPem(pem, log);
    printf("CN: %s\nserial: %s\nvalid to: %s\n%s", cn.getUtf8(), serial.getUtf8(),
           validTo.getString(), pem.getString());
    delete holder;  // releases the certificate
    return 0;
}
