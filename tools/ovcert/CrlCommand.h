// CrlCommand: `ovcert crl`, what a CRL says (issuer, times, CRL number, entry
// count, signature check, one serial or every entry), read from a file or
// downloaded through the CRL cache.
#pragma once

// Runs the subcommand on its arguments (those after "crl"). Exit status: 0
// when the CRL was read, 1 when it could not be fetched or read, 2 on a usage
// error.
int crlCommand(int argc, char** argv);
