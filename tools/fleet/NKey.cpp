#include "fleet/NKey.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "Failure.h"
#include "InputFile.h"

namespace tool::fleet {
namespace {

// The first letters come from the first bits: S for a seed, U for a user.
constexpr unsigned kSeed = 18 << 3;
constexpr unsigned kUser = 20 << 3;
constexpr std::size_t kKeyBytes = 32;
constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";

using KeyBytes = std::vector<std::uint8_t>;

// CRC-16 as in XMODEM: polynomial 0x1021, begins with 0.
unsigned Checksum(const KeyBytes& bytes) {
  unsigned crc = 0;
  for (const std::uint8_t byte : bytes) {
    crc ^= static_cast<unsigned>(byte) << 8;
    for (int bit = 0; bit < 8; ++bit)
      crc = ((crc << 1) ^ ((crc & 0x8000) != 0 ? 0x1021 : 0)) & 0xFFFF;
  }
  return crc;
}

std::string Written(KeyBytes bytes) {
  const unsigned crc = Checksum(bytes);
  bytes.push_back(crc & 0xFF);
  bytes.push_back(crc >> 8);
  std::string text;
  unsigned bits = 0, count = 0;
  for (const std::uint8_t byte : bytes) {
    bits = (bits << 8) | byte;
    for (count += 8; count >= 5; count -= 5) text += kDigits[(bits >> (count - 5)) & 31];
  }
  if (count > 0) text += kDigits[(bits << (5 - count)) & 31];
  return text;
}

// Without its checksum; none: it is wrong.
std::optional<KeyBytes> Read(std::string_view text) {
  KeyBytes bytes;
  unsigned bits = 0, count = 0;
  for (const char digit : text) {
    const std::size_t value = kDigits.find(digit);
    if (value == kDigits.npos) return std::nullopt;
    bits = (bits << 5) | static_cast<unsigned>(value);
    count += 5;
    if (count >= 8) bytes.push_back((bits >> (count -= 8)) & 0xFF);
  }
  const bool rest = count >= 5 || (bits & ((1U << count) - 1)) != 0;
  if (rest || bytes.size() < 3) return std::nullopt;
  const unsigned crc = bytes[bytes.size() - 2] | (static_cast<unsigned>(bytes.back()) << 8);
  bytes.resize(bytes.size() - 2);
  if (Checksum(bytes) != crc) return std::nullopt;
  return bytes;
}

std::string PublicHalf(const std::uint8_t* secret) {
  using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
  const Key key(EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, secret, kKeyBytes),
                EVP_PKEY_free);
  KeyBytes bytes(1 + kKeyBytes, kUser);
  std::size_t size = kKeyBytes;
  if (!key || EVP_PKEY_get_raw_public_key(key.get(), bytes.data() + 1, &size) != 1) {
    throw Failure(ExitCode::kFile, "OpenSSL has no Ed25519 keys");
  }
  return Written(bytes);
}

}  // namespace

std::string PublicKeyOf(const std::string& path) {
  const std::vector<std::uint8_t> file = ReadWholeFile(path, 1 << 16, "give a file with an NKey");
  const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
  // Other lines may have these letters, too.
  for (std::size_t from = text.find("SU"); from != text.npos; from = text.find("SU", from + 1)) {
    const auto seed = Read(text.substr(from, text.find_first_not_of(kDigits, from) - from));
    // Two bytes say what it is: 5 bits "seed", 5 bits of the user's letter.
    if (seed && seed->size() == 2 + kKeyBytes && ((*seed)[0] & 0xF8) == kSeed) {
      return PublicHalf(seed->data() + 2);
    }
  }
  throw Failure(ExitCode::kFile, fmt::format("{} has no user's NKey", path),
                "\"tessaline fleet key\" makes one; its line begins with SU");
}

void RequirePublicKey(const std::string& key) {
  const auto bytes = Read(key);
  if (bytes && bytes->size() == 1 + kKeyBytes && bytes->front() == kUser) return;
  throw Failure(ExitCode::kUsage, fmt::format("\"{}\" is no user's public key", key),
                "\"tessaline fleet key\" shows it; it begins with U");
}

std::string MakeKey(const std::string& path) {
  KeyBytes seed(2 + kKeyBytes);
  seed[0] = kSeed | (kUser >> 5);
  seed[1] = (kUser & 31) << 3;
  if (RAND_bytes(seed.data() + 2, kKeyBytes) != 1) {
    throw Failure(ExitCode::kFile, "there are no random numbers");
  }
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (file < 0) {
    const bool exists = errno == EEXIST;
    throw Failure(exists ? ExitCode::kExists : ExitCode::kFile,
                  fmt::format("cannot write {}: {}", path, strerror(errno)),
                  exists ? "a key is never overwritten; choose another name" : "");
  }
  const std::string line = Written(seed) + '\n';
  const bool written = write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  close(file);
  if (!written) {
    unlink(path.c_str());
    throw Failure(ExitCode::kFile, fmt::format("cannot write {}", path));
  }
  return PublicHalf(seed.data() + 2);
}

}  // namespace tool::fleet
