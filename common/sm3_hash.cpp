#include "common/sm3_hash.h"

#include <charconv>
#include <stdexcept>
#include <system_error>

#include <openssl/evp.h>

#include "base/shared_library.h"
#include "log/logger.h"

namespace {

// One of the largest libraries of a system, and most commands need no digest.
struct Crypto : SharedLibrary {
    Crypto() : SharedLibrary(LIBCRYPTO_SONAME) {}

    ZORV_LIBRARY_FUNCTION(EVP_Digest);
    ZORV_LIBRARY_FUNCTION(EVP_get_digestbyname);
};

const Crypto& crypto() {
    static const Crypto library;
    return library;
}

template <typename Unsigned>
constexpr size_t kHexDigits = 2 * sizeof(Unsigned);

template <typename Unsigned>
bool readTrailingHex(const std::string& digest, Unsigned& value) {
    const char* end = digest.data() + digest.size();
    const auto result = std::from_chars(end - kHexDigits<Unsigned>, end, value, 16);
    return result.ec == std::errc() && result.ptr == end;
}

}  // namespace

std::string getSM3HashValue(const std::string& input) try {
    constexpr const char* kAlphabet = "0123456789abcdef";
    const EVP_MD* algorithm = crypto().EVP_get_digestbyname("SM3");
    if (algorithm == nullptr) {
        ZORV_LOG(error, "Unsupported hash function SM3");
        return {};
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;  // stays so when a provider offers the name and not the algorithm
    if (crypto().EVP_Digest(input.data(), input.size(), digest, &length, algorithm, nullptr) != 1) {
        return {};
    }
    std::string text(2 * size_t{length}, '0');
    for (size_t i = 0; i < length; ++i) {
        text[2 * i] = kAlphabet[digest[i] >> 4];
        text[2 * i + 1] = kAlphabet[digest[i] & 0xf];
    }
    return text;
} catch (const std::runtime_error& failure) {
    ZORV_LOG(error, "%s", failure.what());
    return {};
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
