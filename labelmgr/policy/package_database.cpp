#include "labelmgr/policy/package_database.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <sstream>
#include <sys/stat.h>
#include <utility>

#include "common/command.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/policy/package_answers.h"

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
    // For parseOwners. A first line "elsewhere": not of the database in these files.
    const char* listFiles;
    const char* listVersions;  // lines of a name without blanks and the rest
    const char* filesOf;       // $1 and on: such names. Lines that begin with a slash.
    // Every change of packages changes one of these files, of which some must be there.
    std::array<const char*, 8> databaseFiles;
    std::array<const char*, 3> settings;  // which say where those are
};

constexpr Questions kDpkg = {
    "dpkg-query",
    R"(dpkg-query -W -f '${db:Status-Status}\n' -- "$1" 2>/dev/null; [ $? -le 1 ] && echo . || :)",
    R"(dpkg-query -W -f '${db:Status-Status} ${Package}\n' 2>/dev/null && echo . || :)",
    R"(dpkg-query -S -- "$2" 2>/dev/null; [ $? -le 1 ] && echo . || :)",
    R"(dpkg-query -W -f '\t${Package}\n${db-fsys:Files}' 2>/dev/null && echo . || :)",
    // Unpacked files have their names, and those of the configuration theirs when the
    // package's status changes.
    R"(find /var/lib/dpkg/info -maxdepth 1 -name '*.list' -printf '%f %i %T@\n' | sed 's/\.list / /'
       dpkg-query -W -f '${binary:Package} ${db:Status-Status}\n' 2>/dev/null; [ $? -le 1 ] && echo . || :)",
    R"(cd /var/lib/dpkg/info && for name; do [ ! -e "$name.list" ] || cat -- "$name.list" || exit; done &&
       if [ -e ../diversions ]; then sed -n '2~3p' ../diversions; fi && echo . || :)",
    {"/var/lib/dpkg/status", "/var/lib/dpkg/updates", "/var/lib/dpkg/info", "/var/lib/dpkg/diversions"},
    {},
};

constexpr Questions kRpm = {
    "rpm",
    R"(rpm -q --qf 'installed\n' -- "$1" >/dev/null 2>&1 && echo installed; echo .)",
    R"(rpm -qa --qf 'installed %{NAME}\n' 2>/dev/null && echo . || :)",
    R"(out=$(rpm -qf --qf '%{NAME}: \n' -- "$1" 2>/dev/null) && printf '%s\n' "$out"; echo .)",
    R"(case $(rpm --eval '%{_dbpath}') in (/var/lib/rpm|/usr/lib/sysimage/rpm) ;; (*) echo elsewhere;; esac
       rpm -qa --qf '\t%{NAME}\n[%{FILESTATES:fstate} %{FILENAMES}\n]' 2>/dev/null && echo . || :)",
    R"(rpm -qa --qf '%{NEVRA} %{INSTALLTID}\n' 2>/dev/null && echo . || :)",
    R"(rpm -ql -- "$@" 2>/dev/null && echo . || :)",
    {"/usr/lib/sysimage/rpm/rpmdb.sqlite", "/usr/lib/sysimage/rpm/rpmdb.sqlite-wal",
     "/usr/lib/sysimage/rpm/Packages.db", "/usr/lib/sysimage/rpm/Packages", "/var/lib/rpm/rpmdb.sqlite",
     "/var/lib/rpm/rpmdb.sqlite-wal", "/var/lib/rpm/Packages.db", "/var/lib/rpm/Packages"},
    {"/etc/rpm", "/etc/rpm/macros", "/etc/rpmrc"},
};

// Empty when it is not there.
std::string pathOfProgram(const std::string& searchPath, const std::string& name) {
    std::istringstream directories(searchPath);
    for (std::string directory; std::getline(directories, directory, ':');) {
        struct stat status {};
        directory.append("/").append(name);
        if (stat(directory.c_str(), &status) == 0 && (status.st_mode & S_IXUSR) != 0) {
            return directory;
        }
    }
    return {};
}

class StateOfFiles {
 public:
    // Whether some of the files are there.
    template <size_t count>
    bool add(const std::array<const char*, count>& files) {
        bool isAnyThere = false;
        for (const char* file : files) {
            isAnyThere = (file != nullptr && add(file)) || isAnyThere;
        }
        return isAnyThere;
    }

    DatabaseState state() const {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        return {text.str(), newest < now.tv_sec - kCoarsestTick};
    }

 private:
    static constexpr time_t kCoarsestTick = 2;  // seconds, of file times

    bool add(const char* file) {
        struct stat status {};
        // An empty journal is as good as none; it comes and goes with questions.
        if (stat(file, &status) != 0 || (S_ISREG(status.st_mode) && status.st_size == 0)) {
            text << file << " none\n";
            return false;
        }
        text << file << ' ' << status.st_dev << ' ' << status.st_ino << ' ' << status.st_size;
        for (const timespec& time : {status.st_mtim, status.st_ctim}) {
            text << ' ' << time.tv_sec << '.' << time.tv_nsec;
            newest = std::max(newest, time.tv_sec);
        }
        text << '\n';
        return true;
    }

    std::ostringstream text;
    time_t newest = 0;
};

class AskedDatabase : public PackageDatabase {
 public:
    AskedDatabase(const Questions& questionsToAsk, PackagePrograms programsToRun, std::string programPath)
        : questions(questionsToAsk), programs(std::move(programsToRun)), program(std::move(programPath)) {}

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

    ListedOwners owners() const override {
        const std::vector<std::string> lines = ask(questions.listFiles, {});
        const bool isElsewhere = !lines.empty() && lines.front() == "elsewhere";
        return {std::make_shared<const OwnerTable>(parseOwners(lines)), !isElsewhere};
    }

    std::optional<DatabaseState> state() const override {
        const std::string name = questions.program;
        const bool isSystemProgram = program == "/usr/bin/" + name || program == "/bin/" + name;
        if (!isSystemProgram || programs.mayAskAnother) {  // whose files are not known
            return std::nullopt;
        }
        StateOfFiles state;
        if (!state.add(questions.databaseFiles)) {
            return std::nullopt;
        }
        state.add(questions.settings);
        state.add(std::array{program.c_str()});
        return state.state();
    }

    std::optional<PackageVersions> versions() const override {
        if (!state()) {
            return std::nullopt;
        }
        PackageVersions versions;
        for (const std::string& line : ask(questions.listVersions, {})) {
            const size_t blank = line.find(' ');
            versions[line.substr(0, blank)].append(line, std::min(blank, line.size()));
        }
        return versions;
    }

    std::vector<std::string> filesOf(const std::vector<std::string>& names) const override {
        std::vector<std::string> files = ask(questions.filesOf, names);
        std::erase_if(files, [](const std::string& line) { return line.empty() || line.front() != '/'; });
        return files;
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
    std::string program;
};

class NoPackages : public PackageDatabase {
 public:
    bool isInstalled(const std::string& /*name*/) const override { return false; }
    std::vector<std::string> installed() const override { return {}; }
    std::string owner(const std::string& /*path*/) const override { return {}; }
    ListedOwners owners() const override {
        return {std::make_shared<const OwnerTable>(OwnersByDirectory()), false};
    }
    std::optional<DatabaseState> state() const override { return std::nullopt; }
};

}  // namespace

std::shared_ptr<const PackageDatabase> systemPackages(const PackagePrograms& programs) {
    for (const Questions* questions : {&kDpkg, &kRpm}) {
        const std::string program = pathOfProgram(programs.searchPath, questions->program);
        if (!program.empty()) {
            return std::make_shared<AskedDatabase>(*questions, programs, program);
        }
    }
    return std::make_shared<NoPackages>();
}
