#pragma once

#include <iosfwd>
#include <map>
#include <string>
#include <unordered_map>

// What parseConfig() and readConfig() make of a text, from any stream. Internal.

using ConfigSections = std::unordered_map<std::string, std::unordered_map<std::string, std::string>>;

ConfigSections parseConfigText(std::istream& in);
std::map<std::string, std::string> readConfigText(std::istream& in);
