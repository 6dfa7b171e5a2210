#pragma once

#include <array>
#include <cerrno>
#include <optional>
#include <string>
#include <sys/types.h>

#include "label/label.h"

// Labels as the bytes of the attribute.

// Nothing for a file without a label.
using LabelBytes = std::optional<std::string>;

// Of an entry of an open directory, as lookAt finds it. 0, or errno.
int readLabelAt(int directory, const char* name, const std::string& attribute, LabelBytes& label);

// The bytes that a call like getxattr(2) gives into a buffer of a size. 0, or errno.
template <typename Get>
int readLabelBy(Get get, LabelBytes& label) {
    constexpr size_t kUsualSize = 128;  // more than the largest label
    std::array<char, kUsualSize> usual;
    ssize_t size = get(usual.data(), usual.size());
    if (size >= 0) {
        label.emplace(usual.data(), static_cast<size_t>(size));
        return 0;
    }
    std::string large(usual.size(), '\0');
    while (size < 0 && errno == ERANGE) {
        large.resize(large.size() * 2);
        size = get(large.data(), large.size());
    }
    if (size < 0) {
        label.reset();
        return errno == ENODATA ? 0 : errno;
    }
    large.resize(static_cast<size_t>(size));
    label = std::move(large);
    return 0;
}

// Throws FileRefuses when the bytes are not a label.
Label decodeLabel(const std::string& path, const std::string& bytes);
std::string encodeLabel(const Label& label);
