#pragma once
// The stored form of secret keys (the MD5 passwords of sessions): the command
// line stores a key encoded so that it never shows as plain text, and the
// agent decodes it before use. The encoding is reversible and keyed by the
// name of what the key protects, so equal keys of two peers look different.
#include <optional>
#include <string>

namespace SecretCliLib {

// The stored text of a plain key: "7" followed by two hex digits of salt and
// two hex digits per byte.
std::string doEncodeKey(std::string const& plain, std::string const& context = "");
// The plain key of a stored one; nothing for a text that isn't an encoded
// key (wrong prefix, odd length, a non-hex digit).
std::optional<std::string> doDecodeKey(std::string const& stored, std::string const& context = "");
bool isEncodedKey(std::string const& stored);

}  // namespace SecretCliLib
