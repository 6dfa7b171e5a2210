#include "fuzz/fuzz.h"
#include "label/id.h"

void fuzzOne(const std::string& input) {
    const std::string text = Id::fromString(input).toString();
    require(Id::fromString(text).toString() == text);
}
