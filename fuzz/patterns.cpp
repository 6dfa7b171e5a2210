#include "common/wildcard.h"
#include "fuzz/fuzz.h"

void fuzzOne(const std::string& input) {
    const std::string pattern = input.substr(0, input.find('\n'));
    const std::string text = input.substr(pattern.size());
    require(!wildcardMatch(pattern, text) || wildcardMatch(pattern + '*', text));
    require(wildcardsToRegex(pattern).size() <= 2 * pattern.size());
    const std::string parent = getParentDirWithoutWildcard(pattern);
    require(parent == "/" || pattern.compare(0, parent.size(), parent) == 0);
    containsWildcard(pattern);
    isPatternSafe(pattern);
}
