#include "common/process_parsing.h"
#include "fuzz/fuzz.h"

void fuzzOne(const std::string& input) {
    parseParentPid(input);
}
