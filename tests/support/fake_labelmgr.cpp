// A label manager that only writes down its calls, and answers what a script says. The
// file ZORV_FAKE_CALLS gets one line a call: the operation and its arguments, numbers
// hexadecimal, and how much was printed before where that matters. An out parameter that
// the tool has to preset and did not ends the process.
//
// ZORV_FAKE_ANSWERS holds lines "OPERATION=STATUS VALUE...,STATUS VALUE...": one answer a
// call, the last one for all further calls. Values are the out parameters (hexadecimal),
// each record's target and three numbers, a text, or "KIND ITEM" and an id's three
// numbers. Without an answer an operation succeeds with zeros and without texts, but a
// receive fails.

#include <concepts>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <sys/time.h>
#include <unistd.h>

#include "cli/label_manager.h"
#include "tests/support/table.h"

namespace {

using Script = std::map<std::string, Lines>;

int subscriberHandle;

Script readScript() {
    Script script = {{"recvLabelChangeMsg", {"-1"}}};
    for (const std::string& line : split(std::getenv("ZORV_FAKE_ANSWERS"), "\n")) {
        script[split(line, "=")[0]] = split(line.substr(line.find('=') + 1), ",");
    }
    return script;
}

void put(std::ostream& line, const std::string& text) {
    line << ' ' << std::quoted(text);
}
void put(std::ostream& line, std::integral auto number) {
    line << ' ' << number;
}
void put(std::ostream& line, const ZORV_ID& id) {
    line << ' ' << id.package << '-' << id.file << '-' << id.path;
}

void require(bool preset) {
    if (!preset) {
        std::abort();
    }
}

// One call: writes its line and reads its answer.
struct Call {
    template <typename... Arguments>
    explicit Call(const char* operation, const Arguments&... arguments) {
        std::ofstream line(std::getenv("ZORV_FAKE_CALLS"), std::ios::app);
        line << operation << std::hex;
        (put(line, arguments), ...);
        line << '\n';
        static Script script = readScript();
        Lines& answers = script[operation];
        values.str(answers.empty() ? "0" : answers.front());
        if (answers.size() > 1) {
            answers.erase(answers.begin());
        }
        values >> status >> std::hex >> std::ws;
    }

    int read(ZORV_ID* out) {
        require(out->package == 0 && out->file == 0 && out->path == 0);
        values >> out->package >> out->file >> out->path;
        return status;
    }
    template <typename Number>
    int read(Number* out) {
        *out = 0;
        values >> *out;
        return status;
    }
    int read(UserSetRecord** out) {
        require(*out == nullptr);
        const size_t count = status > 0 ? static_cast<size_t>(status) : 0;
        *out = count > 0 ? static_cast<UserSetRecord*>(std::calloc(count, sizeof(**out))) : nullptr;
        for (size_t i = 0; i < count; ++i) {
            values >> (*out)[i].path >> (*out)[i].values[0] >> (*out)[i].values[1] >> (*out)[i].values[2];
        }
        return status;
    }
    std::string text() {
        return status == 0 && values ? values.str().substr(static_cast<size_t>(values.tellg())) : "";
    }
    char* newText() {
        const std::string answer = text();
        return answer.empty() ? nullptr : strdup(answer.c_str());
    }

    int status = 0;
    std::istringstream values;
};

std::string printed() {
    return std::to_string(lseek(STDOUT_FILENO, 0, SEEK_CUR)) + " bytes printed";
}

}  // namespace

// clang-format off
#define FAKE_FIELD(Field, Out)                                                                                \
    int getFile##Field(const char* path, Out* out) { return Call("getFile" #Field, path).read(out); }         \
    int delFile##Field(const char* path, int pattern) { return Call("delFile" #Field, path, pattern).status; } \
    int clearFile##Field() { return Call("clearFile" #Field).status; }                                        \
    int queryUserSetFile##Field(const char* path, UserSetRecord** out, int pattern) {                         \
        return Call("queryUserSetFile" #Field, path, pattern).read(out);                                      \
    }                                                                                                         \
    int showUserSetFile##Field(UserSetRecord** out) { return Call("showUserSetFile" #Field).read(out); }
FAKE_FIELD(Oid, ZORV_ID)
FAKE_FIELD(Sid, ZORV_ID)
FAKE_FIELD(Tid, uint32_t)
FAKE_FIELD(InheritFlag, uint32_t)
#define FAKE_LOOKUP(operation) \
    int operation(const char* name, uint64_t* out) { return Call(#operation, name).read(out); }
FAKE_LOOKUP(getPkgId)
FAKE_LOOKUP(queryUserSetPkgId)
FAKE_LOOKUP(getKernelModuleOid)
FAKE_LOOKUP(getDeviceOid)

int setFileOid(const char* path, int pattern, ZORV_ID id) { return Call("setFileOid", path, pattern, id).status; }
int setFileSid(const char* path, int pattern, ZORV_ID id) { return Call("setFileSid", path, pattern, id).status; }
int setFileTid(const char* path, uint32_t tid, int pattern) { return Call("setFileTid", path, tid, pattern).status; }
int setFileInheritFlag(const char* path, uint32_t flag, int pattern) { return Call("setFileInheritFlag", path, flag, pattern).status; }
int setPkgId(const char* name, uint64_t id) { return Call("setPkgId", name, id).status; }
char* getPkgNameById(uint64_t id) { return Call("getPkgNameById", id).newText(); }
int delUserSetPkgId(const char* name) { return Call("delUserSetPkgId", name).status; }
int clearUserSetPkgId() { return Call("clearUserSetPkgId").status; }
int showUserSetPkgId(UserSetRecord** out) { return Call("showUserSetPkgId").read(out); }
int getLabelSetStatus() { return Call("getLabelSetStatus").status; }
std::string restoreSingleFileLabel(const std::string& path) { return Call("restoreSingleFileLabel", path).text(); }
std::string restoreSingleFileInitLabel(const std::string& path) { return Call("restoreSingleFileInitLabel", path).text(); }
int addTagFullSystem(const char* root, const std::vector<std::string>& skip) { return Call("addTagFullSystem", root, skip.size(), printed()).status; }
// clang-format on

int policies_parse(const std::map<std::string, std::vector<std::string>>& policies,
                   std::map<std::string, std::map<std::string, std::vector<ZORV_ID>>>& result) {
    require(result.empty());
    std::string all;
    for (const auto& [kind, items] : policies) {
        all += kind + ':';
        for (const std::string& item : items) {
            all += item + ' ';
        }
    }
    Call call("policies_parse", all, printed());
    for (std::string kind, item; call.values >> kind >> item;) {
        call.read(&result[kind][item].emplace_back());
    }
    return call.status;
}

// To the tool, time goes on by 1.25 seconds from call to call.
__attribute__((visibility("default"))) int gettimeofday(timeval* now, void*) noexcept {
    static int64_t quarters = 3;
    quarters += 5;
    *now = {quarters / 4, quarters % 4 * 250000};
    return 0;
}

void* createSubscriber() {
    Call("createSubscriber");
    return &subscriberHandle;
}
int subscribeLabelChangeMsg(void* subscriber, const std::string& topic) {
    require(subscriber == &subscriberHandle);
    return Call("subscribeLabelChangeMsg", topic).status;
}
int recvLabelChangeMsg(void* subscriber, char** message) {
    require(subscriber == &subscriberHandle && *message == nullptr);
    Call call("recvLabelChangeMsg", printed());
    *message = call.newText();
    return call.status;
}
