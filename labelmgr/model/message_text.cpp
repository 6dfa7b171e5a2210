#include "labelmgr/model/message_text.h"

#include <array>
#include <cstdio>

namespace {

bool isControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7f;
}

bool partsWords(unsigned char byte) {
    return isControl(byte) || byte == ' ' || byte == '\\';
}

std::string escape(std::string_view bytes, bool (*isEscaped)(unsigned char)) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (!isEscaped(byte)) {
            text.push_back(c);
            continue;
        }
        std::array<char, 5> octal{};
        std::snprintf(octal.data(), octal.size(), "\\%03o", unsigned{byte});
        text.append(octal.data());
    }
    return text;
}

}  // namespace

std::string asOneLine(std::string_view bytes) {
    return escape(bytes, isControl);
}

std::string asOneWord(std::string_view bytes) {
    return escape(bytes, partsWords);
}

std::string changeMessage(std::string_view topic, std::string_view operation, std::string_view target,
                          std::string_view value) {
    std::string message(topic);
    for (const std::string_view word : {operation, target, value}) {
        message.append(1, ' ').append(asOneWord(word));
    }
    return message;
}
