#pragma once

#include <string>
#include <vector>

#include "labelmgr/policy/owner_table.h"

// What package databases are asked and what they answer, as texts; nothing here runs a
// program.

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
// A line of a tab and a package before the lines of its paths, each after a blank or
// after "normal ", as rpm says of files that no other package has replaced. Of several
// owners the smallest name counts. A path from before the merge counts for the one after
// it, too, unless that has an owner of its own. The answer is of texts in the lines.
OwnersByDirectory parseOwners(const std::vector<std::string>& lines);
