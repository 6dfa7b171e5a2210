#include "cli/number_conversion.h"

#include <cstdio>
#include <stdexcept>

#include "base/number_text.h"

namespace {

template <typename Convert>
auto convertWholeWord(const std::string& word, int base, Convert convert) {
    try {
        size_t used = 0;
        const auto value = convert(word, &used, base);
        if (used != word.size()) {
            throw std::invalid_argument("Conversion failed due to invalid characters in the string.");
        }
        return value;
    } catch (const std::invalid_argument& failure) {
        std::fprintf(stderr, "Invalid argument: %s\n", failure.what());
        throw;
    } catch (const std::out_of_range& failure) {
        std::fprintf(stderr, "Out of Range error: %s\n", failure.what());
        throw;
    }
}

}  // namespace

uint64_t toUnsigned64(const std::string& word, int base) {
    return convertWholeWord(word, base, [](const std::string& text, size_t* used, int radix) {
        return std::stoull(text, used, radix);
    });
}

uint32_t toUnsigned32(const std::string& word, int base) {
    return static_cast<uint32_t>(convertWholeWord(word, base, readUnsignedLong));
}
