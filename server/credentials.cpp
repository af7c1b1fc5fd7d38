#include "credentials.h"

#include <array>
#include <semaphore>
#include <sodium.h>
#include <stdexcept>

namespace kavel::server::credentials {

namespace {

// Each hash or check of a password takes 64 MiB for its moment. Sign-ins from many
// addresses at once would otherwise take that on every request thread, a gigabyte in
// all; a few at a time get through the processor just as fast.
std::counting_semaphore<> passwordWork(4);

struct PasswordWork
{
    PasswordWork() { passwordWork.acquire(); }
    ~PasswordWork() { passwordWork.release(); }
    PasswordWork(const PasswordWork &) = delete;
    PasswordWork &operator=(const PasswordWork &) = delete;
};

} // namespace

void initialise()
{
    if (sodium_init() < 0)
        throw std::runtime_error("libsodium could not be initialised");
}

std::string hashPassword(const std::string &password)
{
    std::array<char, crypto_pwhash_STRBYTES> out {};
    const PasswordWork turn;
    if (crypto_pwhash_str_alg(out.data(), password.data(), password.size(),
                              crypto_pwhash_OPSLIMIT_INTERACTIVE,
                              crypto_pwhash_MEMLIMIT_INTERACTIVE, crypto_pwhash_ALG_ARGON2ID13)
        != 0)
        throw std::runtime_error("out of memory while hashing a password");
    return std::string(out.data());
}

bool verifyPassword(const std::string &hash, const std::string &password)
{
    const PasswordWork turn;
    return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

std::string newToken()
{
    std::array<unsigned char, 32> bytes {};
    randombytes_buf(bytes.data(), bytes.size());
    std::array<char, sodium_base64_ENCODED_LEN(32, sodium_base64_VARIANT_URLSAFE_NO_PADDING)>
        text {};
    sodium_bin2base64(text.data(), text.size(), bytes.data(), bytes.size(),
                      sodium_base64_VARIANT_URLSAFE_NO_PADDING);
    return std::string(text.data());
}

std::string digest(const std::string &secret)
{
    std::array<unsigned char, crypto_generichash_BYTES> hash {};
    crypto_generichash(hash.data(), hash.size(),
                       reinterpret_cast<const unsigned char *>(secret.data()), secret.size(),
                       nullptr, 0);
    std::array<char, crypto_generichash_BYTES * 2 + 1> hex {};
    sodium_bin2hex(hex.data(), hex.size(), hash.data(), hash.size());
    return std::string(hex.data());
}

std::string newNumericCode(int digits)
{
    std::string code;
    for (int i = 0; i < digits; ++i)
        code.push_back(static_cast<char>('0' + randombytes_uniform(10)));
    return code;
}

} // namespace kavel::server::credentials
