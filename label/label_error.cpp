#include "label/label_error.h"

LabelError::LabelError(const std::string& message, int32_t errorCode)
    : std::runtime_error(message), code(errorCode) {}

LabelError::~LabelError() = default;
