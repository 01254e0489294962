#ifndef FUZZ_FUZZ_H_
#define FUZZ_FUZZ_H_

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

/// Ends the process unless `holds` is true. The fuzzer reports the end as a finding.
inline void Require(bool holds, const std::string& what) {
  if (!holds) {
    std::fprintf(stderr, "Does not hold: %s\n", what.c_str());
    std::abort();
  }
}

inline void RequireEqual(const std::string& a, const std::string& b, const std::string& what) {
  Require(a == b, what + ":\n  " + a + "\n  " + b);
}

/// Each fuzzer defines this function. The fuzzing library calls the function for each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#endif  // FUZZ_FUZZ_H_
