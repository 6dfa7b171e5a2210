#pragma once

#include <string>
#include <unordered_map>
#include <vector>

// The machine's own package database: dpkg's where dpkg-query is on the PATH, else rpm's. With neither,
// nothing is installed. Paths are canonical; a file below /usr is also found under the name without it, as
// packages built before the directories were merged own it. Of several owners of a path the byte-wise
// smallest name counts.

bool isPackageInstalled(const std::string& name);
std::vector<std::string> installedPackages();

// The owner of one path; empty when no package owns it.
std::string packageOwning(const std::string& path);

// Every path at or below a root that a package owns, with its owner: one question for many look-ups.
class PackageOwners {
 public:
    static PackageOwners load(const std::string& root);
    std::string owner(const std::string& path) const;

 private:
    void add(const std::string& path, const std::string& package);

    std::unordered_map<std::string, std::string> owners;
};
