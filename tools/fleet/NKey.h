#pragma once

#include <string>

namespace tool::fleet {

// Keys by which the server knows its users: Ed25519, written in base 32 with a checksum. A file has
// the secret half, a line that begins with SU.

// The public half, which stands in the server's configuration and begins with U. Throws a Failure
// if `path` has no such key.
std::string PublicKeyOf(const std::string& path);
// Throws a Failure (ExitCode::kUsage) unless it is a public half.
void RequirePublicKey(const std::string& key);
// Writes a new key to `path`, which must not exist, for this user's eyes only. Returns the public
// half.
std::string MakeKey(const std::string& path);

}  // namespace tool::fleet
