#include "common/path_safety.h"

#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "common/wildcard.h"
#include "log/logger.h"

namespace {

using namespace std::string_view_literals;

constexpr int kPathLimit = 4096;  // with the terminating NUL

struct ForbiddenBytes {
    std::string_view bytes;
    const char* message;
};

constexpr ForbiddenBytes kForbiddenBytes[] = {
    {"\0"sv, "FilePathCheck failed: contains null byte"},
    {"\x01\x02\x03\x04\x05\x06\x07\x08\x0A\x0B\x0C\x0D\x0E\x0F"
     "\x10\x11\x12\x13\x14\x15\x16\x17\x18\x19\x1A\x1B\x1C\x1D\x1E\x1F"sv,
     "FilePathCheck failed: contains control characters"},
    {"\x7F"sv, "FilePathCheck failed: contains DEL character"},
    {"|&;$<>`!(){}'\""sv, "FilePathCheck failed: contains shell metacharacters"},
    {"\\"sv, "FilePathCheck failed: contains backslash"},
};

bool containsDangerousChars(const std::string& path) {
    for (const ForbiddenBytes& forbidden : kForbiddenBytes) {
        if (path.find_first_of(forbidden.bytes) != std::string::npos) {
            ZORV_LOG(error, "%s", forbidden.message);
            return true;
        }
    }
    return false;
}

// How many bytes follow a lead byte; -1 for a byte that leads nothing.
int continuationCount(unsigned char lead) {
    if (lead < 0x80) {
        return 0;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 1;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 2;
    }
    return lead >= 0xF0 && lead <= 0xF4 ? 3 : -1;
}

bool hasContinuations(const std::string& text, size_t position, size_t count) {
    const std::string_view bytes = std::string_view(text).substr(position, count);
    size_t found = 0;
    while (found < bytes.size() && (static_cast<unsigned char>(bytes[found]) & 0xC0) == 0x80) {
        ++found;
    }
    return found == count;
}

bool isValidUTF8(const std::string& text) {
    const auto byteAt = [&text](size_t position) { return static_cast<unsigned char>(text[position]); };
    for (size_t position = 0; position < text.size();) {
        const unsigned char lead = byteAt(position);
        const int count = continuationCount(lead);
        if (count < 0) {
            ZORV_LOG(error, "FilePathCheck failed: invalid UTF-8 byte 0x%02X at position %zu",
                     static_cast<unsigned int>(lead), position);
            return false;
        }
        const size_t following = static_cast<size_t>(count);
        if (!hasContinuations(text, position + 1, following)) {
            ZORV_LOG(error, "FilePathCheck failed: invalid UTF-8 sequence at position %zu", position);
            return false;
        }
        if ((lead == 0xE0 && byteAt(position + 1) < 0xA0) || (lead == 0xF0 && byteAt(position + 1) < 0x90)) {
            ZORV_LOG(error, "FilePathCheck failed: overlong UTF-8 sequence");
            return false;
        }
        position += 1 + following;
    }
    return true;
}

bool isEntryOfType(const char* path, mode_t type) {
    struct stat entry {};
    return lstat(path, &entry) == 0 && (entry.st_mode & S_IFMT) == type;
}

}  // namespace

bool isFilePathSafe(const std::string& path, bool permitSymlink, bool permitWildcard, bool permitMissing) {
    const auto holds = [&path](const char* part) { return path.find(part) != std::string::npos; };
    if (path.empty()) {
        ZORV_LOG(error, "FilePathCheck failed: empty path");
        return false;
    }
    if (path.size() >= kPathLimit) {
        ZORV_LOG(error, "FilePathCheck failed: path too long (length=%zu, max=%d)", path.size(), kPathLimit);
        return false;
    }
    if (path.front() != '/') {
        ZORV_LOG(error, "FilePathCheck failed: not an absolute path - %s", path.c_str());
        return false;
    }
    if (holds("//")) {
        ZORV_LOG(error, "FilePathCheck failed: contains consecutive slashes - %s", path.c_str());
        return false;
    }
    if (holds("/..") || holds("../")) {
        ZORV_LOG(error, "FilePathCheck failed: path traversal attack detected - %s", path.c_str());
        return false;
    }
    if (path.compare(0, 2, "/.") == 0) {
        ZORV_LOG(error, "FilePathCheck failed: invalid root path - %s", path.c_str());
        return false;
    }
    if (containsDangerousChars(path) || !isValidUTF8(path)) {
        return false;
    }
    if (!permitWildcard && containsWildcard(path)) {
        ZORV_LOG(error, "FilePathCheck failed: wildcard not allowed - %s", path.c_str());
        return false;
    }
    if (!permitMissing && pathIsExists(path.c_str()) != 0) {
        ZORV_LOG(error, "FilePathCheck failed: path does not exist - %s", path.c_str());
        return false;
    }
    if (!permitSymlink && pathIsExists(path.c_str()) == 0 && pathIsLinkFile(path.c_str())) {
        ZORV_LOG(error, "FilePathCheck failed: symbolic link not allowed - %s", path.c_str());
        return false;
    }
    if (holds(" ")) {
        ZORV_LOG(warn, "FilePathCheck: path contains spaces - %s", path.c_str());
    }
    ZORV_LOG(debug, "FilePathCheck passed: %s", path.c_str());
    return true;
}

bool pathIsDir(const char* path) {
    return isEntryOfType(path, S_IFDIR);
}

bool pathIsLinkFile(const char* path) {
    return isEntryOfType(path, S_IFLNK);
}

int pathIsExists(const char* path) {
    return access(path, F_OK) == 0 ? 0 : -1;
}
