#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// The policy file: $ZORV_LABEL_POLICY_FILE or /etc/zorv/label/policy.conf. Sections [tid] and [inherit_flag]
// map a path pattern to a hexadecimal value (the flag is 0, 5 or 7), [exclude] lists patterns of paths that
// the labelling of the whole system leaves alone. Of several patterns that match, the longest holds; of
// equally long ones the smaller.
class Policy {
 public:
    // No file is the empty policy. A bad value is logged as an error with its section and pattern, and
    // skipped. Throws OperationError for a file that cannot be read, or as root for one that others may write
    // or root does not own.
    static Policy load();

    uint32_t tid(const std::string& path) const { return valueFor(tids, path); }
    uint32_t inheritFlag(const std::string& path) const { return valueFor(inheritFlags, path); }
    const std::vector<std::string>& excludedPatterns() const { return excluded; }

 private:
    struct Rule {
        std::string pattern;
        uint32_t value;
    };
    using Rules = std::vector<Rule>;  // the one that holds first

    static uint32_t valueFor(const Rules& rules, const std::string& path);

    Rules tids;
    Rules inheritFlags;
    std::vector<std::string> excluded;
};
