#include "common/path_text.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

namespace {

// Bytes count as signed in the order of paths. With the top bit turned over they do so
// for memcmp() too.
void turnTopBits(std::string& text) {
    for (char& byte : text) {
        byte = static_cast<char>(static_cast<unsigned char>(byte) ^ 0x80U);
    }
}

}  // namespace

std::string collapseSlashes(std::string text) {
    const auto areSlashes = [](char left, char right) { return left == '/' && right == '/'; };
    text.erase(std::unique(text.begin(), text.end(), areSlashes), text.end());
    return text;
}

PathKey PathKeys::keyOf(std::string path) {
    size_t added = 0;
    if (!path.empty() && path.front() != '/') {
        if (!prefix) {
            std::error_code ignored;
            prefix = (std::filesystem::current_path(ignored) / "").native();
        }
        path.insert(0, *prefix);
        added = prefix->size();
    }
    turnTopBits(path);
    return {std::move(path), added};
}

std::string PathKeys::pathOf(PathKey key) {
    key.bytes.erase(0, key.added);
    turnTopBits(key.bytes);
    return std::move(key.bytes);
}
