#include "common/wildcard.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fnmatch.h>
#include <string_view>

#include "base/handles.h"
#include "log/logger.h"

namespace {

constexpr size_t kMaxPatternLength = 1024;
constexpr std::ptrdiff_t kMaxWildcards = 50;
constexpr std::ptrdiff_t kMaxSlashes = 20;

bool isOneOf(std::string_view set, char byte) {
    return set.find(byte) != std::string_view::npos;
}

// Everything in front of the last slash of text, the slash itself when it comes first,
// `none` without a slash.
std::string beforeLastSlash(const std::string& text, const char* none) {
    const size_t slash = text.rfind('/');
    if (slash == std::string::npos) {
        return none;
    }
    return text.substr(0, std::max<size_t>(slash, 1));
}

}  // namespace

bool containsWildcard(const std::string& text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (isOneOf("*?[]", text[i])) {
            return true;
        }
    }
    return false;
}

bool isPatternSafe(const std::string& pattern) {
    if (pattern.empty() || pattern.size() > kMaxPatternLength) {
        return false;
    }
    const auto isCounted = [](char byte) { return isOneOf("*?[", byte); };
    if (std::count_if(pattern.begin(), pattern.end(), isCounted) > kMaxWildcards ||
        std::count(pattern.begin(), pattern.end(), '/') > kMaxSlashes) {
        return false;
    }
    const auto holds = [&pattern](const char* part) { return pattern.find(part) != std::string::npos; };
    return !holds("..") && !holds("/./") && !holds("//");
}

bool wildcardMatch(const std::string& pattern, const std::string& text) {
    const char* p = pattern.data();
    const char* const patternEnd = p + pattern.size();
    const char* t = text.data();
    const char* const textEnd = t + text.size();
    const char* behindStar = nullptr;  // no star has been met
    const char* swallowed = nullptr;   // the end of what that star stands for
    while (t != textEnd) {
        // Equality before the star: see the header.
        if (p != patternEnd && (*p == *t || *p == '?')) {
            ++p;
            ++t;
        } else if (p != patternEnd && *p == '*') {
            behindStar = ++p;
            swallowed = t;
        } else if (behindStar != nullptr) {
            p = behindStar;
            t = ++swallowed;
        } else {
            return false;
        }
    }
    return std::all_of(p, patternEnd, [](char byte) { return byte == '*'; });
}

bool matchesPattern(const std::string& pattern, const std::string& text) {
    return wildcardMatch(pattern, text);
}

bool matchesPattern1(const std::filesystem::path& path, const std::string& pattern) {
    return fnmatch(pattern.c_str(), path.c_str(), FNM_NOESCAPE) == 0;
}

std::vector<std::string> searchFilesByPattern(const std::string& pattern) {
    if (!isPatternSafe(pattern)) {
        ZORV_LOG(error, "Unsafe pattern detected: %s", pattern.c_str());
        return {};
    }
    const GlobResult found(pattern, GLOB_TILDE | GLOB_NOSORT);
    const int reason = errno;
    switch (found.status) {
        case 0:
            return {found.matches.gl_pathv, found.matches.gl_pathv + found.matches.gl_pathc};
        case GLOB_NOSPACE:
            ZORV_LOG(error, "Ran out of memory.");
            break;
        case GLOB_ABORTED:
            ZORV_LOG(error, "Read error. %s", std::strerror(reason));
            break;
        case GLOB_NOMATCH:
            ZORV_LOG(error, "No matches found.");
            break;
        case GLOB_NOSYS:
            ZORV_LOG(error, "Not implemented.");
            break;
        default:
            ZORV_LOG(error, "unknown error");
            break;
    }
    return {};
}

std::string getParentDirWithoutWildcard(const std::string& pattern) {
    const size_t wildcard = pattern.find_first_of("*?");
    if (wildcard != std::string::npos) {
        return beforeLastSlash(pattern.substr(0, wildcard), "/");
    }
    const bool slashAtEnd = !pattern.empty() && pattern.back() == '/';
    return beforeLastSlash(pattern.substr(0, pattern.size() - (slashAtEnd ? 1 : 0)), "");
}

std::string wildcardsToRegex(const std::string& pattern) {
    std::string regex;
    regex.reserve(2 * pattern.size());
    bool inBraces = false;
    for (size_t i = 0; i < pattern.size(); ++i) {
        const char byte = pattern[i];
        const bool hasNext = i + 1 < pattern.size();
        if (byte == '*') {
            regex += ".*";
        } else if (byte == '?') {
            regex += '.';
        } else if (isOneOf(".$^+|()", byte)) {
            regex.append(1, '\\').append(1, byte);
        } else if (byte == '{') {
            regex += '(';
            inBraces = true;
        } else if (byte == ',' && inBraces) {
            regex += '|';
        } else if (byte == '}' && inBraces) {
            regex += ')';
            inBraces = false;
        } else if (byte == '[' && hasNext && pattern[i + 1] == '!') {
            regex += "[^";
            ++i;
        } else if (byte != '\\') {
            regex += byte;
        } else if (hasNext) {
            regex += pattern[++i];
        }
    }
    return regex;
}
