#include <sstream>

#include "common/config_parsing.h"
#include "fuzz/fuzz.h"

void fuzzOne(const std::string& input) {
    std::istringstream in(input);
    for (const auto& [section, pairs] : parseConfigText(in)) {
        require(!section.empty() || pairs.empty());
    }
}
