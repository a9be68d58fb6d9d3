// A message is padded to blocks of 64 bytes, 16 big-endian words each:
//
//     bytes of the message | 80 | 00 … | its length in bits, 8 bytes big-endian
//
// Some hundred kilobytes a page: the plain form is fast enough, and a library less to link.
#include "kit/page/sha256.h"

#include <bit>
#include <cstddef>

namespace vorn::kit {
namespace {

constexpr std::array<uint32_t, 64> kRoundConstants{
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

using State = std::array<uint32_t, 8>;

void Take(State& state, const unsigned char* block) {
  std::array<uint32_t, 64> words{};
  for (size_t i = 0; i < 16; ++i) {
    words[i] = static_cast<uint32_t>(block[4 * i]) << 24 |
               static_cast<uint32_t>(block[4 * i + 1]) << 16 |
               static_cast<uint32_t>(block[4 * i + 2]) << 8 | block[4 * i + 3];
  }
  for (size_t i = 16; i < 64; ++i) {
    const uint32_t a = words[i - 15];
    const uint32_t b = words[i - 2];
    words[i] = words[i - 16] + (std::rotr(a, 7) ^ std::rotr(a, 18) ^ (a >> 3)) + words[i - 7] +
               (std::rotr(b, 17) ^ std::rotr(b, 19) ^ (b >> 10));
  }
  State s = state;
  for (size_t i = 0; i < 64; ++i) {
    const uint32_t e = s[4];
    const uint32_t a = s[0];
    const uint32_t first = s[7] + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) +
                           ((e & s[5]) ^ (~e & s[6])) + kRoundConstants[i] + words[i];
    const uint32_t second = (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) +
                            ((a & s[1]) ^ (a & s[2]) ^ (s[1] & s[2]));
    s = {first + second, s[0], s[1], s[2], s[3] + first, s[4], s[5], s[6]};
  }
  for (size_t i = 0; i < 8; ++i) state[i] += s[i];
}

}  // namespace

std::array<uint8_t, 32> Sha256(std::string_view bytes) {
  std::string message(bytes);
  message += '\x80';
  while (message.size() % 64 != 56) message += '\0';
  const uint64_t bits = static_cast<uint64_t>(bytes.size()) * 8;
  for (int shift = 56; shift >= 0; shift -= 8) message += static_cast<char>(bits >> shift & 0xff);

  State state{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
              0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  const auto* at = reinterpret_cast<const unsigned char*>(message.data());
  for (size_t block = 0; block < message.size(); block += 64) Take(state, at + block);

  std::array<uint8_t, 32> hash{};
  for (size_t i = 0; i < hash.size(); ++i) {
    hash[i] = static_cast<uint8_t>(state[i / 4] >> (24 - 8 * (i % 4)));
  }
  return hash;
}

std::string Base64(std::string_view bytes) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t count = bytes.size() - i < 3 ? bytes.size() - i : 3;
    uint32_t group = 0;
    for (size_t k = 0; k < 3; ++k) {
      group = group << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0U);
    }
    for (size_t k = 0; k < 4; ++k) {
      text += k <= count ? kDigits[group >> (18 - 6 * k) & 63] : '=';
    }
  }
  return text;
}

std::string PolicyHash(std::string_view bytes) {
  const auto hash = Sha256(bytes);
  return "sha256-" +
         Base64(std::string_view(reinterpret_cast<const char*>(hash.data()), hash.size()));
}

}  // namespace vorn::kit
