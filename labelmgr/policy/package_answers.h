#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// What package databases are asked and what they answer, as texts; nothing here runs a
// program.

// Of paths, with their owners: of several the byte-wise smallest name.
using OwnersByPath = std::unordered_map<std::string, std::string>;

// Keeps the databases' own wildcards and options out of a question about one name.
bool isPackageName(const std::string& name);
// The path as a pattern that matches nothing else.
std::string asDpkgPattern(const std::string& path);
// The name that a path below a merged directory has in packages from before the merge;
// empty for other paths.
std::string nameBeforeMerge(const std::string& path);

// Lines "installed NAME".
std::vector<std::string> parseInstalled(const std::vector<std::string>& lines);
// Lines that begin with "OWNER, OWNER:ARCHITECTURE: ". Remarks about diversions name
// nobody. The smallest name, or the empty one.
std::string parseOwner(const std::vector<std::string>& lines);
// A line of a tab and a package before the lines of its paths, each after a blank. Only
// paths at or below the root count, or whose name after the merge is.
OwnersByPath parseOwners(const std::vector<std::string>& lines, const std::string& root);
// The owner of a path by either of its names; empty when it has none.
std::string ownerIn(const OwnersByPath& owners, const std::string& path);
