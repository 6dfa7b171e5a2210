#include "common/file_utils.h"

#include <fstream>
#include <sstream>
#include <utility>

#include "log/logger.h"

std::string readFile(const std::string& path) {
    const std::ifstream file(path);
    if (file.fail()) {
        ZORV_LOG(error, "Unable to open file, %s", path.c_str());
        return {};
    }
    std::ostringstream content;
    content << file.rdbuf();
    return std::move(content).str();
}

bool writeFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::out | std::ios::trunc | std::ios::binary);
    if (file.fail()) {
        ZORV_LOG(error, "Unable to open file for writing, %s", path.c_str());
        return false;
    }
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    return true;
}
