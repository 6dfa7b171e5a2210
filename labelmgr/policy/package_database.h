#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "labelmgr/policy/owner_table.h"

// What tells the contents of a package database from any others.
struct DatabaseState {
    std::string text;
    bool isSettled;  // not so right after a change, which another one may follow unnoticed
};

using PackageVersions = std::map<std::string, std::string>;

struct ListedOwners {
    std::shared_ptr<const OwnerTable> table;
    bool isOfState;  // of the database that state() tells of
};

// The packages of a machine. Paths are canonical; a file below /usr is also found under
// the name without it, as packages built before the directories were merged own it.
// Failures throw OperationError.
class PackageDatabase {
 public:
    virtual ~PackageDatabase() = default;

    virtual bool isInstalled(const std::string& name) const = 0;
    virtual std::vector<std::string> installed() const = 0;
    // The owner of one path, which need not exist; empty when no package owns it.
    virtual std::string owner(const std::string& path) const = 0;
    // Every path that a package owns: one question for many look-ups.
    virtual ListedOwners owners() const = 0;
    // Nothing when it cannot be told.
    virtual std::optional<DatabaseState> state() const = 0;

    // The installed packages, each with what changes whenever its files are written anew.
    // Nothing when it cannot be told.
    virtual std::optional<PackageVersions> versions() const { return std::nullopt; }
    // The files of some of these.
    virtual std::vector<std::string> filesOf(const std::vector<std::string>& /*names*/) const { return {}; }
};

// How the programs of the package database are run.
struct PackagePrograms {
    std::string searchPath;         // in the form of PATH
    bool keepsEnvironment = false;  // the rest of the caller's environment, too
    bool mayAskAnother = false;     // database than the machine's, because of that environment
};

// The machine's own database: dpkg's where dpkg-query is on the search path, else rpm's.
// With neither, nothing is installed.
std::shared_ptr<const PackageDatabase> systemPackages(const PackagePrograms& programs);
