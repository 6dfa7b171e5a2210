#pragma once

#include <optional>
#include <string>
#include <vector>

#include "label/label.h"

// Names of files, and labels as the bytes of the attribute. Failures throw OperationError
// with the path and the reason, FileGone when there is no such file.

// The attribute's bytes; nothing for a file without a label.
using LabelBytes = std::optional<std::vector<unsigned char>>;

// The file's path with all links resolved.
std::string canonicalPath(const char* path);
// The same, or when the file is gone the absolute path without "." and "..", by which records of it may still
// be known.
std::string canonicalPathOfRecord(const char* path);

// OperationError when the bytes are not a label.
Label decodeLabel(const std::string& path, const std::vector<unsigned char>& bytes);
std::vector<unsigned char> encodeLabel(const Label& label);
