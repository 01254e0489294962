// The digests of the examples in the standard (FIPS 180-4), for input of any chunk size.

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>

#include "Sha256.h"

namespace {

constexpr char kOfNothing[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr char kOfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr char kTwoBlocks[] = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
constexpr char kOfTwoBlocks[] = "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1";
constexpr char kOfAMillionTimesA[] =
    "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";

std::string TextOf(const Sha256::Digest& digest) {
  std::ostringstream text;
  text << std::hex << std::setfill('0');
  for (const unsigned char byte : digest) {
    text << std::setw(2) << static_cast<unsigned>(byte);
  }
  return text.str();
}

/// Returns the digest of `bytes`, given in chunks of `size` bytes and a remainder.
std::string DigestOf(const std::string& bytes, std::size_t size) {
  Sha256 hash;
  for (std::size_t at = 0; at < bytes.size(); at += size) {
    const std::string chunk = bytes.substr(at, size);
    hash.Update(chunk.data(), chunk.size());
  }
  return TextOf(hash.Finish());
}

TEST(Sha256Test, DigestsEqualTheExamplesOfTheStandard) {
  EXPECT_EQ(TextOf(Sha256().Finish()), kOfNothing);
  EXPECT_EQ(DigestOf("abc", 3), kOfAbc);
  EXPECT_EQ(DigestOf(kTwoBlocks, 100), kOfTwoBlocks);
  EXPECT_EQ(DigestOf(std::string(1'000'000, 'a'), 1'000'000), kOfAMillionTimesA);
}

TEST(Sha256Test, ChunksMayHaveAnySize) {
  for (const std::size_t size : {1U, 7U, 55U, 56U}) {
    EXPECT_EQ(DigestOf(kTwoBlocks, size), kOfTwoBlocks) << size;
  }
  for (const std::size_t size : {63U, 64U, 65U, 8192U}) {
    EXPECT_EQ(DigestOf(std::string(1'000'000, 'a'), size), kOfAMillionTimesA) << size;
  }
}

TEST(Sha256Test, EmptyChunkChangesNothing) {
  Sha256 hash;
  hash.Update("", 0);
  hash.Update("abc", 3);
  hash.Update("", 0);
  EXPECT_EQ(TextOf(hash.Finish()), kOfAbc);
}

TEST(Sha256Test, FinishStartsANewDigest) {
  Sha256 hash;
  hash.Update("abc", 3);
  EXPECT_EQ(TextOf(hash.Finish()), kOfAbc);
  EXPECT_EQ(TextOf(hash.Finish()), kOfNothing);
  hash.Update("abc", 3);
  EXPECT_EQ(TextOf(hash.Finish()), kOfAbc);
}

TEST(Sha256Test, ObjectsDoNotDisturbEachOther) {
  Sha256 one;
  Sha256 other;
  one.Update("ab", 2);
  other.Update(kTwoBlocks, sizeof kTwoBlocks - 1);
  one.Update("c", 1);
  EXPECT_EQ(TextOf(one.Finish()), kOfAbc);
  EXPECT_EQ(TextOf(other.Finish()), kOfTwoBlocks);
}

}  // namespace
