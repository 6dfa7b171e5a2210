#include "common/process_parsing.h"
#include "fuzz/fuzz.h"

void fuzzOne(const std::string& input) {
    for (const auto& [name, value] : parseKernelParameters(input)) {
        require(name.find_first_of(" =") == std::string::npos && value.find(' ') == std::string::npos);
    }
}
