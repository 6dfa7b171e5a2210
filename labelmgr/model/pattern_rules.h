#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/wildcard.h"

// Values that belong to path patterns, in the order in which they hold: the first rule
// that matches a path gives its value. Patterns match with matchesPattern, so a star
// crosses slashes.

template <typename Value>
struct PatternRule {
    std::string pattern;
    Value value;

    // False when neither a directory nor a path below it can match, seen from the
    // pattern's text before its first wildcard. `prefix` is the directory's path with one
    // slash at its end.
    bool canMatchFrom(std::string_view prefix) const {
        const size_t wildcard = pattern.find_first_of("*?");
        const std::string_view literal = std::string_view(pattern).substr(0, wildcard);
        const size_t common = std::min(literal.size(), prefix.size());
        return literal.substr(0, common) == prefix.substr(0, common) &&
               (wildcard != std::string::npos || literal.size() + 1 >= prefix.size());
    }
};

template <typename Value>
using PatternRules = std::vector<PatternRule<Value>>;

// Some of the rules of a list that stays where it is.
template <typename Value>
using CandidateRules = std::vector<const PatternRule<Value>*>;

template <typename Value>
CandidateRules<Value> allOf(const PatternRules<Value>& rules) {
    CandidateRules<Value> candidates;
    for (const PatternRule<Value>& rule : rules) {
        candidates.push_back(&rule);
    }
    return candidates;
}

template <typename Value>
CandidateRules<Value> candidatesFrom(const CandidateRules<Value>& candidates, std::string_view prefix) {
    CandidateRules<Value> kept;
    std::copy_if(candidates.begin(), candidates.end(), std::back_inserter(kept),
                 [prefix](const PatternRule<Value>* rule) { return rule->canMatchFrom(prefix); });
    return kept;
}

template <typename Value>
const PatternRule<Value>& asRule(const PatternRule<Value>& rule) {
    return rule;
}
template <typename Value>
const PatternRule<Value>& asRule(const PatternRule<Value>* candidate) {
    return *candidate;
}

// The first rule that matches, of PatternRules or CandidateRules; null when none does.
template <typename Rules>
const auto* firstRule(const Rules& rules, const std::string& path) {
    const auto found = std::find_if(rules.begin(), rules.end(), [&path](const auto& rule) {
        return matchesPattern(asRule(rule).pattern, path);
    });
    return found != rules.end() ? &asRule(*found) : nullptr;
}

// Its value, or null.
template <typename Rules>
const auto* firstMatch(const Rules& rules, const std::string& path) {
    const auto* rule = firstRule(rules, path);
    return rule != nullptr ? &rule->value : nullptr;
}

// The same value, or 0.
template <typename Rules>
uint32_t matchedNumber(const Rules& rules, const std::string& path) {
    const uint32_t* value = firstMatch(rules, path);
    return value != nullptr ? *value : 0;
}

// What holds for a directory and all below it: the first answer, of the path itself or
// else of the nearest directory above it, that is not false; else the one of "/".
template <typename Ask>
auto firstOfPathAndAbove(std::string path, Ask ask) {
    auto answer = ask(path);
    while (!answer && path != "/") {
        path.resize(std::max<size_t>(path.rfind('/'), 1));
        answer = ask(path);
    }
    return answer;
}
