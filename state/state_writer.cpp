#include "state/state_writer.h"

#include <string>

#include "base/hexadecimal.h"
#include "state/json_names.h"
#include "state/state_format.h"

namespace {

using Write = std::function<void(std::string_view)>;

// An array of the document with one record a line.
class ArrayWriter {
 public:
    ArrayWriter(const Write& writeTo, const char* key) : write(writeTo) {
        write(std::string(",\n\"") + key + "\": [");
    }
    void add(const Json& record) {
        write((isFirst ? "\n" : ",\n") + record.dump());
        isFirst = false;
    }
    void end() { write(isFirst ? "]" : "\n]"); }

 private:
    const Write& write;
    bool isFirst = true;
};

// One record a path, with all its fields.
void writePaths(const std::vector<ValueRecord>& paths, const Write& write) {
    ArrayWriter array(write, kPathsKey);
    for (auto next = paths.begin(); next != paths.end();) {
        const std::string& path = next->target.text;
        Json record;
        addName(record, kPathKey, path);
        for (; next != paths.end() && next->target.text == path; ++next) {
            record[nameOf(next->target.field)] = textOf(next->value);
        }
        array.add(record);
    }
    array.end();
}

}  // namespace

void writeState(const Records& records, const Write& write) {
    write(std::string("{\n\"") + kFormatKey + "\": \"" + kFormat + "\",\n\"" + kVersionKey +
          "\": " + std::to_string(kVersion));
    writePaths(records.paths, write);
    ArrayWriter patterns(write, kPatternsKey);
    for (const ValueRecord& pattern : records.patterns) {
        Json record;
        addName(record, kPatternKey, pattern.target.text);
        record[nameOf(pattern.target.field)] = textOf(pattern.value);
        patterns.add(record);
    }
    patterns.end();
    ArrayWriter packages(write, kPackagesKey);
    for (const PackageRecord& package : records.packages) {
        Json record;
        addName(record, kPackageKey, package.package.name);
        record[kIdKey] = hexadecimalOf(package.package.id);
        packages.add(record);
    }
    packages.end();
    write("\n}\n");
}
