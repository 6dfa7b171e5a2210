#include "fuzz/fuzz.h"
#include "label/label.h"

void fuzzOne(const std::string& input) {
    const std::string text = Label::fromString(input).toString();
    require(Label::fromString(text).toString() == text);
}
