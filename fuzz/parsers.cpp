// Every parser of foreign bytes, in one libFuzzer program: ZORV_FUZZ_TARGET names the row
// of a run.
#include <cstdlib>
#include <fcntl.h>
#include <fnmatch.h>
#include <map>
#include <sstream>
#include <vector>

#include <log4cpp/Category.hh>

#include "common/config_parsing.h"
#include "common/path_safety.h"
#include "common/process_parsing.h"
#include "common/string_utils.h"
#include "common/wildcard.h"
#include "label/byte_order.h"
#include "label/label.h"
#include "label/label_error.h"
#include "labelmgr/files/mount_table.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/model/packed_bytes.h"
#include "labelmgr/policy/owner_table.h"
#include "labelmgr/policy/package_answers.h"
#include "labelmgr/policy/policy_file.h"
#include "labelmgr/store/store.h"
#include "log/logger.h"
#include "state/policy_findings.h"
#include "state/state_reader.h"
#include "state/state_writer.h"
#include "tests/support/table.h"
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
    const std::string pattern = input.substr(0, input.find('\n'));
    const std::string text = input.substr(pattern.size());
    require(!wildcardMatch(pattern, text) || wildcardMatch(pattern + '*', text));
    require(wildcardsToRegex(pattern).size() <= 2 * pattern.size());
    const std::string parent = getParentDirWithoutWildcard(pattern);
    require(parent == "/" || pattern.compare(0, parent.size(), parent) == 0);
    isPatternSafe(pattern);
}

void readKernelTables(const std::string& input) {
    parseMounts(input);
    require(lockHolder(input, 0, 0) >= 0 || input.find('-') != std::string::npos);
}

void readPackages(const std::string& input) {
    const Lines lines = split(input, "\n");
    const std::string owner = parseOwner(lines);
    require(owner.empty() || isPackageName(owner));
    parseInstalled(lines);
    const OwnersByDirectory owners = parseOwners(lines);
    const OwnerTable table(owners);
    for (const auto& [directory, entries] : owners) {
        for (const auto& [name, package] : entries) {
            require(directory.front() == '/' && table.namesIn(directory).ownerOf(name) == package);
        }
    }
    const std::string path = input.substr(0, input.find('\0'));
    require(fnmatch(asDpkgPattern(path).c_str(), path.c_str(), 0) == 0);
}

void searchOwners(const std::string& content) {
    const std::string path = std::string(kScratchDirectory) + "/owners";
    putFile(path, content);
    try {
        const OwnerTable table(UniqueFd(open(path.c_str(), O_RDONLY | O_CLOEXEC)), "source");
        for (const char* directory : {"/", "/usr/bin", "/usr/lib"}) {
            table.namesIn(directory).ownerOf("name");
        }
    } catch (const OperationError&) {  // damaged
    }
}

// A file, and one with the input as its only block; both with checksums that are right.
void readKeptOwners(const std::string& input) {
    constexpr size_t kChecksum = 12;
    constexpr size_t kFront = 20;
    std::string file = input;
    const auto at = [&file](size_t i) { return reinterpret_cast<unsigned char*>(file.data()) + i; };
    if (file.size() >= kFront) {
        const auto frontSize = loadLittleEndian<uint32_t>(at(8));
        storeLittleEndian(at(kChecksum), checksumOf(std::string_view(file).substr(kFront, frontSize)));
    }
    searchOwners(file);

    constexpr size_t kFrontSize = 4 + 6 + 4 + 8 + 4;
    file = std::string("zorvown\2", 8) + std::string(kFront - 8 + kFrontSize, '\0') + input;
    storeLittleEndian(at(8), static_cast<uint32_t>(kFrontSize));
    storeLittleEndian(at(kFront), uint32_t{6});
    file.replace(kFront + 4, 6, "source");
    storeLittleEndian(at(kFront + 10), static_cast<uint32_t>(input.size()));
    storeLittleEndian(at(kFront + 14), checksumOf(input));
    storeLittleEndian(at(kChecksum), checksumOf(std::string_view(file).substr(kFront, kFrontSize)));
    searchOwners(file);
}

void readPolicy(const std::string& input) {
    findingsOf(policyLines(input));
    std::istringstream text(input);
    const Policy policy = policyOf(parseConfigText(text), "policy");
    for (const PatternRule<uint32_t>& rule : policy.inheritFlags) {
        require(rule.value == 0 || rule.value == 5 || rule.value == 7);
    }
    policy.tid(input);
}

void readProcesses(const std::string& input) {
    for (const auto& [name, value] : parseKernelParameters(input)) {
        require(name.find_first_of(" =") == std::string::npos && value.find(' ') == std::string::npos);
    }
    parseParentPid(input);
}

// What is read is what is written of it, and read again.
void readStateFile(const std::string& input) {
    const auto readText = [](const std::string& text) {
        size_t position = 0;
        return readState(
            [&](char* buffer, size_t size) {
                const size_t got = text.copy(buffer, size, position);
                position += got;
                return got;
            },
            "state");
    };
    const auto written = [](const Records& records) {
        std::string text;
        writeState(records, [&text](std::string_view bytes) { text.append(bytes); });
        return text;
    };
    try {
        const Records records = readText(input);
        const std::string text = written(records);
        const Records again = readText(text);
        require(again.patterns.size() == records.patterns.size() && written(again) == text);
    } catch (const OperationError& failure) {
        require(std::string(failure.what()).starts_with("state:"));
    }
}

void readPendingFiles(const std::string& input) {
    std::vector<PendingFile> files;
    try {
        files = unpackFiles(input);
    } catch (const BytesDamaged& failure) {
        require(std::string(failure.what()) == "damaged");
    }
    require(unpackFiles(packFiles(toKeep(files))) == files);
}

// Rows as nobody but another program can have written them.
void readStoreRows(const std::string& input) {
    static Store store = Store::openToWrite(std::string(kScratchDirectory) + "/state");
    const auto numberAt = [&input](size_t i) { return i < input.size() ? input[i] * 1000003 : 0; };
    const Target target{static_cast<Field>(numberAt(0)), numberAt(1) % 2 != 0, input};
    Transaction transaction = store.begin();
    store.userValues().putBack({target, {uint32_t{7}, numberAt(2)}});
    store.pending().add(FormerRecord{target, UserValue{uint32_t{1}, numberAt(3)}});
    const PendingFile file{input, 0, 0, input, input};
    store.pending().add(FilesToKeep{&file});
    store.scan().set({static_cast<ScanStatus>(numberAt(4)), numberAt(5)});
    store.feed().add({input});
    for (const Field field : kFields) {
        store.userValues().all(field);
        store.userValues().patterns(field);
    }
    readPendingFiles(input);
    require(store.pending().records().size() == 1 && store.pending().file(input)->wanted == input);
    store.scan().state();
    store.feed().after(0, 1);
}

void readVariables(const std::string& input) {
    require(replaceVariable({{"HOME", "<USER>"}, {"a<b", ""}}, input).size() <= input.size());
}

const std::map<std::string, void (*)(const std::string& input)> kTargets = {
    {"config", readConfigs},        {"label_binary", readLabelBytes},
    {"label_text", readLabelTexts}, {"log_properties", readLogProperties},
    {"paths", readPaths},           {"processes", readProcesses},
    {"variables", readVariables},   {"kernel_tables", readKernelTables},
    {"packages", readPackages},     {"policy", readPolicy},
    {"store_rows", readStoreRows},  {"state_file", readStateFile},
    {"kept_owners", readKeptOwners}};

const auto target = kTargets.at(std::getenv("ZORV_FUZZ_TARGET"));

}  // namespace

// Every log line is formatted, and then goes nowhere.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    enterPrivateMounts();
    Logger::getInstance();
    log4cpp::Category::getRoot().removeAllAppenders();
    log4cpp::Category::getRoot().setPriority(log4cpp::Priority::DEBUG);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    target({reinterpret_cast<const char*>(data), size});
    return 0;
}
