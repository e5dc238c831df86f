// RandomGen: cryptographically strong random bytes.
#pragma once

class DataBuffer;

class RandomGen {
  public:
    // Appends n random bytes from the OpenSSL generator to out. True also for
    // n == 0. On failure (generator not seeded, memory) false and nothing is
    // appended.
    static bool randomBytes(unsigned n, DataBuffer& out);
};
