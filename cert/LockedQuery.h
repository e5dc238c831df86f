// The shape shared by CertCore's read-only queries: the sentinel check without
// the lock, then the object's lock held while the parsed certificate is read.
#pragma once

#include "cert/CertCore.h"

namespace certquery {

// fn(x) under the lock, x being the parsed certificate (never null); `none`
// when the object fails its sentinel check or holds no parsed certificate.
// Nothing is logged on those two paths.
template <class R, class Fn>
R locked(CertCore& cert, R none, Fn fn) {
    if (cert.m_magic != CertCore::kMagic) return none;
    CritSecExitor lock(&cert);
    OrvaneX509* x = cert.getX509();
    return x ? fn(x) : none;
}

// The same for a query that replaces `out`: it is cleared once the lock is
// held, so an object without a certificate leaves it empty while a stale one
// leaves it as it was.
template <class Out, class Fn>
bool replacing(CertCore& cert, Out& out, Fn fn) {
    if (cert.m_magic != CertCore::kMagic) return false;
    CritSecExitor lock(&cert);
    out.clear();
    OrvaneX509* x = cert.getX509();
    return x ? fn(x) : false;
}

}  // namespace certquery
