#include "labelmgr/packages.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <string_view>

#include "common/command.h"
#include "labelmgr/operation_error.h"

namespace {

constexpr size_t kPieceLength = 1023;  // a longer line arrives from executeCommand in pieces of this length

// What to ask a package database. Each text is a shell script with its arguments in $1 and on: the databases
// answer "not found" with a failure and a complaint, and neither is one here. A line with a full stop ends a
// good answer.
struct PackageDatabase {
    const char* command;
    const char* isInstalled;    // $1: a name. A line "installed" when it is.
    const char* listInstalled;  // A line "installed NAME" for each that is.
    const char*
        owners;  // $1: a path, $2: the same as a dpkg pattern. Lines that begin with "OWNER, OWNER: ".
    const char*
        listFiles;  // A line of a tab and a package before the lines of its paths, each after a blank.
};

constexpr PackageDatabase kDpkg = {
    "dpkg-query",
    R"(dpkg-query -W -f '${db:Status-Status}\n' -- "$1" 2>/dev/null; [ $? -le 1 ] && echo . || :)",
    R"(dpkg-query -W -f '${db:Status-Status} ${Package}\n' 2>/dev/null && echo . || :)",
    R"(dpkg-query -S -- "$2" 2>/dev/null; [ $? -le 1 ] && echo . || :)",
    R"(dpkg-query -W -f '\t${Package}\n${db-fsys:Files}' 2>/dev/null && echo . || :)",
};

constexpr PackageDatabase kRpm = {
    "rpm",
    R"(rpm -q --qf 'installed\n' -- "$1" >/dev/null 2>&1 && echo installed; echo .)",
    R"(rpm -qa --qf 'installed %{NAME}\n' 2>/dev/null && echo . || :)",
    R"(out=$(rpm -qf --qf '%{NAME}: \n' -- "$1" 2>/dev/null) && printf '%s\n' "$out"; echo .)",
    R"(rpm -qa --qf '\t%{NAME}\n[ %{FILENAMES}\n]' 2>/dev/null && echo . || :)",
};

const PackageDatabase* packageDatabase() {
    for (const PackageDatabase* database : {&kDpkg, &kRpm}) {
        if (commandExists(database->command)) {
            return database;
        }
    }
    return nullptr;
}

std::vector<std::string> ask(const PackageDatabase& database, const char* script,
                             const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {"-c", std::string("export LC_ALL=C; ") + script, "sh"};
    if (secure_getenv("PATH") == nullptr) {  // not the caller's, in a program with more privilege
        words[1].insert(0, "export PATH=/usr/sbin:/usr/bin:/sbin:/bin; ");
    }
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> lines;
    bool continues = false;
    for (std::string& piece : executeCommand("/bin/sh", words)) {
        const bool isCut = piece.size() == kPieceLength;
        if (continues) {
            lines.back().append(piece);
        } else {
            lines.push_back(std::move(piece));
        }
        continues = isCut;
    }
    if (lines.empty() || lines.back() != ".") {
        throw OperationError(database.command, "the package database cannot be read");
    }
    lines.pop_back();
    return lines;
}

// Keeps the databases' own wildcards and options out of a question about one name.
bool isPackageName(const std::string& name) {
    return !name.empty() && std::isalnum(static_cast<unsigned char>(name.front())) != 0 &&
           std::all_of(name.begin(), name.end(), [](unsigned char c) {
               return std::isalnum(c) != 0 ||
                      std::string_view("+-._~^").find(static_cast<char>(c)) != std::string_view::npos;
           });
}

std::string asDpkgPattern(const std::string& path) {
    std::string pattern;
    for (const char c : path) {
        if (std::string_view("*?[\\").find(c) != std::string_view::npos) {
            pattern.push_back('\\');
        }
        pattern.push_back(c);
    }
    return pattern;
}

// The name that a path below a merged directory has in packages from before the merge; empty for other paths.
std::string nameBeforeMerge(const std::string& path) {
    constexpr std::array<std::string_view, 6> kMerged = {"/bin",   "/sbin",  "/lib",
                                                         "/lib32", "/lib64", "/libx32"};
    constexpr std::string_view kUsr = "/usr";
    if (path.rfind(kUsr, 0) != 0) {
        return {};
    }
    const std::string rest = path.substr(kUsr.size());
    const std::string_view first = std::string_view(rest).substr(0, rest.find('/', 1));
    return std::find(kMerged.begin(), kMerged.end(), first) != kMerged.end() ? rest : std::string();
}

bool isAtOrBelow(const std::string& path, const std::string& root) {
    return root == "/" ||
           (path.rfind(root, 0) == 0 && (path.size() == root.size() || path[root.size()] == '/'));
}

// "a, b:arch: /path" names the owners a and b. Remarks about diversions name nobody.
std::string smallestOwner(const std::vector<std::string>& lines) {
    std::string smallest;
    for (const std::string& line : lines) {
        const size_t end = line.find(": ");
        std::string_view names = end != std::string::npos ? std::string_view(line).substr(0, end) : "";
        while (!names.empty()) {
            const size_t comma = names.find(", ");
            const std::string_view name = names.substr(0, comma);
            const std::string bare(name.substr(0, name.find(':')));
            if (isPackageName(bare) && (smallest.empty() || bare < smallest)) {
                smallest = bare;
            }
            names = comma == std::string_view::npos ? std::string_view() : names.substr(comma + 2);
        }
    }
    return smallest;
}

}  // namespace

bool isPackageInstalled(const std::string& name) {
    const PackageDatabase* database = packageDatabase();
    if (database == nullptr || !isPackageName(name)) {
        return false;
    }
    const std::vector<std::string> lines = ask(*database, database->isInstalled, {name});
    return std::find(lines.begin(), lines.end(), "installed") != lines.end();
}

std::vector<std::string> installedPackages() {
    constexpr std::string_view kInstalled = "installed ";
    std::vector<std::string> names;
    const PackageDatabase* database = packageDatabase();
    if (database == nullptr) {
        return names;
    }
    for (const std::string& line : ask(*database, database->listInstalled, {})) {
        if (line.rfind(kInstalled, 0) == 0) {
            names.push_back(line.substr(kInstalled.size()));
        }
    }
    return names;
}

std::string packageOwning(const std::string& path) {
    const PackageDatabase* database = packageDatabase();
    if (database == nullptr) {
        return {};
    }
    for (const std::string& name : {path, nameBeforeMerge(path)}) {
        std::string owner;
        if (!name.empty()) {
            owner = smallestOwner(ask(*database, database->owners, {name, asDpkgPattern(name)}));
        }
        if (!owner.empty()) {
            return owner;
        }
    }
    return {};
}

PackageOwners PackageOwners::load(const std::string& root) {
    PackageOwners owners;
    const PackageDatabase* database = packageDatabase();
    if (database == nullptr) {
        return owners;
    }
    std::string package;
    for (const std::string& line : ask(*database, database->listFiles, {})) {
        if (line.rfind('\t', 0) == 0) {
            package = line.substr(1);
        } else if (line.rfind(" /", 0) == 0) {
            const std::string path = line.substr(1);
            if (isAtOrBelow(path, root) || isAtOrBelow("/usr" + path, root)) {
                owners.add(path, package);
            }
        }
    }
    return owners;
}

void PackageOwners::add(const std::string& path, const std::string& package) {
    const auto [entry, added] = owners.try_emplace(path, package);
    if (!added) {
        entry->second = std::min(entry->second, package);
    }
}

std::string PackageOwners::owner(const std::string& path) const {
    if (owners.empty()) {
        return {};
    }
    auto found = owners.find(path);
    if (found == owners.end()) {
        found = owners.find(nameBeforeMerge(path));
    }
    return found != owners.end() ? found->second : std::string();
}
