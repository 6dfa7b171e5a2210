#include "state/json_names.h"

#include "state/state_format.h"

namespace {

constexpr unsigned int kContinuation = 0x80;
constexpr unsigned int kLead = 0xc0;  // of two bytes
constexpr unsigned int kLowBits = 0x3f;

bool isUtf8(const std::string& text) {
    try {
        static_cast<void>(Json(text).dump());
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

std::string asLatin1(const std::string& bytes) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < kContinuation) {
            text.push_back(c);
        } else {
            text.push_back(static_cast<char>(kLead | (byte >> 6U)));
            text.push_back(static_cast<char>(kContinuation | (byte & kLowBits)));
        }
    }
    return text;
}

}  // namespace

void addName(Json& record, std::string key, const std::string& name) {
    const bool isText = isUtf8(name);
    record[key.append(isText ? "" : kLatin1)] = isText ? name : asLatin1(name);
}

std::optional<std::string> bytesOfLatin1(const std::string& text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead < kContinuation) {
            bytes.push_back(text[i]);
        } else if (lead <= (kLead | 3U) && i + 1 < text.size()) {
            const auto next = static_cast<unsigned char>(text[++i]);
            bytes.push_back(static_cast<char>(((lead & 3U) << 6U) | (next & kLowBits)));
        } else {
            return std::nullopt;
        }
    }
    return bytes;
}
