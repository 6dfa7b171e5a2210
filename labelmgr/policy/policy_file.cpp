#include "labelmgr/policy/policy_file.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "common/config_file.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/store/trusted_path.h"
#include "log/logger.h"

namespace {

// A line that begins with a bracket, in what can be read of a file; true also when it
// cannot.
bool mayHaveSection(const UniqueFd& file) {
    std::array<char, 65536> buffer{};
    bool isAtLineStart = true;
    ssize_t size = 0;
    while ((size = read(file.get(), buffer.data(), buffer.size())) > 0) {
        for (const char c : std::string_view(buffer.data(), static_cast<size_t>(size))) {
            if (isAtLineStart && c == '[') {
                return true;
            }
            isAtLineStart = c == '\n' || (isAtLineStart && (c == ' ' || c == '\t' || c == '\r'));
        }
    }
    return size < 0;
}

// Reads the file that was looked at, whatever has its name by now. parseConfig answers
// nothing for a file that it cannot open, which must not pass for a policy without rules.
PolicySections readTrusted(const UniqueFd& file, const std::string& path) {
    PolicySections sections = parseConfig("/proc/self/fd/" + std::to_string(file.get()));
    if (sections.empty() && mayHaveSection(file)) {
        throw OperationError(path, "cannot be read");
    }
    return sections;
}

std::optional<uint32_t> parseHexadecimal(const std::string& text) {
    const size_t prefix = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0 ? 2 : 0;
    uint32_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data() + prefix, end, value, 16);
    return failure == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

PatternRules<uint32_t> readRules(const PolicySections& sections, const std::string& fileName,
                                 const char* section) {
    PatternRules<uint32_t> rules;
    const auto found = sections.find(section);
    if (found == sections.end()) {
        return rules;
    }
    for (const auto& [pattern, text] : found->second) {
        if (const std::optional<uint32_t> value = parseRuleValue(section, text)) {
            rules.push_back({pattern, *value});
        } else {
            ZORV_LOG(error, "%s: [%s] %s: bad value '%s'", fileName.c_str(), section,
                     asOneLine(pattern).c_str(), asOneLine(text).c_str());
        }
    }
    std::sort(rules.begin(), rules.end(),
              [](const auto& left, const auto& right) { return isAskedBefore(left.pattern, right.pattern); });
    return rules;
}

}  // namespace

std::optional<uint32_t> parseRuleValue(std::string_view section, const std::string& text) {
    const std::optional<uint32_t> value = parseHexadecimal(text);
    const bool isGood = section != kInheritFlagSection || value == 0U || value == 5U || value == 7U;
    return isGood ? value : std::nullopt;
}

bool isAskedBefore(const std::string& pattern, const std::string& other) {
    return pattern.size() != other.size() ? pattern.size() > other.size() : pattern < other;
}

Policy policyOf(const PolicySections& sections, const std::string& fileName) {
    Policy policy;
    policy.tids = readRules(sections, fileName, kTidSection);
    policy.inheritFlags = readRules(sections, fileName, kInheritFlagSection);
    if (const auto excluded = sections.find(kExcludeSection); excluded != sections.end()) {
        for (const auto& [pattern, ignored] : excluded->second) {
            policy.excluded.push_back({pattern, 0});
        }
    }
    return policy;
}

UniqueFd openPolicy(const std::string& path) {
    UniqueFd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        if (errno == ENOENT) {
            return {};
        }
        throw systemError(path);
    }
    if (!S_ISREG(status.st_mode)) {
        throw OperationError(path, "refused: not a regular file");
    }
    requireTrusted(path, status.st_uid, status.st_mode);
    const MallocOwner<char> resolved(realpath(path.c_str(), nullptr));
    if (!resolved) {
        throw systemError(path);
    }
    requireTrustedParents(resolved.get());
    if (status.st_size > static_cast<off_t>(kLargestPolicy)) {
        throw OperationError(path, "refused: larger than 16 MiB");
    }
    return file;
}

Policy loadPolicy(const std::string& path) {
    const UniqueFd file = openPolicy(path);
    return file ? policyOf(readTrusted(file, path), path) : Policy();
}
