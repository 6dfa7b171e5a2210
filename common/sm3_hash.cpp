#include "common/sm3_hash.h"

#include <ios>
#include <sstream>
#include <stdexcept>

#include <openssl/evp.h>

#include "base/hexadecimal.h"
#include "base/shared_library.h"
#include "log/logger.h"

namespace {

ZORV_LOADED_LIBRARY_NOTE("digest", "SM3 digests of texts", LIBCRYPTO_SONAME);

// One of the largest libraries of a system, and most commands need no digest.
struct Crypto : SharedLibrary {
    Crypto() : SharedLibrary(LIBCRYPTO_SONAME) {}

    ZORV_LIBRARY_FUNCTION(EVP_DigestFinal_ex);
    ZORV_LIBRARY_FUNCTION(EVP_DigestInit_ex);
    ZORV_LIBRARY_FUNCTION(EVP_DigestUpdate);
    ZORV_LIBRARY_FUNCTION(EVP_MD_CTX_free);
    ZORV_LIBRARY_FUNCTION(EVP_MD_CTX_new);
    ZORV_LIBRARY_FUNCTION(EVP_get_digestbyname);
};

// Null when there is none of use.
const Crypto* crypto() {
    try {
        static const Crypto library;
        return &library;
    } catch (const std::runtime_error&) {
        return nullptr;
    }
}

template <typename Unsigned>
constexpr size_t kHexDigits = 2 * sizeof(Unsigned);

template <typename Unsigned>
bool readTrailingHex(const std::string& digest, Unsigned& value) {
    std::istringstream digits(digest.substr(digest.size() - kHexDigits<Unsigned>));
    digits >> std::hex >> value;
    return !digits.fail();
}

}  // namespace

std::string getSM3HashValue(const std::string& input) {
    const Crypto* library = crypto();
    const EVP_MD* algorithm = library != nullptr ? library->EVP_get_digestbyname("SM3") : nullptr;
    if (algorithm == nullptr) {
        ZORV_LOG(error, "Unsupported hash function SM3");
        return {};
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;  // stays so when a provider offers the name and not the algorithm
    EVP_MD_CTX* context = library->EVP_MD_CTX_new();
    if (context == nullptr) {
        return {};
    }
    library->EVP_DigestInit_ex(context, algorithm, nullptr);
    library->EVP_DigestUpdate(context, input.data(), input.size());
    library->EVP_DigestFinal_ex(context, digest, &length);
    library->EVP_MD_CTX_free(context);
    return hexadecimalOf(digest, length);
}

uint32_t getSM3HashLast32Bits(const std::string& input) {
    const std::string digest = getSM3HashValue(input);
    if (digest.size() < kHexDigits<uint32_t>) {
        ZORV_LOG(error, "Hash string is too short");
        return 0;
    }
    uint32_t value = 0;
    if (!readTrailingHex(digest, value)) {
        ZORV_LOG(error, "Invalid hex string for last 32 bits");
        return 0;
    }
    return value;
}

uint64_t getSM3HashLast64Bits(const std::string& input) {
    const std::string digest = getSM3HashValue(input);
    if (digest.size() < kHexDigits<uint64_t>) {
        ZORV_LOG(error, "hash string is too short");
        return 0;
    }
    uint64_t value = 0;
    if (!readTrailingHex(digest, value)) {
        ZORV_LOG(error, "Invalid hex string for last 64 bits");
        return 0;
    }
    return value;
}

uint32_t getKmodNameHash(const char* name, uint32_t length) {
    constexpr uint32_t kOffsetBasis = 0x811C9DC5;
    constexpr uint32_t kPrime = 0x01000193;
    uint32_t hash = kOffsetBasis;
    for (uint32_t i = 0; i < length; ++i) {
        hash ^= static_cast<uint32_t>(static_cast<signed char>(name[i]));
        hash *= kPrime;
    }
    return hash;
}
