#include "Sha256.h"

#include <CommonCrypto/CommonDigest.h>

struct Sha256::Context {
  CC_SHA256_CTX state;
};

Sha256::Sha256() : context_(std::make_unique<Context>()) {
  CC_SHA256_Init(&context_->state);
}

Sha256::~Sha256() = default;

void Sha256::Update(const void* data, std::size_t length) {
  CC_SHA256_Update(&context_->state, data, static_cast<CC_LONG>(length));
}

Sha256::Digest Sha256::Finish() {
  Digest digest = {};
  CC_SHA256_Final(digest.data(), &context_->state);
  CC_SHA256_Init(&context_->state);
  return digest;
}
