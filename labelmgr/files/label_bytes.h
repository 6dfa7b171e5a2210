#pragma once

#include <optional>
#include <string>

#include "label/label.h"

// Labels as the bytes of the attribute.

// Nothing for a file without a label.
using LabelBytes = std::optional<std::string>;

// Throws FileRefuses when the bytes are not a label.
Label decodeLabel(const std::string& path, const std::string& bytes);
std::string encodeLabel(const Label& label);
