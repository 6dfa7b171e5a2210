// Every parser of foreign bytes, in one libFuzzer program: ZORV_FUZZ_TARGET names the row
// of a run.
#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <vector>

#include <log4cpp/Category.hh>

#include "common/config_parsing.h"
#include "common/path_safety.h"
#include "common/process_parsing.h"
#include "common/string_utils.h"
#include "common/wildcard.h"
#include "label/label.h"
#include "label/label_error.h"
#include "log/logger.h"
#include "tests/support/private_mounts.h"
#include "tests/support/temporary_tree.h"

namespace {

void readConfigs(const std::string& input) {
    std::istringstream flat(input);
    for (const auto& [key, value] : readConfigText(flat)) {
        require(value.find_first_of(" \r\n") == std::string::npos);
    }
    std::istringstream sections(input);
    for (const auto& [section, pairs] : parseConfigText(sections)) {
        require(!section.empty() || pairs.empty());
    }
}

void readLabelBytes(const std::string& input) {
    try {
        Label label;
        label.deserializeFromBuffer(reinterpret_cast<const unsigned char*>(input.data()), input.size());
        std::vector<unsigned char> value(label.serializedBufferSize());
        require(label.serializeToBuffer(value.data(), value.size()) == value.size());
        require(Label().deserializeFromBuffer(value.data(), value.size()).toString() == label.toString());
    } catch (const LabelError& failure) {
        require(failure.code == 13);
    }
}

void readLabelTexts(const std::string& input) {
    const std::string id = Id::fromString(input).toString();
    require(Id::fromString(id).toString() == id);
    const std::string label = Label::fromString(input).toString();
    require(Label::fromString(label).toString() == label);
}

void readLogProperties(const std::string& input) {
    const std::string path = std::string(kScratchDirectory) + "/log.properties";
    putFile(path, input);
    require(Logger::getLogFilePathsFromConfig(path).count("") == 0);
}

void readPaths(const std::string& input) {
    if (isFilePathSafe(input, true, false, true)) {
        require(input.front() == '/' && input.size() < 4096 && input.find("/..") == std::string::npos);
        require(input.find_first_of("\n\\$\x7f") == std::string::npos && !containsWildcard(input));
    }
    isFilePathSafe(input, false, true, false);
    const std::string pattern = input.substr(0, input.find('\n'));
    const std::string text = input.substr(pattern.size());
    require(!wildcardMatch(pattern, text) || wildcardMatch(pattern + '*', text));
    require(wildcardsToRegex(pattern).size() <= 2 * pattern.size());
    const std::string parent = getParentDirWithoutWildcard(pattern);
    require(parent == "/" || pattern.compare(0, parent.size(), parent) == 0);
    isPatternSafe(pattern);
}

void readProcesses(const std::string& input) {
    for (const auto& [name, value] : parseKernelParameters(input)) {
        require(name.find_first_of(" =") == std::string::npos && value.find(' ') == std::string::npos);
    }
    parseParentPid(input);
}

void readVariables(const std::string& input) {
    require(replaceVariable({{"HOME", "<USER>"}, {"a<b", ""}}, input).size() <= input.size());
}

constexpr struct {
    std::string_view name;
    void (*read)(const std::string& input);
} kTargets[] = {{"config", readConfigs},        {"label_binary", readLabelBytes},
                {"label_text", readLabelTexts}, {"log_properties", readLogProperties},
                {"paths", readPaths},           {"processes", readProcesses},
                {"variables", readVariables}};

const auto* target = std::begin(kTargets);

}  // namespace

// Every log line is formatted, and then goes nowhere.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const std::string_view name = std::getenv("ZORV_FUZZ_TARGET");
    target = std::find_if(std::begin(kTargets), std::end(kTargets),
                          [name](const auto& row) { return row.name == name; });
    require(target != std::end(kTargets));
    enterPrivateMounts();
    Logger::getInstance();
    log4cpp::Category::getRoot().removeAllAppenders();
    log4cpp::Category::getRoot().setPriority(log4cpp::Priority::DEBUG);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    target->read({reinterpret_cast<const char*>(data), size});
    return 0;
}
