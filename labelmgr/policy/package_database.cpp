#include "labelmgr/policy/package_database.h"

#include <algorithm>
#include <sstream>
#include <sys/stat.h>
#include <utility>

#include "common/command.h"
#include "labelmgr/model/operation_error.h"

namespace {

constexpr size_t kPieceLength = 1023;  // a longer line arrives from executeCommand in pieces of this length

// What to ask a package database. Each text is a shell script with its arguments in $1
// and on: the databases answer "not found" with a failure and a complaint, and neither is
// one here. A line with a full stop ends a good answer.
struct Questions {
    const char* program;
    const char* isInstalled;    // $1: a name. A line "installed" when it is.
    const char* listInstalled;  // for parseInstalled
    const char* owners;         // $1: a path, $2: the same as a dpkg pattern. For parseOwner.
    const char* listFiles;      // for parseOwners
};

constexpr Questions kDpkg = {
    "dpkg-query",
    R"(dpkg-query -W -f '${db:Status-Status}\n' -- "$1" 2>/dev/null; [ $? -le 1 ] && echo . || :)",
    R"(dpkg-query -W -f '${db:Status-Status} ${Package}\n' 2>/dev/null && echo . || :)",
    R"(dpkg-query -S -- "$2" 2>/dev/null; [ $? -le 1 ] && echo . || :)",
    R"(dpkg-query -W -f '\t${Package}\n${db-fsys:Files}' 2>/dev/null && echo . || :)",
};

constexpr Questions kRpm = {
    "rpm",
    R"(rpm -q --qf 'installed\n' -- "$1" >/dev/null 2>&1 && echo installed; echo .)",
    R"(rpm -qa --qf 'installed %{NAME}\n' 2>/dev/null && echo . || :)",
    R"(out=$(rpm -qf --qf '%{NAME}: \n' -- "$1" 2>/dev/null) && printf '%s\n' "$out"; echo .)",
    R"(rpm -qa --qf '\t%{NAME}\n[ %{FILENAMES}\n]' 2>/dev/null && echo . || :)",
};

bool isProgram(const std::string& searchPath, const std::string& name) {
    std::istringstream directories(searchPath);
    for (std::string directory; std::getline(directories, directory, ':');) {
        struct stat status {};
        directory.append("/").append(name);
        if (stat(directory.c_str(), &status) == 0 && (status.st_mode & S_IXUSR) != 0) {
            return true;
        }
    }
    return false;
}

class AskedDatabase : public PackageDatabase {
 public:
    AskedDatabase(const Questions& questionsToAsk, PackagePrograms programsToRun)
        : questions(questionsToAsk), programs(std::move(programsToRun)) {}

    bool isInstalled(const std::string& name) const override {
        if (!isPackageName(name)) {
            return false;
        }
        const std::vector<std::string> lines = ask(questions.isInstalled, {name});
        return std::find(lines.begin(), lines.end(), "installed") != lines.end();
    }

    std::vector<std::string> installed() const override {
        return parseInstalled(ask(questions.listInstalled, {}));
    }

    std::string owner(const std::string& path) const override {
        for (const std::string& name : {path, nameBeforeMerge(path)}) {
            std::string found =
                name.empty() ? "" : parseOwner(ask(questions.owners, {name, asDpkgPattern(name)}));
            if (!found.empty()) {
                return found;
            }
        }
        return {};
    }

    OwnersByPath owners(const std::string& root) const override {
        return parseOwners(ask(questions.listFiles, {}), root);
    }

 private:
    std::vector<std::string> ask(const char* script, const std::vector<std::string>& arguments) const {
        std::vector<std::string> words;
        if (!programs.keepsEnvironment) {
            words.emplace_back("-i");
        }
        for (const std::string& word :
             {"PATH=" + programs.searchPath, std::string("LC_ALL=C"), std::string("/bin/sh"),
              std::string("-c"), std::string(script), std::string("sh")}) {
            words.push_back(word);
        }
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<std::string> lines = joined(executeCommand("/usr/bin/env", words));
        if (lines.empty() || lines.back() != ".") {
            throw OperationError(questions.program, "the package database cannot be read");
        }
        lines.pop_back();
        return lines;
    }

    static std::vector<std::string> joined(std::vector<std::string> pieces) {
        std::vector<std::string> lines;
        bool continues = false;
        for (std::string& piece : pieces) {
            const bool isCut = piece.size() == kPieceLength;
            if (continues) {
                lines.back().append(piece);
            } else {
                lines.push_back(std::move(piece));
            }
            continues = isCut;
        }
        return lines;
    }

    const Questions& questions;
    PackagePrograms programs;
};

class NoPackages : public PackageDatabase {
 public:
    bool isInstalled(const std::string& /*name*/) const override { return false; }
    std::vector<std::string> installed() const override { return {}; }
    std::string owner(const std::string& /*path*/) const override { return {}; }
    OwnersByPath owners(const std::string& /*root*/) const override { return {}; }
};

}  // namespace

std::shared_ptr<const PackageDatabase> systemPackages(const PackagePrograms& programs) {
    for (const Questions* questions : {&kDpkg, &kRpm}) {
        if (isProgram(programs.searchPath, questions->program)) {
            return std::make_shared<AskedDatabase>(*questions, programs);
        }
    }
    return std::make_shared<NoPackages>();
}
