#include "common/path_safety.h"

#include "common/wildcard.h"
#include "fuzz/fuzz.h"

void fuzzOne(const std::string& input) {
    if (isFilePathSafe(input, true, false, true)) {
        require(input.front() == '/' && input.size() < 4096 && input.find("/..") == std::string::npos);
        require(input.find_first_of("\n\\$\x7f") == std::string::npos && !containsWildcard(input));
    }
    isFilePathSafe(input, false, true, false);
}
