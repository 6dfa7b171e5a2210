#include "state/name_resolution.h"

#include <algorithm>
#include <functional>

#include "labelmgr/model/operation_error.h"
#include "labelmgr/port/target.h"

namespace {

using Lines = std::vector<const ValueRecord*>;

OperationError errorAt(const std::string& fileName, size_t line, const std::string& reason) {
    return OperationError(fileName + ":" + std::to_string(line) + ": " + reason);
}

constexpr RecordOrder kIsBefore;

Lines sorted(const std::vector<ValueRecord>& records) {
    Lines lines;
    lines.reserve(records.size());
    for (const ValueRecord& record : records) {
        lines.push_back(&record);
    }
    std::sort(lines.begin(), lines.end(), kIsBefore);
    return lines;
}

class Resolver {
 public:
    Resolver(std::string fileName, bool allowsMissing)
        : name(std::move(fileName)), mayBeMissing(allowsMissing) {}

    void resolve(std::vector<ValueRecord>& wanted, const std::vector<ValueRecord>& present) {
        const Lines known = sorted(present);
        for (ValueRecord& record : wanted) {
            const auto found = std::lower_bound(known.begin(), known.end(), &record, kIsBefore);
            if (found == known.end() || kIsBefore(&record, *found) ||
                numbersOf((*found)->value) != numbersOf(record.value)) {
                record.target.text = canonical(record);
            }
        }
        refuseRepeated(wanted);
    }

 private:
    std::string canonical(const ValueRecord& record) {
        const Target& target = record.target;
        if (target.text == lastText) {  // with another field
            return lastResolved;
        }
        try {
            const auto resolved = mayBeMissing ? targetOfRecord : targetOfFile;
            lastResolved = resolved(target.field, target.text.c_str(), target.isPattern ? 1 : 0).text;
        } catch (const OperationError& failure) {
            throw errorAt(name, record.line, failure.what());
        }
        lastText = target.text;
        return lastResolved;
    }

    void refuseRepeated(const std::vector<ValueRecord>& records) {
        const Lines lines = sorted(records);
        for (size_t i = 1; i < lines.size(); ++i) {
            if (!kIsBefore(lines[i - 1], lines[i])) {
                const auto [first, second] = std::minmax(lines[i - 1]->line, lines[i]->line);
                throw errorAt(name, second,
                              "a second " + std::string(nameOf(lines[i]->target.field)) +
                                  " for what is on line " + std::to_string(first));
            }
        }
    }

    std::string name;
    bool mayBeMissing;
    std::string lastText;
    std::string lastResolved;
};

}  // namespace

void resolveNames(Records& wanted, const Records& present, const std::string& fileName, bool allowsMissing) {
    Resolver resolver(fileName, allowsMissing);
    resolver.resolve(wanted.paths, present.paths);
    resolver.resolve(wanted.patterns, present.patterns);
    std::sort(wanted.paths.begin(), wanted.paths.end(), RecordOrder());
    std::stable_sort(wanted.packages.begin(), wanted.packages.end(), RecordOrder());
    for (size_t i = 1; i < wanted.packages.size(); ++i) {
        if (wanted.packages[i - 1].package.name == wanted.packages[i].package.name) {
            throw errorAt(fileName, wanted.packages[i].line,
                          "a second id for what is on line " + std::to_string(wanted.packages[i - 1].line));
        }
    }
}
