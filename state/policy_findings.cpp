#include "state/policy_findings.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <unordered_map>

#include "labelmgr/model/message_text.h"
#include "labelmgr/policy/policy_file.h"

namespace {

bool hasValues(const std::string& section) {
    return section == kTidSection || section == kInheritFlagSection;
}
bool isKnown(const std::string& section) {
    return hasValues(section) || section == kExcludeSection;
}

std::string_view literalPart(std::string_view pattern) {
    return pattern.substr(0, pattern.find_first_of("*?"));
}

// Whether everything that a pattern matches is matched by another one, as far as that
// shows when the pattern's own wildcards are matched: a star by nothing but a star. Names
// that have a star in them are not thought of.
bool covers(std::string_view cover, std::string_view pattern) {
    size_t at = 0;
    size_t behindStar = std::string_view::npos;  // no star has been met
    size_t swallowed = 0;                        // the end of what that star stands for
    for (size_t i = 0; i < pattern.size();) {
        if (at < cover.size() && cover[at] == '*') {
            behindStar = ++at;
            swallowed = i;
        } else if (at < cover.size() && pattern[i] != '*' && (cover[at] == pattern[i] || cover[at] == '?')) {
            ++at;
            ++i;
        } else if (behindStar != std::string_view::npos) {
            at = behindStar;
            i = ++swallowed;
        } else {
            return false;
        }
    }
    return cover.find_first_not_of('*', at) == std::string_view::npos;
}

using Rules = std::vector<const PolicyLine*>;

// Rules that one which is asked before them covers. Only a rule whose text before its
// first wildcard begins theirs can do it.
void findCovered(Rules rules, std::vector<PolicyFinding>& findings) {
    std::sort(rules.begin(), rules.end(), [](const PolicyLine* left, const PolicyLine* right) {
        return isAskedBefore(left->key, right->key);
    });
    std::unordered_map<std::string_view, Rules> askedBefore;
    for (const PolicyLine* rule : rules) {
        const std::string_view literal = literalPart(rule->key);
        const PolicyLine* winner = nullptr;
        for (size_t size = 0; size <= literal.size() && winner == nullptr; ++size) {
            const auto candidates = askedBefore.find(literal.substr(0, size));
            if (candidates != askedBefore.end()) {
                const auto found =
                    std::find_if(candidates->second.begin(), candidates->second.end(),
                                 [&](const PolicyLine* other) { return covers(other->key, rule->key); });
                winner = found != candidates->second.end() ? *found : nullptr;
            }
        }
        if (winner != nullptr) {
            findings.push_back({rule->number, asOneLine(rule->key) + " never wins: line " +
                                                  std::to_string(winner->number) +
                                                  " is asked before it and matches all that it matches"});
        } else {
            askedBefore[literal].push_back(rule);
        }
    }
}

class Examination {
 public:
    void look(const PolicyLine& line) {
        switch (line.kind) {
            case PolicyLine::Kind::kSection:
                if (!isKnown(line.section)) {
                    add(line, "unknown section [" + asOneLine(line.section) + "]");
                }
                break;
            case PolicyLine::Kind::kOther:
                add(line, "no \"=\", and so without effect: " + asOneLine(line.key));
                break;
            case PolicyLine::Kind::kRule:
                lookAtRule(line);
        }
    }

    std::vector<PolicyFinding> finish() {
        for (const auto& [section, rules] : good) {
            findCovered(rules, findings);
        }
        std::stable_sort(
            findings.begin(), findings.end(),
            [](const PolicyFinding& left, const PolicyFinding& right) { return left.line < right.line; });
        return std::move(findings);
    }

 private:
    void add(const PolicyLine& line, const std::string& text) { findings.push_back({line.number, text}); }

    void lookAtRule(const PolicyLine& line) {
        const auto [first, isNew] = lineOfKey[line.section].try_emplace(line.key, line.number);
        if (line.section.empty()) {
            add(line, "before any section, and so without effect");
        } else if (!isKnown(line.section)) {
            return;  // its section is told
        } else if (!isNew) {
            add(line, asOneLine(line.key) + " never wins: it stands on line " +
                          std::to_string(first->second) + " already");
        } else if (line.key.find_first_of("/*?") != 0) {
            add(line, "matches no path, as it does not begin with \"/\": " + asOneLine(line.key));
        } else if (hasValues(line.section) && !parseRuleValue(line.section, line.value)) {
            add(line, "bad value \"" + asOneLine(line.value) + "\"");
        } else if (hasValues(line.section)) {
            good[line.section].push_back(&line);
        }
    }

    std::vector<PolicyFinding> findings;
    std::unordered_map<std::string, std::unordered_map<std::string_view, size_t>> lineOfKey;
    std::map<std::string, Rules> good;
};

}  // namespace

std::vector<PolicyFinding> findingsOf(const std::vector<PolicyLine>& lines) {
    Examination examination;
    for (const PolicyLine& line : lines) {
        examination.look(line);
    }
    return examination.finish();
}
