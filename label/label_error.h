#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "base/api.h"

// What the label model throws inside. Callers branch on the code:
//    1  a label text or binary form that does not parse
//    3  Id::toBytes: the capacity is too small
//    4  the file does not exist
//    5  the system refused to read or write the attribute, or its size changed meanwhile
//    6  the attribute is there but empty
//    7  the file system has no extended attributes
//   12  a label did not serialize to the size it computed
//   13  Label::deserializeFromBuffer: "Label deserialization failed: " and the cause
class ZORV_API LabelError : public std::runtime_error {
 public:
    LabelError(const std::string& message, int32_t errorCode);
    LabelError(const LabelError&) = default;
    LabelError& operator=(const LabelError&) = default;
    ~LabelError() override;

    int32_t code;
};
