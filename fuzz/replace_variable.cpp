#include "common/string_utils.h"
#include "fuzz/fuzz.h"

void fuzzOne(const std::string& input) {
    require(replaceVariable({{"HOME", "<USER>"}, {"a<b", ""}}, input).size() <= input.size());
}
