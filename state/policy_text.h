#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/handles.h"

// The lines of a policy file, as parseConfig takes them, with their numbers.

struct PolicyLine {
    enum class Kind { kSection, kRule, kOther };

    size_t number = 0;
    Kind kind = Kind::kOther;
    std::string section;  // the one that begins, or that the line stands in; empty before any
    std::string key;      // of a rule
    std::string value;
};

// Without empty lines and comments. Of any other line the whole text is the key.
std::vector<PolicyLine> policyLines(const std::string& text);

// The number of the line whose rule holds for a key of a section; 0 when there is none.
size_t lineOfRule(const std::vector<PolicyLine>& lines, std::string_view section, std::string_view key);

// The whole of an open file; nothing without one. Throws OperationError.
std::string policyText(const UniqueFd& file, const std::string& path);
