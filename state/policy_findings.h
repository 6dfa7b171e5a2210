#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "state/policy_text.h"

// What is wrong with a policy, or without effect.
struct PolicyFinding {
    size_t line = 0;
    std::string text;
};

// In the order of the lines. Rules that never win are found where one other rule covers
// all that they match; several that do it together are not.
std::vector<PolicyFinding> findingsOf(const std::vector<PolicyLine>& lines);
