#pragma once

#include <string>

// Secrets at rest: passwords as argon2id hashes, tokens and one-time codes only as
// BLAKE2b digests, so that a copy of the database lets nobody sign in.
namespace kavel::server::credentials {

// Must be called once before any other function here.
void initialise();

std::string hashPassword(const std::string &password);
bool verifyPassword(const std::string &hash, const std::string &password);

// 256 random bits, URL-safe base64 without padding.
std::string newToken();
// Hex digest of a token or code, the form stored and looked up.
std::string digest(const std::string &secret);

// A uniformly random code of `digits` decimal digits.
std::string newNumericCode(int digits);

} // namespace kavel::server::credentials
