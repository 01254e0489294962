#include <CommonCrypto/CommonDigest.h>
#include <nettle/sha2.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace {

constexpr std::uint32_t kBegun = 0x5A256;

struct State {
  std::uint32_t begun;
  sha256_ctx hash;
};
static_assert(sizeof(State) <= sizeof(CC_SHA256_CTX));

State& BegunState(CC_SHA256_CTX* context) {
  auto* const state = std::launder(reinterpret_cast<State*>(context->state));
  if (state->begun != kBegun) {
    std::fputs("CommonCrypto: a context that was not begun, or was ended\n", stderr);
    std::abort();
  }
  return *state;
}

}  // namespace

int CC_SHA256_Init(CC_SHA256_CTX* context) {
  sha256_init(&(new (context->state) State{kBegun, {}})->hash);
  return 1;
}

int CC_SHA256_Update(CC_SHA256_CTX* context, const void* data, CC_LONG length) {
  sha256_update(&BegunState(context).hash, length, static_cast<const unsigned char*>(data));
  return 1;
}

int CC_SHA256_Final(unsigned char* digest, CC_SHA256_CTX* context) {
  State& state = BegunState(context);
  sha256_digest(&state.hash, SHA256_DIGEST_SIZE, digest);
  state.begun = 0;
  return 1;
}
