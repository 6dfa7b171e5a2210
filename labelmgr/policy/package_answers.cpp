#include "labelmgr/policy/package_answers.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace {

bool isAtOrBelow(const std::string& path, const std::string& root) {
    return root == "/" ||
           (path.rfind(root, 0) == 0 && (path.size() == root.size() || path[root.size()] == '/'));
}

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

}  // namespace

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

std::string nameBeforeMerge(const std::string& path) {
    constexpr std::array<std::string_view, 6> kMerged = {"/bin",   "/sbin",  "/lib",
                                                         "/lib32", "/lib64", "/libx32"};
    constexpr std::string_view kUsr = "/usr";
    if (!startsWith(path, kUsr)) {
        return {};
    }
    const std::string rest = path.substr(kUsr.size());
    const std::string_view first = std::string_view(rest).substr(0, rest.find('/', 1));
    return std::find(kMerged.begin(), kMerged.end(), first) != kMerged.end() ? rest : std::string();
}

std::vector<std::string> parseInstalled(const std::vector<std::string>& lines) {
    constexpr std::string_view kInstalled = "installed ";
    std::vector<std::string> names;
    for (const std::string& line : lines) {
        if (startsWith(line, kInstalled)) {
            names.push_back(line.substr(kInstalled.size()));
        }
    }
    return names;
}

std::string parseOwner(const std::vector<std::string>& lines) {
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

OwnersByPath parseOwners(const std::vector<std::string>& lines, const std::string& root) {
    OwnersByPath owners;
    std::string package;
    for (const std::string& line : lines) {
        if (startsWith(line, "\t")) {
            package = line.substr(1);
        } else if (startsWith(line, " /")) {
            const std::string path = line.substr(1);
            if (!isAtOrBelow(path, root) && !isAtOrBelow("/usr" + path, root)) {
                continue;
            }
            const auto [entry, isNew] = owners.try_emplace(path, package);
            if (!isNew) {
                entry->second = std::min(entry->second, package);
            }
        }
    }
    return owners;
}

std::string ownerIn(const OwnersByPath& owners, const std::string& path) {
    if (owners.empty()) {
        return {};
    }
    auto found = owners.find(path);
    if (found == owners.end()) {
        found = owners.find(nameBeforeMerge(path));
    }
    return found != owners.end() ? found->second : std::string();
}
