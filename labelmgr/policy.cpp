#include "labelmgr/policy.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fcntl.h>
#include <optional>
#include <sstream>
#include <sys/stat.h>
#include <unordered_map>

#include "common/config_file.h"
#include "common/string_utils.h"
#include "labelmgr/operation_error.h"
#include "labelmgr/state_directory.h"
#include "log/logger.h"

namespace {

constexpr const char* kDefaultPolicy = "/etc/zorv/label/policy.conf";

using Section = std::unordered_map<std::string, std::string>;
using ConfigTable = std::unordered_map<std::string, Section>;

// No descriptor when there is no policy file.
UniqueFd openTrusted(const std::string& path) {
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
    return file;
}

bool hasSection(const UniqueFd& file) {
    std::string text;
    std::array<char, 4096> buffer{};
    ssize_t size = 0;
    while ((size = read(file.get(), buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<size_t>(size));
    }
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (trim(line).rfind('[', 0) == 0) {
            return true;
        }
    }
    return size < 0;
}

// Reads the file that was looked at, whatever has its name by now. parseConfig answers nothing for a file
// that it cannot open, which must not pass for a policy without rules.
ConfigTable readTrusted(const UniqueFd& file, const std::string& path) {
    ConfigTable sections = parseConfig("/proc/self/fd/" + std::to_string(file.get()));
    if (sections.empty() && hasSection(file)) {
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

bool isAnyTid(uint32_t /*value*/) {
    return true;
}
bool isInheritFlag(uint32_t value) {
    return value == 0 || value == 5 || value == 7;
}

bool holdsBefore(const std::string& left, const std::string& right) {
    return left.size() != right.size() ? left.size() > right.size() : left < right;
}

PatternRules<uint32_t> readRules(const std::string& path, const char* name, const Section& section,
                                 bool (*isValid)(uint32_t)) {
    PatternRules<uint32_t> rules;
    for (const auto& [pattern, text] : section) {
        const std::optional<uint32_t> value = parseHexadecimal(text);
        if (value && isValid(*value)) {
            rules.push_back({pattern, *value});
        } else {
            ZORV_LOG(error, "%s: [%s] %s: bad value '%s'", path.c_str(), name, pattern.c_str(), text.c_str());
        }
    }
    std::sort(rules.begin(), rules.end(),
              [](const auto& left, const auto& right) { return holdsBefore(left.pattern, right.pattern); });
    return rules;
}

}  // namespace

Policy Policy::load() {
    Policy policy;
    const std::string path = configuredPath("ZORV_LABEL_POLICY_FILE", kDefaultPolicy);
    const UniqueFd file = openTrusted(path);
    if (!file) {
        return policy;
    }
    ConfigTable sections = readTrusted(file, path);
    policy.tids = readRules(path, "tid", sections["tid"], isAnyTid);
    policy.inheritFlags = readRules(path, "inherit_flag", sections["inherit_flag"], isInheritFlag);
    for (const auto& [pattern, ignored] : sections["exclude"]) {
        policy.excluded.push_back({pattern, 0});
    }
    return policy;
}

uint32_t Policy::tid(const std::string& path) const {
    return matchedNumber(tids, path);
}

uint32_t Policy::inheritFlag(const std::string& path) const {
    return matchedNumber(inheritFlags, path);
}
