#include "state/value_text.h"

#include <array>
#include <charconv>

namespace {

constexpr uint32_t kLargestInheritFlag = 7;

template <typename Number>
std::optional<Number> parseDigits(std::string_view text) {
    Number number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, number, 16);
    const bool isNumber = failure == std::errc() && stop == end && text.size() <= 2 * sizeof(Number);
    return isNumber ? std::optional(number) : std::nullopt;
}

std::optional<FieldValue> parseIdentifier(Field field, std::string_view text) {
    ValueNumbers numbers{};
    for (size_t i = 0; i < numbers.size(); ++i) {
        const size_t end = i + 1 < numbers.size() ? text.find('-') : text.size();
        const auto number = end == std::string_view::npos ? std::nullopt : parseId(text.substr(0, end));
        if (!number) {
            return std::nullopt;
        }
        numbers.at(i) = *number;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return fieldValueOf(field, numbers);
}

}  // namespace

std::optional<uint64_t> parseId(std::string_view text) {
    return parseDigits<uint64_t>(text);
}

std::optional<FieldValue> parseValue(Field field, std::string_view text) {
    if (field == Field::kOid || field == Field::kSid) {
        return parseIdentifier(field, text);
    }
    const std::optional<uint32_t> number = parseDigits<uint32_t>(text);
    if (!number || (field == Field::kInheritFlag && *number > kLargestInheritFlag)) {
        return std::nullopt;
    }
    return *number;
}
