#include "common/config_file.h"

#include <algorithm>
#include <fstream>

#include "common/config_parsing.h"
#include "common/string_utils.h"
#include "log/logger.h"

namespace {

constexpr size_t kExpectedSections = 8;

std::string withoutLeadingBlanks(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    return first == std::string::npos ? std::string() : text.substr(first);
}

std::string withoutBlanks(std::string text) {
    const auto isDropped = [](char byte) { return byte == ' ' || byte == '\r' || byte == '\n'; };
    text.erase(std::remove_if(text.begin(), text.end(), isDropped), text.end());
    return text;
}

}  // namespace

// The two parsers look alike and share nothing: every rule that they seem to have in
// common differs in a detail.

ConfigSections parseConfigText(std::istream& in) {
    ConfigSections sections;
    sections.reserve(kExpectedSections);
    std::string section;
    for (std::string raw; std::getline(in, raw);) {
        const std::string line = trim(raw);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.front() == '[' && line.back() == ']') {
            section = line.substr(1, line.size() - 2);
            sections.try_emplace(section);
            continue;
        }
        const size_t equals = line.find('=');
        if (equals == std::string::npos || section.empty()) {
            continue;
        }
        sections[section].try_emplace(trim(line.substr(0, equals)), trim(line.substr(equals + 1)));
    }
    for (auto& [name, pairs] : sections) {
        pairs.reserve(pairs.size());
    }
    return sections;
}

std::map<std::string, std::string> readConfigText(std::istream& in) {
    std::map<std::string, std::string> values;
    std::string section;
    for (std::string raw; std::getline(in, raw);) {
        const std::string line = withoutLeadingBlanks(raw);
        if (line.empty() || line.front() == '#' || line.front() == ';') {
            continue;
        }
        if (line.front() == '[') {
            const size_t end = line.find(']');
            if (end != std::string::npos) {
                section = line.substr(1, end - 1);
            }
            continue;
        }
        const size_t equals = line.find('=');
        if (equals == std::string::npos) {
            continue;
        }
        std::string key = section.empty() ? "" : section + ".";
        key.append(withoutLeadingBlanks(line.substr(0, equals)));
        values[key] = withoutBlanks(withoutLeadingBlanks(line.substr(equals + 1)));
    }
    return values;
}

std::unordered_map<std::string, std::unordered_map<std::string, std::string>> parseConfig(
    const std::string& path) {
    std::ifstream file(path);
    if (file.fail()) {
        ZORV_LOG(error, "Failed to open config: %s", path.c_str());
        return {};
    }
    return parseConfigText(file);
}

std::map<std::string, std::string> readConfig(const std::string& path) {
    std::ifstream file(path);
    if (!file.is_open()) {
        ZORV_LOG(error, "can not open file %s", path.c_str());
        return {};
    }
    return readConfigText(file);
}
