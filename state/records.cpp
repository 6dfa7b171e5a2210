#include "state/records.h"

#include <algorithm>
#include <utility>

Records recordsOf(UserValueTable userValues, PackageIdTable packageIds) {
    Records records;
    for (const Field field : kFields) {
        for (UserRecord& record : userValues.all(field)) {
            if (!record.target.isPattern) {
                records.paths.push_back({std::move(record.target), record.value.value});
            }
        }
        PatternRules<FieldValue> rules = userValues.patterns(field);
        std::for_each(rules.rbegin(), rules.rend(), [&](PatternRule<FieldValue>& rule) {
            records.patterns.push_back({{field, true, std::move(rule.pattern)}, rule.value});
        });
    }
    std::sort(records.paths.begin(), records.paths.end(), RecordOrder());
    for (PackageId& package : packageIds.all()) {
        records.packages.push_back({std::move(package)});
    }
    return records;
}

bool RecordOrder::operator()(const ValueRecord& left, const ValueRecord& right) const {
    const int order = left.target.text.compare(right.target.text);
    return order != 0 ? order < 0 : left.target.field < right.target.field;
}

bool RecordOrder::operator()(const PackageRecord& left, const PackageRecord& right) const {
    return left.package.name < right.package.name;
}
