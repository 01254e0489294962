#include "Sha256.h"

#include <nettle/sha2.h>

struct Sha256::Context {
  sha256_ctx state;
};

Sha256::Sha256() : context_(std::make_unique<Context>()) {
  sha256_init(&context_->state);
}

Sha256::~Sha256() = default;

void Sha256::Update(const void* data, std::size_t length) {
  sha256_update(&context_->state, length, static_cast<const unsigned char*>(data));
}

Sha256::Digest Sha256::Finish() {
  Digest digest = {};
  sha256_digest(&context_->state, digest.size(), digest.data());  // also resets the state
  return digest;
}
