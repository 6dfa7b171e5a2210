#include "state/difference.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>

namespace {

bool isSame(const FieldValue& left, const FieldValue& right) {
    return numbersOf(left) == numbersOf(right);
}

// Goes through two sorted lists side by side: work gets those that belong together, null
// for what one of them does not have.
template <typename Record, typename Work>
void inPairs(const std::vector<Record>& present, const std::vector<Record>& wanted, Work work) {
    const RecordOrder isBefore;
    auto left = present.begin();
    auto right = wanted.begin();
    while (left != present.end() || right != wanted.end()) {
        const bool hasLeft = left != present.end() && (right == wanted.end() || !isBefore(*right, *left));
        const bool hasRight = right != wanted.end() && (left == present.end() || !isBefore(*left, *right));
        work(hasLeft ? &*left++ : nullptr, hasRight ? &*right++ : nullptr);
    }
}

std::vector<const ValueRecord*> ofField(const std::vector<ValueRecord>& patterns, Field field) {
    std::vector<const ValueRecord*> found;
    for (const ValueRecord& pattern : patterns) {
        if (pattern.target.field == field) {
            found.push_back(&pattern);
        }
    }
    return found;
}

using ByPattern = std::unordered_map<std::string_view, const ValueRecord*>;

ByPattern byPattern(const std::vector<const ValueRecord*>& patterns) {
    ByPattern found;
    for (const ValueRecord* pattern : patterns) {
        found.emplace(pattern->target.text, pattern);
    }
    return found;
}

// To set a pattern makes it the last one. So those that stand at the beginning of both
// lists stay, and the rest is set anew, in order.
void addPatterns(Difference& difference, std::vector<const ValueRecord*> present,
                 const std::vector<const ValueRecord*>& wanted, bool keepsOthers) {
    const ByPattern wantedByPattern = byPattern(wanted);
    const auto isWanted = [&](const ValueRecord* pattern) {
        return wantedByPattern.count(pattern->target.text) != 0;
    };
    const ByPattern presentByPattern = byPattern(present);
    const auto others = std::stable_partition(present.begin(), present.end(), isWanted);
    for (auto other = others; other != present.end() && !keepsOthers; ++other) {
        difference.values.push_back({(*other)->target, (*other)->value, std::nullopt});
    }
    const auto [firstPresent, firstWanted] =
        std::mismatch(present.begin(), others, wanted.begin(), wanted.end(),
                      [](const ValueRecord* left, const ValueRecord* right) {
                          return left->target.text == right->target.text && isSame(left->value, right->value);
                      });
    std::for_each(firstWanted, wanted.end(), [&](const ValueRecord* pattern) {
        const auto found = presentByPattern.find(pattern->target.text);
        difference.values.push_back(
            {pattern->target,
             found != presentByPattern.end() ? std::optional(found->second->value) : std::nullopt,
             pattern->value});
    });
}

}  // namespace

Difference differenceOf(const Records& present, const Records& wanted, bool keepsOthers) {
    Difference difference;
    inPairs(present.paths, wanted.paths, [&](const ValueRecord* left, const ValueRecord* right) {
        if (left != nullptr && right == nullptr && !keepsOthers) {
            difference.values.push_back({left->target, left->value, std::nullopt});
        } else if (right != nullptr && (left == nullptr || !isSame(left->value, right->value))) {
            difference.values.push_back(
                {right->target, left != nullptr ? std::optional(left->value) : std::nullopt, right->value});
        }
    });
    for (const Field field : kFields) {
        addPatterns(difference, ofField(present.patterns, field), ofField(wanted.patterns, field),
                    keepsOthers);
    }
    inPairs(present.packages, wanted.packages, [&](const PackageRecord* left, const PackageRecord* right) {
        if (left != nullptr && right == nullptr && !keepsOthers) {
            difference.packages.push_back({left->package.name, left->package.id, std::nullopt});
        } else if (right != nullptr && (left == nullptr || left->package.id != right->package.id)) {
            difference.packages.push_back({right->package.name,
                                           left != nullptr ? std::optional(left->package.id) : std::nullopt,
                                           right->package.id});
        }
    });
    return difference;
}
