#ifndef TESTS_DOUBLES_COMMONCRYPTO_COMMONDIGEST_H_
#define TESTS_DOUBLES_COMMONCRYPTO_COMMONDIGEST_H_

// A double of CommonCrypto for tests: the functions that Platform/apple uses, declared from their
// public documentation, and no others. They return 1. A context is begun by CC_SHA256_Init() and
// ended by CC_SHA256_Final(): any other use of it ends the process.

#include <stdint.h>

extern "C" {

using CC_LONG = uint32_t;

struct CC_SHA256_CTX {
  alignas(8) unsigned char state[128];
};

int CC_SHA256_Init(CC_SHA256_CTX* context);
int CC_SHA256_Update(CC_SHA256_CTX* context, const void* data, CC_LONG length);
int CC_SHA256_Final(unsigned char* digest, CC_SHA256_CTX* context);

}  // extern "C"

#endif  // TESTS_DOUBLES_COMMONCRYPTO_COMMONDIGEST_H_
