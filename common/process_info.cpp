#include "common/process_info.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "base/handles.h"
#include "common/file_utils.h"
#include "common/process_parsing.h"
#include "log/logger.h"

namespace {

constexpr int kParentField = 4;
constexpr int32_t kInitPid = 1;

std::string processDirectory(int32_t pid) {
    return "/proc/" + std::to_string(pid);
}

int32_t toPid(const std::string& digits) {
    try {
        return std::stoi(digits);
    } catch (const std::logic_error&) {  // not a number, or none of 32 bits
        return -1;
    }
}

int32_t getParentPid(int32_t pid) {
    return parseParentPid(readFile(processDirectory(pid) + "/stat"));
}

std::string getProcessExecutablePath(int32_t pid) {
    try {
        return std::filesystem::read_symlink(processDirectory(pid) + "/exe").string();
    } catch (const std::filesystem::filesystem_error& failure) {
        ZORV_LOG(debug, "%s, %s", failure.what(), std::strerror(failure.code().value()));
        return {};
    }
}

bool isProcessEntry(const dirent& entry) {
    const std::string name(entry.d_name);
    return entry.d_type == DT_DIR &&
           std::all_of(name.begin(), name.end(), [](char byte) { return byte >= '0' && byte <= '9'; });
}

}  // namespace

std::vector<std::pair<std::string, std::string>> parseKernelParameters(const std::string& line) {
    std::vector<std::pair<std::string, std::string>> parameters;
    std::istringstream in(line);
    for (std::string token; std::getline(in, token, ' ');) {
        const size_t equals = token.find('=');
        if (equals == std::string::npos) {
            parameters.emplace_back(token, "");
        } else {
            parameters.emplace_back(token.substr(0, equals), token.substr(equals + 1));
        }
    }
    return parameters;
}

int32_t parseParentPid(const std::string& stat) {
    int count = 0;
    bool inName = false;
    std::istringstream in(stat);
    for (std::string token; in >> token;) {
        const bool opens = token.front() == '(';
        const bool closes = token.back() == ')';
        if (opens && !closes) {
            inName = true;
        } else if (closes && !opens) {
            inName = false;
            ++count;  // for the whole name; it is never the parent itself
        } else if (!inName && ++count == kParentField) {
            return toPid(token);
        }
    }
    return -1;
}

std::vector<std::pair<std::string, std::string>> parseKernelCmdline() {
    std::ifstream file("/proc/cmdline");
    if (!file.is_open()) {
        ZORV_LOG(error, "open /proc/cmdline failed.");
        return {};
    }
    std::string line;
    std::getline(file, line);
    return parseKernelParameters(line);
}

std::vector<int32_t> getAllParent(int32_t pid) {
    std::vector<int32_t> ancestors;
    for (int32_t current = pid; current > kInitPid; current = ancestors.back()) {
        const int32_t parent = getParentPid(current);
        if (parent == -1 || parent == kInitPid) {
            ZORV_LOG(error, "current pid %d.", current);
            break;
        }
        ancestors.push_back(parent);
    }
    return ancestors;
}

std::map<std::string, std::vector<int32_t>> findProcessExeFile() {
    const UniqueDir directory(opendir("/proc"));
    if (directory == nullptr) {
        ZORV_LOG(error, "open /proc failed.");
        return {};
    }
    std::map<std::string, std::vector<int32_t>> processes;
    while (const dirent* entry = readdir(directory.get())) {
        if (!isProcessEntry(*entry)) {
            continue;
        }
        const int32_t pid = toPid(entry->d_name);
        const std::string path = getProcessExecutablePath(pid);
        if (!path.empty()) {
            processes[path].push_back(pid);
        }
    }
    return processes;
}
