#include "backend/wire/handshake.h"

#include <array>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <stdexcept>

namespace {

// The library uses what it has not got when its start has failed for want of memory.
void startLibrary() {
    if (OPENSSL_init_crypto(0, nullptr) != 1 || !OSSL_LIB_CTX_get0_global_default())
        throw std::runtime_error("the library of hashes does not start");
}

} // namespace

std::string Handshake::proof(Side side, const std::string& secret, const std::string& hello,
                             const std::string& nonce) {
    // The lengths keep a text from running into the next one.
    const std::string text = std::string(side == AGENT ? "agent" : "front end") + '\0' +
                             std::to_string(hello.size()) + '\0' + hello + nonce;
    startLibrary();
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash;
    unsigned length = 0;
    if (!HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
              reinterpret_cast<const unsigned char*>(text.data()), text.size(), hash.data(),
              &length))
        throw std::runtime_error("cannot compute a keyed hash");
    return {hash.begin(), hash.begin() + length};
}

bool Handshake::equal(const std::string& one, const std::string& other) {
    return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

std::string Handshake::hash(const std::string& text) {
    startLibrary();
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash;
    unsigned length = 0;
    if (EVP_Digest(text.data(), text.size(), hash.data(), &length, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("cannot compute a hash");
    return {reinterpret_cast<const char*>(hash.data()), length};
}
