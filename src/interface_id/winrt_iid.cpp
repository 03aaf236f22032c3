#include "interface_id/winrt_iid.h"

#include <array>
#include <cstdint>
#include <vector>

namespace kel::interface_id {
namespace {

std::uint32_t RotateLeft(std::uint32_t value, int bits) { return (value << bits) | (value >> (32 - bits)); }

std::array<std::uint8_t, 20> Sha1(const std::vector<std::uint8_t>& message) {
  std::uint32_t h[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
  std::vector<std::uint8_t> data = message;
  const std::uint64_t bitLength = static_cast<std::uint64_t>(message.size()) * 8;
  data.push_back(0x80);
  while (data.size() % 64 != 56) data.push_back(0);
  for (int i = 7; i >= 0; --i) data.push_back(static_cast<std::uint8_t>(bitLength >> (i * 8)));

  for (std::size_t chunk = 0; chunk < data.size(); chunk += 64) {
    std::uint32_t w[80];
    for (std::size_t i = 0; i < 16; ++i) {
      w[i] = (static_cast<std::uint32_t>(data[chunk + 4 * i]) << 24) |
             (static_cast<std::uint32_t>(data[chunk + 4 * i + 1]) << 16) |
             (static_cast<std::uint32_t>(data[chunk + 4 * i + 2]) << 8) | data[chunk + 4 * i + 3];
    }
    for (int i = 16; i < 80; ++i) w[i] = RotateLeft(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    std::uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
    for (int i = 0; i < 80; ++i) {
      std::uint32_t f, k;
      if (i < 20) {
        f = (b & c) | (~b & d);
        k = 0x5A827999;
      } else if (i < 40) {
        f = b ^ c ^ d;
        k = 0x6ED9EBA1;
      } else if (i < 60) {
        f = (b & c) | (b & d) | (c & d);
        k = 0x8F1BBCDC;
      } else {
        f = b ^ c ^ d;
        k = 0xCA62C1D6;
      }
      const std::uint32_t temp = RotateLeft(a, 5) + f + e + k + w[i];
      e = d;
      d = c;
      c = RotateLeft(b, 30);
      b = a;
      a = temp;
    }
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
    h[4] += e;
  }
  std::array<std::uint8_t, 20> digest{};
  for (int i = 0; i < 5; ++i) {
    for (int j = 0; j < 4; ++j) digest[4 * i + j] = static_cast<std::uint8_t>(h[i] >> (24 - 8 * j));
  }
  return digest;
}

}  // namespace

Guid ParameterizedInterfaceId(std::string_view signature) {
  // The namespace GUID in network byte order, then the signature's bytes.
  std::vector<std::uint8_t> message = {0x11, 0xF4, 0x7A, 0xD5, 0x7B, 0x73, 0x42, 0xC0,
                                       0xAB, 0xAE, 0x87, 0x8B, 0x1E, 0x16, 0xAD, 0xEE};
  message.insert(message.end(), signature.begin(), signature.end());
  const auto digest = Sha1(message);
  Guid id{};
  id.data1 = (static_cast<std::uint32_t>(digest[0]) << 24) | (static_cast<std::uint32_t>(digest[1]) << 16) |
             (static_cast<std::uint32_t>(digest[2]) << 8) | digest[3];
  id.data2 = static_cast<std::uint16_t>((digest[4] << 8) | digest[5]);
  id.data3 = static_cast<std::uint16_t>((((digest[6] << 8) | digest[7]) & 0x0FFF) | 0x5000);  // version 5
  for (int i = 0; i < 8; ++i) id.data4[i] = digest[8 + i];
  id.data4[0] = static_cast<std::uint8_t>((id.data4[0] & 0x3F) | 0x80);  // RFC 4122 variant
  return id;
}

}  // namespace kel::interface_id
