#ifndef FUZZ_FUZZ_H_
#define FUZZ_FUZZ_H_

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

/// Ends the process unless `holds`; the fuzzer reports that as a finding.
inline void Require(bool holds, const std::string& what) {
  if (!holds) {
    std::fprintf(stderr, "Does not hold: %s\n", what.c_str());
    std::abort();
  }
}

inline void RequireEqual(const std::string& a, const std::string& b, const std::string& what) {
  Require(a == b, what + ":\n  " + a + "\n  " + b);
}

/// What each target defines, and the fuzzer calls with one input after the other.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#endif  // FUZZ_FUZZ_H_
