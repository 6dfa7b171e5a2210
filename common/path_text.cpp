#include "common/path_text.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

std::string collapseSlashes(std::string text) {
    const auto areSlashes = [](char left, char right) { return left == '/' && right == '/'; };
    text.erase(std::unique(text.begin(), text.end(), areSlashes), text.end());
    return text;
}

std::string PathKeys::keyOf(const std::string& path) {
    const bool isRelative = !path.empty() && path.front() != '/';
    if (isRelative && !prefix) {
        std::error_code ignored;
        prefix = (std::filesystem::current_path(ignored) / "").native();
    }
    std::string key = isRelative ? *prefix + path : path;
    // Bytes count as signed in this order. With the top bit turned over they do so for memcmp() too.
    for (char& byte : key) {
        byte = static_cast<char>(static_cast<unsigned char>(byte) ^ 0x80U);
    }
    return key;
}
