#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "labelmgr/model/context.h"
#include "labelmgr/policy/owner_table.h"
#include "labelmgr/policy/package_database.h"

// Which package owns which path, as one operation sees it. The package database lists all
// owners at once, and the list is kept in the state directory for as long as the
// database's own files stay as they are. A kept list that is damaged, of another state or
// of another's making is not believed: it is asked for anew. Where it cannot be kept, the
// database is asked as often as there are questions. Failures to ask throw
// OperationError; failures to keep are lines in the log at debug level.
class PackageOwners {
 public:
    explicit PackageOwners(const Context& in) : context(in) {}

    // The owner of one path; empty when no package owns it.
    std::string of(const std::string& path);
    // With many, nothing is asked for single paths.
    void expect(bool many) { expectsMany = many; }
    // Nor from here on.
    void readAll();
    // Of a directory's names, after readAll; for any number of threads.
    OwnedNames in(const std::string& directory);

 private:
    using Table = std::shared_ptr<const OwnerTable>;

    // Whether to ask also for a list that could not be kept.
    enum class Ask { kAlways, kIfKept };
    void findTable(Ask ask);
    Table askedFor(const std::optional<DatabaseState>& state, Ask ask) const;

    const Context& context;
    bool expectsMany = false;
    std::mutex mutex;  // of the table
    Table table;
    std::unordered_map<std::string, OwnedNames> askedLast;  // a few, by directory
};
