// `ovcert ocsp`: ask a certificate's OCSP responder, or read a saved response.
#pragma once

// argv[0] is "ocsp"; the options and operands follow. Returns the exit status.
int runOcspCommand(int argc, char** argv);
