#include "labelmgr/packages.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "common/command.h"

namespace {

constexpr size_t kPieceLength = 1023;  // a longer line arrives from executeCommand in pieces of this length

// What to ask a package database. Each text is a shell script with its arguments in $1 and on: the databases
// answer "not found" with a failure and a complaint, and neither is one here.
struct PackageDatabase {
    const char* command;
    const char* isInstalled;    // $1: a name. A line "installed" or nothing.
    const char* listInstalled;  // A line a package.
    const char* owners;     // $1: a path, $2: the same as a dpkg pattern. Lines that name the owners first.
    const char* listFiles;  // A line " PACKAGE" before the lines of its paths, one a line.
};

constexpr PackageDatabase kDpkg = {
    "dpkg-query",
    R"(dpkg-query -W -f '${db:Status-Status}\n' -- "$1" 2>/dev/null || [ $? -eq 1 ])",
    R"(dpkg-query -W -f '${db:Status-Status} ${Package}\n' 2>/dev/null | sed -n 's/^installed //p')",
    R"(dpkg-query -S -- "$2" 2>/dev/null || [ $? -eq 1 ])",
    R"(dpkg-query -W -f '\t${Package}\n${db-fsys:Files}' 2>/dev/null)",
};

constexpr PackageDatabase kRpm = {
    "rpm",
    R"(rpm -q --qf 'installed\n' -- "$1" >/dev/null 2>&1 && echo installed || :)",
    R"(rpm -qa --qf '%{NAME}\n' 2>/dev/null)",
    R"(out=$(rpm -qf --qf '%{NAME}:\n' -- "$1" 2>/dev/null) && printf '%s\n' "$out" || :)",
    R"(rpm -qa --qf '\t%{NAME}\n[ %{FILENAMES}\n]' 2>/dev/null)",
};

const PackageDatabase* packageDatabase() {
    for (const PackageDatabase* database : {&kDpkg, &kRpm}) {
        if (commandExists(database->command)) {
            return database;
        }
    }
    return nullptr;
}

std::vector<std::string> ask(const char* script, const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {"-c", std::string("export LC_ALL=C; ") + script, "sh"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return executeCommand("/bin/sh", words);
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

// Empty stays empty.
std::string withSlash(const std::string& path) {
    return path.empty() || path.back() == '/' ? path : path + "/";
}

bool isAtOrBelow(const std::string& path, const std::string& prefix) {
    return !prefix.empty() && (path.rfind(prefix, 0) == 0 || path + "/" == prefix);
}

// "a, b:arch: /path" names the owners a and b; dpkg's own remarks about diversions name nobody.
std::string smallestOwner(const std::vector<std::string>& lines) {
    std::string smallest;
    for (const std::string& line : lines) {
        const size_t end = line.find(": ");
        const bool isRpm = end == std::string::npos && !line.empty() && line.back() == ':';
        if ((end == std::string::npos && !isRpm) || line.rfind("diversion by ", 0) == 0) {
            continue;
        }
        std::string_view names = std::string_view(line).substr(0, isRpm ? line.size() - 1 : end);
        while (!names.empty()) {
            const size_t comma = names.find(", ");
            const std::string_view name = names.substr(0, comma);
            const std::string bare(name.substr(0, name.find(':')));
            smallest = smallest.empty() ? bare : std::min(smallest, bare);
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
    const std::vector<std::string> lines = ask(database->isInstalled, {name});
    return std::find(lines.begin(), lines.end(), "installed") != lines.end();
}

std::vector<std::string> installedPackages() {
    const PackageDatabase* database = packageDatabase();
    return database != nullptr ? ask(database->listInstalled, {}) : std::vector<std::string>();
}

std::string packageOwning(const std::string& path) {
    const PackageDatabase* database = packageDatabase();
    if (database == nullptr) {
        return {};
    }
    for (const std::string& name : {path, nameBeforeMerge(path)}) {
        std::string owner =
            name.empty() ? std::string() : smallestOwner(ask(database->owners, {name, asDpkgPattern(name)}));
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
    const std::string prefix = withSlash(root);
    const std::string prefixBeforeMerge = withSlash(nameBeforeMerge(root));
    std::string package;
    std::string line;
    for (const std::string& piece : ask(database->listFiles, {})) {
        line.append(piece);
        if (piece.size() == kPieceLength) {
            continue;
        }
        if (line.rfind('\t', 0) == 0) {
            package = line.substr(1);
        } else if (line.rfind(" /", 0) == 0) {
            line.erase(0, 1);
            if (isAtOrBelow(line, prefix) || isAtOrBelow(line, prefixBeforeMerge)) {
                owners.add(line, package);
            }
        }
        line.clear();
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
