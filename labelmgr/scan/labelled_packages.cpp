#include "labelmgr/scan/labelled_packages.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "base/whole_file.h"
#include "labelmgr/change/done_log.h"
#include "labelmgr/change/label_anew.h"
#include "labelmgr/change/session.h"
#include "labelmgr/files/canonical_path.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/store/state_directory.h"
#include "log/logger.h"

namespace {

constexpr const char* kName = "labelled-packages";
// How a list ends that is whole: of a labelling without and with files that failed.
constexpr std::string_view kEnd = ".";
constexpr std::string_view kEndWithFailures = "!";

struct KeptPackages {
    PackageVersions versions;
    bool hadFailures = false;
};

std::string textOf(const PackageVersions& versions, bool hadFailures) {
    std::string text;
    for (const auto& [name, version] : versions) {
        text.append(name).append(" ").append(version).append("\n");
    }
    return text.append(hadFailures ? kEndWithFailures : kEnd);
}

std::optional<KeptPackages> keptPackages(const StateDirectory& directory) {
    const UniqueFd file = directory.openKept(kName);
    if (!file) {
        return std::nullopt;
    }
    const std::optional<std::string> text = wholeFile(file.get());
    if (!text) {
        throw systemError(kName);
    }
    std::istringstream lines(*text);
    KeptPackages kept;
    std::string line;
    while (std::getline(lines, line) && line != kEnd && line != kEndWithFailures) {
        const size_t blank = std::min(line.find(' '), line.size());
        kept.versions[line.substr(0, blank)] = line.substr(std::min(blank + 1, line.size()));
    }
    kept.hadFailures = line == kEndWithFailures;
    return line == kEnd || kept.hadFailures ? std::optional(kept) : std::nullopt;
}

void writeKept(const StateDirectory& directory, const std::string& text) {
    const UniqueFd file = directory.beginKept(kName);
    if (!file) {
        throw OperationError(kName, "another process writes it");
    }
    if (write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        fsync(file.get()) != 0) {
        throw systemError(kName);
    }
    directory.replaceKept(kName);
}

std::vector<std::string> newNames(const PackageVersions& present, const PackageVersions& labelled) {
    std::vector<std::string> names;
    for (const auto& [name, version] : present) {
        const auto known = labelled.find(name);
        if (known == labelled.end() || known->second != version) {
            names.push_back(name);
        }
    }
    return names;
}

bool isExcluded(const Policy& policy, const std::string& path) {
    return firstOfPathAndAbove(
        path, [&policy](const std::string& above) { return firstMatch(policy.excluded, above) != nullptr; });
}

// Empty where nothing may be asked.
std::string canonicalDirectory(const std::string& path) {
    try {
        return canonicalPathOfRecord(path.c_str());
    } catch (const OperationError& failure) {
        ZORV_LOG(warn, "%s; what is in it is not labelled", failure.what());
        return {};
    }
}

// The files themselves, by canonical paths, each once; a package may name them through
// links to directories.
std::vector<std::string> filesToLabel(const std::vector<std::string>& listed, const Policy& policy) {
    std::map<std::string, std::string> directories;
    std::vector<std::string> files;
    for (const std::string& path : listed) {
        const size_t slash = path.rfind('/');
        const std::string parent = path.substr(0, std::max<size_t>(slash, 1));
        auto directory = directories.find(parent);
        if (directory == directories.end()) {
            directory = directories.emplace(parent, canonicalDirectory(parent)).first;
        }
        const std::string name = path.substr(slash + 1);
        std::string file = directory->second == "/" ? "/" + name : directory->second + "/" + name;
        if (!directory->second.empty() && !name.empty() && name != "." && !isExcluded(policy, file)) {
            files.push_back(std::move(file));
        }
    }
    std::sort(files.begin(), files.end());
    files.erase(std::unique(files.begin(), files.end()), files.end());
    return files;
}

}  // namespace

void forgetLabelledPackages(const Context& context) {
    if (const auto directory =
            StateDirectory::open(context.stateDirectory, StateDirectory::IfMissing::kAnswerNothing)) {
        directory->removeKept(kName);
    }
}

void keepLabelledPackages(const Context& context, const std::optional<PackageVersions>& versions,
                          bool hadFailures) try {
    if (versions) {
        const auto directory =
            StateDirectory::open(context.stateDirectory, StateDirectory::IfMissing::kCreate);
        writeKept(*directory, textOf(*versions, hadFailures));
    }
} catch (const OperationError& failure) {
    ZORV_LOG(warn, "%s", failure.what());
}

std::optional<LabelledAnew> labelNewPackages(const Context& context) {
    const auto directory =
        StateDirectory::open(context.stateDirectory, StateDirectory::IfMissing::kAnswerNothing);
    const std::optional<KeptPackages> labelled = directory ? keptPackages(*directory) : std::nullopt;
    const std::optional<PackageVersions> present = context.packages->versions();
    if (!labelled || !present) {
        return std::nullopt;
    }
    LabelledAnew result;
    result.hadFailures = labelled->hadFailures;
    const std::vector<std::string> names = newNames(*present, labelled->versions);
    if (names.empty()) {
        return result;
    }
    Facts facts(context);
    const std::vector<std::string> files = filesToLabel(context.packages->filesOf(names), facts.policy());
    Store store = openToChange(context);  // until the list is kept: it belongs to this state of the store
    result.packages = names.size();
    result.files = files.size();
    result.failed = labelAnew(store, context, facts, files);
    if (keptPackages(*directory)) {  // no labelling of the whole system has begun meanwhile
        keepLabelledPackages(context, present, result.hadFailures || result.failed != 0);
    }
    logDone("labelled the files of " + std::to_string(names.size()) + " packages, first " + names.front());
    return result;
}
