#include <vector>

#include "fuzz/fuzz.h"
#include "label/label.h"
#include "label/label_error.h"

void fuzzOne(const std::string& input) {
    try {
        Label label;
        label.deserializeFromBuffer(reinterpret_cast<const unsigned char*>(input.data()), input.size());
        std::vector<unsigned char> value(label.serializedBufferSize());
        require(label.serializeToBuffer(value.data(), value.size()) == value.size());
        require(Label().deserializeFromBuffer(value.data(), value.size()).toString() == label.toString());
    } catch (const LabelError& failure) {
        require(failure.code == 13);
    }
}
