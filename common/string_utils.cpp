#include "common/string_utils.h"

#include <algorithm>

#include "base/trimmed.h"
#include "log/logger.h"

namespace {

constexpr int kMaxReplacements = 100;

bool beginsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

// Appends text to result with every oldStr, which is not empty, replaced.
void appendReplaced(std::string& result, const std::string& text, const std::string& oldStr,
                    const std::string& newStr) {
    size_t copied = 0;
    for (size_t found = text.find(oldStr); found != std::string::npos; found = text.find(oldStr, copied)) {
        result.append(text, copied, found - copied).append(newStr);
        copied = found + oldStr.size();
    }
    result.append(text, copied);
}

size_t longestName(const std::unordered_map<std::string, std::string>& variables) {
    size_t longest = 0;
    for (const auto& variable : variables) {
        longest = std::max(longest, variable.first.size());
    }
    return longest;
}

}  // namespace

std::string trim(const std::string& text) {
    return std::string(trimmed(text, " \t\n\r"));
}

void splitString(const std::string& text, const char& delimiter, std::vector<std::string>& out) {
    out.clear();
    if (text.empty()) {
        ZORV_LOG(debug, "input string is empty");
        return;
    }
    out.reserve(static_cast<size_t>(std::count(text.begin(), text.end(), delimiter)) + 1);
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find(delimiter, begin), text.size());
        if (end > begin) {
            out.emplace_back(text, begin, end - begin);
        }
        begin = end + 1;
    }
}

std::string replaceString(const std::string& text, const std::string& oldStr, const std::string& newStr) {
    if (text.empty()) {
        ZORV_LOG(error, "text is empty");
        return {};
    }
    if (oldStr.empty()) {
        ZORV_LOG(error, "oldStr is empty");
        return text;
    }
    std::string result;
    result.reserve(2 * text.size());
    appendReplaced(result, text, oldStr, newStr);
    return result;
}

std::string replaceBeginString(const std::string& text, const std::string& oldStr,
                               const std::string& newStr) {
    if (text.empty()) {
        ZORV_LOG(error, "text is empty");
        return {};
    }
    if (oldStr.empty()) {
        ZORV_LOG(error, "oldStr is empty");
        return text;
    }
    return beginsWith(text, oldStr) ? newStr + text.substr(oldStr.size()) : text;
}

std::string removeSubString(const std::string& text, const std::string& sub) {
    if (sub.empty()) {
        return text;
    }
    std::string result;
    result.reserve(text.size());
    appendReplaced(result, text, sub, {});
    result.shrink_to_fit();
    return result;
}

std::string removeFirstSubString(const std::string& text, const std::string& sub) {
    return beginsWith(text, sub) ? text.substr(sub.size()) : text;
}

std::string replaceVariable(const std::unordered_map<std::string, std::string>& variables, std::string text) {
    size_t open = text.find('<');
    size_t close = text.find('>', std::min(open, text.size()));
    if (close == std::string::npos) {
        return text;
    }
    // A text of many "<" before one ">" makes many long names: those beyond the longest
    // known are not looked up.
    const size_t longest = longestName(variables);
    std::string result;
    size_t copied = 0;
    for (int count = 0; count < kMaxReplacements && open != std::string::npos; open = text.find('<', open)) {
        if (close < open) {
            close = text.find('>', open);
        }
        if (close == std::string::npos) {
            break;
        }
        const size_t length = close - open - 1;
        const auto variable =
            length == 0 || length > longest ? variables.end() : variables.find(text.substr(open + 1, length));
        if (variable == variables.end()) {
            ++open;
            continue;
        }
        result.append(text, copied, open - copied).append(variable->second);
        copied = open = close + 1;
        ++count;
    }
    result.append(text, copied);
    ZORV_LOG(debug, "replaced: %s", result.c_str());
    return result;
}

bool containsEscapeChars(const std::string& text) {
    return text.find('\\') != std::string::npos;
}

std::string removeEscapeChars(const std::string& text) {
    std::string result = text;
    result.erase(std::remove(result.begin(), result.end(), '\\'), result.end());
    return result;
}
