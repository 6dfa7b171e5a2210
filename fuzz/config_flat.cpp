#include <sstream>

#include "common/config_parsing.h"
#include "fuzz/fuzz.h"

void fuzzOne(const std::string& input) {
    std::istringstream in(input);
    for (const auto& [key, value] : readConfigText(in)) {
        require(value.find_first_of(" \r\n") == std::string::npos);
    }
}
