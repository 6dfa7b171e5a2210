#include "labelmgr/model/message_text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

bool isControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7f;
}

bool partsWords(unsigned char byte) {
    return isControl(byte) || byte == ' ' || byte == '\\';
}

using IsEscaped = bool(unsigned char);

// Long runs need no escape.
void addEscaped(std::string& text, std::string_view bytes, IsEscaped* isEscaped) {
    while (!bytes.empty()) {
        const auto escaped = std::find_if(bytes.begin(), bytes.end(), isEscaped);
        text.append(bytes.begin(), escaped);
        bytes.remove_prefix(static_cast<size_t>(escaped - bytes.begin()));
        if (!bytes.empty()) {
            std::array<char, 5> octal{};
            std::snprintf(octal.data(), octal.size(), "\\%03o",
                          unsigned{static_cast<unsigned char>(bytes.front())});
            text.append(octal.data());
            bytes.remove_prefix(1);
        }
    }
}

std::string escaped(std::string_view bytes, IsEscaped* isEscaped) {
    std::string text;
    addEscaped(text, bytes, isEscaped);
    return text;
}

}  // namespace

std::string asOneLine(std::string_view bytes) {
    return escaped(bytes, isControl);
}

std::string asOneWord(std::string_view bytes) {
    return escaped(bytes, partsWords);
}

std::string changeMessage(std::string_view topic, std::string_view operation, std::string_view target,
                          std::string_view value) {
    std::string message(topic);
    for (const std::string_view word : {operation, target, value}) {
        addEscaped(message.append(1, ' '), word, partsWords);
    }
    return message;
}
