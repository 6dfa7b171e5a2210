#include "fuzz/fuzz.h"
#include "log/logger.h"
#include "tests/support/private_mounts.h"
#include "tests/support/temporary_tree.h"

void fuzzOne(const std::string& input) {
    const std::string path = std::string(kScratchDirectory) + "/log.properties";
    putFile(path, input);
    require(Logger::getLogFilePathsFromConfig(path).count("") == 0);
}
