#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

// Names of files, patterns and packages are bytes, and texts in JSON are UTF-8. A name
// that is no UTF-8 stands under its key with "_latin1" behind it: each byte as the
// character of that number, U+0000 to U+00FF.

// With its keys in the order in which they were added.
using Json = nlohmann::ordered_json;

void addName(Json& record, std::string key, const std::string& name);

// The bytes of such a text. Nothing when it has a character beyond U+00FF.
std::optional<std::string> bytesOfLatin1(const std::string& text);
