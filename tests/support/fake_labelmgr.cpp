// A label manager that only writes down its calls and answers what a script says.
//
// ZORV_FAKE_CALLS names the file that gets one line a call: the operation and its arguments, texts quoted,
// numbers hexadecimal, out parameters as they came in where the tool presets them, and the bytes on standard
// output before the call where their order matters.
//
// ZORV_FAKE_ANSWERS holds lines "OPERATION=STATUS VALUE..., STATUS VALUE...": one answer a call, the last one
// stands for all further calls. Values are the out parameters (hexadecimal), the parts of each record (target
// and three numbers), a text, or "KIND ITEM" and an id's three numbers. Without an answer an operation
// succeeds with zeros and without texts, but a receive fails. What is answered in allocated memory and not
// released is a leak that the address sanitizer reports.

#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <unistd.h>

#include "cli/label_manager.h"

namespace {

using Script = std::map<std::string, std::deque<std::string>>;
using Policies = std::map<std::string, std::vector<std::string>>;

int subscriberHandle;
constexpr struct BytesPrinted {
} kBytesPrinted;

const char* environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

Script readScript() {
    Script script;
    std::istringstream text(environment("ZORV_FAKE_ANSWERS"));
    for (std::string operation, line; std::getline(text, operation, '=') && std::getline(text, line);) {
        std::istringstream answers(line);
        for (std::string answer; std::getline(answers, answer, ',');) {
            script[operation].push_back(answer);
        }
    }
    script.try_emplace("recvLabelChangeMsg", 1, "-1");
    return script;
}

template <typename Number>
void show(std::ostream& out, Number number) {
    out << number;
}
void show(std::ostream& out, const char* text) {
    out << std::quoted(text);
}
void show(std::ostream& out, const std::string& text) {
    out << std::quoted(text);
}
void show(std::ostream& out, void* pointer) {
    out << (pointer == nullptr ? "null" : pointer == &subscriberHandle ? "subscriber" : "unknown");
}
void show(std::ostream& out, const ZORV_ID& id) {
    out << id.package << '-' << id.file << '-' << id.path;
}
void show(std::ostream& out, const BytesPrinted&) {
    out << std::dec << lseek(STDOUT_FILENO, 0, SEEK_CUR) << " bytes printed";
}
void show(std::ostream& out, const std::vector<std::string>& list) {
    out << list.size() << " skipped";
}
void show(std::ostream& out, const Policies& policies) {
    for (const auto& [kind, items] : policies) {
        out << kind << ' ';
        for (const std::string& item : items) {
            out << item << ' ';
        }
    }
}

// One call: writes its line and reads its answer.
struct Call {
    template <typename... Arguments>
    explicit Call(const char* operation, const Arguments&... arguments) {
        std::ofstream line(environment("ZORV_FAKE_CALLS"), std::ios::app);
        line << operation << std::hex;
        ((line << ' ', show(line, arguments)), ...);
        line << '\n';
        static Script script = readScript();
        std::deque<std::string>& answers = script[operation];
        values.str(answers.empty() ? "0" : answers.front());
        if (answers.size() > 1) {
            answers.pop_front();
        }
        values >> status >> std::hex >> std::ws;
    }

    int read(ZORV_ID* out) {
        *out = {};
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
        for (int i = 0; i < status; ++i) {
            *out =
                static_cast<UserSetRecord*>(std::realloc(*out, static_cast<size_t>(i + 1) * sizeof(**out)));
            UserSetRecord& record = (*out)[i];
            values >> std::setw(sizeof(record.path)) >> record.path;
            values >> record.values[0] >> record.values[1] >> record.values[2];
        }
        return status;
    }
    std::string text() {
        std::string rest;
        std::getline(values, rest, '\0');
        return rest;
    }
    char* newText() {
        const std::string rest = text();
        return rest.empty() ? nullptr : strdup(rest.c_str());
    }

    int status = 0;
    std::istringstream values;
};

}  // namespace

// clang-format off
#define FAKE_FIELD(Field, Out)                                                                                \
    int getFile##Field(const char* path, Out* out) { return Call("getFile" #Field, path, *out).read(out); }   \
    int delFile##Field(const char* path, int pattern) { return Call("delFile" #Field, path, pattern).status; } \
    int clearFile##Field() { return Call("clearFile" #Field).status; }                                        \
    int queryUserSetFile##Field(const char* path, UserSetRecord** out, int pattern) {                         \
        return Call("queryUserSetFile" #Field, path, static_cast<void*>(*out), pattern).read(out);            \
    }                                                                                                         \
    int showUserSetFile##Field(UserSetRecord** out) {                                                         \
        return Call("showUserSetFile" #Field, static_cast<void*>(*out)).read(out);                            \
    }
FAKE_FIELD(Oid, ZORV_ID)
FAKE_FIELD(Sid, ZORV_ID)
FAKE_FIELD(Tid, uint32_t)
FAKE_FIELD(InheritFlag, uint32_t)

int setFileOid(const char* path, int pattern, ZORV_ID id) { return Call("setFileOid", path, pattern, id).status; }
int setFileSid(const char* path, int pattern, ZORV_ID id) { return Call("setFileSid", path, pattern, id).status; }
int setFileTid(const char* path, uint32_t tid, int pattern) { return Call("setFileTid", path, tid, pattern).status; }
int setFileInheritFlag(const char* path, uint32_t flag, int pattern) {
    return Call("setFileInheritFlag", path, flag, pattern).status;
}

int setPkgId(const char* name, uint64_t id) { return Call("setPkgId", name, id).status; }
int getPkgId(const char* name, uint64_t* out) { return Call("getPkgId", name).read(out); }
char* getPkgNameById(uint64_t id) { return Call("getPkgNameById", id).newText(); }
int delUserSetPkgId(const char* name) { return Call("delUserSetPkgId", name).status; }
int clearUserSetPkgId() { return Call("clearUserSetPkgId").status; }
int queryUserSetPkgId(const char* name, uint64_t* out) { return Call("queryUserSetPkgId", name).read(out); }
int showUserSetPkgId(UserSetRecord** out) { return Call("showUserSetPkgId", static_cast<void*>(*out)).read(out); }

int getLabelSetStatus() { return Call("getLabelSetStatus").status; }
int getKernelModuleOid(const char* name, uint64_t* out) { return Call("getKernelModuleOid", name).read(out); }
int getDeviceOid(const char* name, uint64_t* out) { return Call("getDeviceOid", name).read(out); }
std::string restoreSingleFileLabel(const std::string& path) { return Call("restoreSingleFileLabel", path).text(); }
std::string restoreSingleFileInitLabel(const std::string& path) {
    return Call("restoreSingleFileInitLabel", path).text();
}
int addTagFullSystem(const char* root, const std::vector<std::string>& skip) {
    return Call("addTagFullSystem", root, skip, kBytesPrinted).status;
}
// clang-format on
int policies_parse(const Policies& policies,
                   std::map<std::string, std::map<std::string, std::vector<ZORV_ID>>>& result) {
    Call call("policies_parse", policies, result.size(), kBytesPrinted);
    ZORV_ID id;
    for (std::string kind, item; call.values >> kind >> item;) {
        call.read(&id);
        result[kind][item].push_back(id);
    }
    return call.status;
}

void* createSubscriber() {
    Call("createSubscriber");
    return &subscriberHandle;
}
int subscribeLabelChangeMsg(void* subscriber, const std::string& topic) {
    return Call("subscribeLabelChangeMsg", subscriber, topic).status;
}
int recvLabelChangeMsg(void* subscriber, char** message) {
    Call call("recvLabelChangeMsg", subscriber, static_cast<void*>(*message), kBytesPrinted);
    *message = call.newText();
    return call.status;
}
