#include "label/id.h"

#include <sstream>

#include "base/hexadecimal.h"
#include "label/byte_order.h"
#include "label/label_error.h"
#include "log/logger.h"

namespace {

constexpr size_t kTextLength = 3 * kHexadecimalDigits64 + 2;
constexpr size_t kPartSize = sizeof(uint64_t);

unsigned char* writePart(unsigned char* out, uint64_t value) {
    storeLittleEndian(out, value);
    return out + kPartSize;
}

}  // namespace

std::string Id::toString() const {
    std::string text(kTextLength, '-');
    writeHexadecimal(text.data(), pkg_);
    writeHexadecimal(text.data() + kHexadecimalDigits64 + 1, file_);
    writeHexadecimal(text.data() + 2 * (kHexadecimalDigits64 + 1), path_);
    return text;
}

Id Id::fromString(const std::string& text) {
    if (text.size() != kTextLength) {
        ZORV_LOG(error, "Invalid ID string length: %zu", text.size());
        return {};
    }
    Id id;
    char firstSeparator = 0;
    char secondSeparator = 0;
    std::istringstream in(text);
    in >> std::hex >> id.pkg_ >> firstSeparator >> id.file_ >> secondSeparator >> id.path_;
    if (in.fail() || firstSeparator != '-' || secondSeparator != '-' || !in.eof()) {
        ZORV_LOG(error, "Invalid ID format (expect pkg-file-path)");
        return {};
    }
    return id;
}

unsigned long Id::serializedSize() const {
    return kPartSize * (1UL + (file_ != 0 ? 1UL : 0UL) + (path_ != 0 ? 1UL : 0UL));
}

unsigned char* Id::toBytes(unsigned char* buffer, unsigned long size) const {
    if (buffer == nullptr) {
        ZORV_LOG(error, "input buffer is nullptr");
        return nullptr;
    }
    const unsigned long required = serializedSize();
    if (size < required) {
        ZORV_LOG(error, "toBytes: buffer too small, required: %zu, actual: %zu", size_t{required},
                 size_t{size});
        throw LabelError("Buffer size is insufficient for ID serialization", 3);
    }
    return toBytes(buffer);
}

unsigned char* Id::toBytes(unsigned char* buffer) const {
    if (buffer == nullptr) {
        ZORV_LOG(error, "input buffer is nullptr");
        return nullptr;
    }
    unsigned char* end = writePart(buffer, pkg_);
    if (file_ != 0) {
        end = writePart(end, file_);
    }
    if (path_ != 0) {
        end = writePart(end, path_);
    }
    return end;
}

Id Id::fromBytes(const unsigned char* data) {
    if (data == nullptr) {
        ZORV_LOG(error, "fromBytes: input data is nullptr");
        return {};
    }
    Id id;
    id.pkg_ = loadLittleEndian<uint64_t>(data);
    id.file_ = loadLittleEndian<uint64_t>(data + kPartSize);
    id.path_ = loadLittleEndian<uint64_t>(data + 2 * kPartSize);
    return id;
}
