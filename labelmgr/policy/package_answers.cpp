#include "labelmgr/policy/package_answers.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace {

constexpr std::string_view kUsr = "/usr";

// Whether a path is in one of the directories that moved below /usr, or one itself.
bool isFromBeforeMerge(std::string_view path) {
    constexpr std::array<std::string_view, 6> kMerged = {"/bin",   "/sbin",  "/lib",
                                                         "/lib32", "/lib64", "/libx32"};
    return std::find(kMerged.begin(), kMerged.end(), path.substr(0, path.find('/', 1))) != kMerged.end();
}

using NamesAndOwners = OwnedNames::Entries;

// Paths that follow each other in one directory cost one look-up.
class OwnerCollector {
 public:
    void add(std::string_view path, std::string_view owner) {
        const size_t slash = path.rfind('/');
        const std::string_view directory = path.substr(0, std::max<size_t>(slash, 1));
        if (last == nullptr || last->first != directory) {
            last = &*owners.try_emplace(std::string(directory)).first;
        }
        last->second.emplace_back(path.substr(slash + 1), owner);
    }

    OwnersByDirectory takeSmallest() {
        for (auto& [directory, entries] : owners) {
            std::sort(entries.begin(), entries.end());
            keepFirstOfName(entries);
        }
        return std::move(owners);
    }

    static void keepFirstOfName(NamesAndOwners& entries) {
        entries.erase(
            std::unique(entries.begin(), entries.end(),
                        [](const auto& left, const auto& right) { return left.first == right.first; }),
            entries.end());
    }

 private:
    OwnersByDirectory owners;
    OwnersByDirectory::value_type* last = nullptr;
};

// Adds the names of a directory from before the merge that the one after it has not.
void addMerged(NamesAndOwners& present, const NamesAndOwners& formerNames) {
    present.insert(present.end(), formerNames.begin(), formerNames.end());
    std::stable_sort(present.begin(), present.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; });
    OwnerCollector::keepFirstOfName(present);
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
    if (!path.starts_with(kUsr)) {
        return {};
    }
    const std::string rest = path.substr(kUsr.size());
    return isFromBeforeMerge(rest) ? rest : std::string();
}

std::vector<std::string> parseInstalled(const std::vector<std::string>& lines) {
    constexpr std::string_view kInstalled = "installed ";
    std::vector<std::string> names;
    for (const std::string& line : lines) {
        if (line.starts_with(kInstalled)) {
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

OwnersByDirectory parseOwners(const std::vector<std::string>& lines) {
    OwnerCollector listed;
    OwnerCollector beforeMerge;
    std::string_view package;
    for (const std::string_view line : lines) {
        if (line.starts_with("\t")) {
            package = line.substr(1);
        } else if (line.starts_with(" /") || line.starts_with("normal /")) {
            const std::string_view path = line.substr(line.find('/'));
            listed.add(path, package);
            if (isFromBeforeMerge(path)) {
                beforeMerge.add(path, package);
            }
        }
    }
    OwnersByDirectory owners = listed.takeSmallest();
    for (const auto& [directory, entries] : beforeMerge.takeSmallest()) {
        addMerged(owners[std::string(kUsr).append(directory == "/" ? "" : directory)], entries);
    }
    return owners;
}
