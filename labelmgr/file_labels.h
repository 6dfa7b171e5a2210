#pragma once

#include <optional>
#include <string>
#include <vector>

#include "label/label.h"

// The label of one file in its attribute "security.zorv". Paths are canonical; a link in the last component
// is not followed. Failures throw OperationError with the path and the system's reason, FileGone when there
// is no such file.

// The attribute's bytes; nothing for a file without a label.
using LabelBytes = std::optional<std::vector<unsigned char>>;

// The file's path with all links resolved.
std::string canonicalPath(const char* path);
// The same, or when the file is gone the absolute path without "." and "..", by which records of it may still
// be known.
std::string canonicalPathOfRecord(const char* path);

LabelBytes readLabelBytes(const std::string& path);
void writeLabelBytes(const std::string& path, const LabelBytes& bytes);

// OperationError when the bytes are not a label.
Label decodeLabel(const std::string& path, const std::vector<unsigned char>& bytes);
std::vector<unsigned char> encodeLabel(const Label& label);
