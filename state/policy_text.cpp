#include "state/policy_text.h"

#include <algorithm>
#include <optional>
#include <sstream>

#include "base/whole_file.h"
#include "common/string_utils.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/policy/policy_file.h"

namespace {

PolicyLine lineOf(const std::string& text, size_t number, std::string& section) {
    PolicyLine line{number, PolicyLine::Kind::kOther, section, text, {}};
    const size_t equals = text.find('=');
    if (text.front() == '[' && text.back() == ']') {
        section = text.substr(1, text.size() - 2);
        line.kind = PolicyLine::Kind::kSection;
        line.section = section;
    } else if (equals != std::string::npos) {
        line.kind = PolicyLine::Kind::kRule;
        line.key = trim(text.substr(0, equals));
        line.value = trim(text.substr(equals + 1));
    }
    return line;
}

}  // namespace

std::vector<PolicyLine> policyLines(const std::string& text) {
    std::vector<PolicyLine> lines;
    std::istringstream in(text);
    std::string section;
    size_t number = 0;
    for (std::string raw; std::getline(in, raw);) {
        ++number;
        const std::string line = trim(raw);
        if (!line.empty() && line.front() != '#') {
            lines.push_back(lineOf(line, number, section));
        }
    }
    return lines;
}

size_t lineOfRule(const std::vector<PolicyLine>& lines, std::string_view section, std::string_view key) {
    const auto found = std::find_if(lines.begin(), lines.end(), [&](const PolicyLine& line) {
        return line.kind == PolicyLine::Kind::kRule && line.section == section && line.key == key;
    });
    return found != lines.end() ? found->number : 0;
}

std::string policyText(const UniqueFd& file, const std::string& path) {
    if (!file) {
        return {};
    }
    std::optional<std::string> text = wholeFile(file.get(), kLargestPolicy + 1);
    if (!text) {
        throw systemError(path);
    }
    if (text->size() > kLargestPolicy) {
        throw OperationError(path, "larger than 16 MiB");
    }
    return std::move(*text);
}
