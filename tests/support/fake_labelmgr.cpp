// A label manager that does nothing but write down its calls and answer what a script says.
//
// ZORV_FAKE_CALLS names the file that gets one line a call: the operation and all arguments, texts quoted and
// escaped, unsigned numbers in hexadecimal, values that an out parameter held before. Where it matters what
// was printed before the call, the line ends with the size of standard output at that time.
//
// ZORV_FAKE_ANSWERS holds lines "OPERATION=STATUS VALUE..., STATUS VALUE...": one answer a call, the last one
// stands for all further calls. Values are the out parameters in order (hexadecimal), the parts of each
// record (target and three numbers), the words of a text, or "KIND ITEM" and an id's three numbers. Without
// an answer an operation succeeds with zeros and null texts, but a receive fails. What is answered in
// allocated memory and not released is a leak that the address sanitizer reports.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <unistd.h>

#include "cli/label_manager.h"

namespace {

struct Answer {
    int status = 0;
    std::vector<std::string> values;

    uint64_t number(size_t i) const { return i < values.size() ? std::stoull(values[i], nullptr, 16) : 0; }
    ZORV_ID id(size_t i) const { return {number(i), number(i + 1), number(i + 2)}; }

    std::string text() const {
        std::string all;
        for (const std::string& word : values) {
            all += (all.empty() ? "" : " ") + word;
        }
        return all;
    }

    char* newText() const { return values.empty() ? nullptr : strdup(text().c_str()); }
};

const char* environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::vector<Answer> readAnswers(const std::string& operation) {
    std::vector<Answer> answers;
    std::istringstream script(environment("ZORV_FAKE_ANSWERS"));
    for (std::string line; std::getline(script, line);) {
        if (line.compare(0, operation.size() + 1, operation + '=') != 0) {
            continue;
        }
        std::istringstream alternatives(line.substr(operation.size() + 1));
        for (std::string part; std::getline(alternatives, part, ',');) {
            std::istringstream words(part);
            Answer answer;
            words >> answer.status;
            for (std::string word; words >> word;) {
                answer.values.push_back(word);
            }
            answers.push_back(answer);
        }
    }
    return answers;
}

Answer answerTo(const std::string& operation, int statusWithoutScript) {
    static std::map<std::string, size_t> callsSoFar;
    const std::vector<Answer> answers = readAnswers(operation);
    return answers.empty() ? Answer{statusWithoutScript, {}}
                           : answers[std::min(callsSoFar[operation]++, answers.size() - 1)];
}

std::string show(const char* text) {
    std::ostringstream out;
    out << '"';
    for (const char* c = text; *c != '\0'; ++c) {
        const unsigned int byte = static_cast<unsigned char>(*c);
        if (byte < 0x20 || byte > 0x7e) {
            out << "\\x" << std::hex << std::setw(2) << std::setfill('0') << byte;
        } else {
            out << (*c == '"' || *c == '\\' ? "\\" : "") << *c;
        }
    }
    return out.str() + '"';
}
std::string show(const std::string& text) {
    return show(text.c_str());
}
std::string show(int number) {
    return std::to_string(number);
}
std::string show(uint64_t number) {
    std::ostringstream out;
    out << std::hex << "0x" << number;
    return out.str();
}
std::string show(const ZORV_ID& id) {
    return show(id.package) + '-' + show(id.file) + '-' + show(id.path);
}
std::string show(const void* pointer) {
    return pointer == nullptr ? "null" : "pointer";
}
std::string show(const std::vector<std::string>& list) {
    std::string all;
    for (const std::string& item : list) {
        all += (all.empty() ? "" : " ") + show(item);
    }
    return '[' + all + ']';
}
std::string show(const std::map<std::string, std::vector<std::string>>& map) {
    std::string all;
    for (const auto& [key, list] : map) {
        all += (all.empty() ? "" : " ") + key + show(list);
    }
    return '{' + all + '}';
}

void record(const std::string& line) {
    std::ofstream(environment("ZORV_FAKE_CALLS"), std::ios::app) << line << '\n';
}

template <typename... Arguments>
Answer call(const char* operation, const Arguments&... arguments) {
    std::string all;
    ((all += (all.empty() ? "" : ", ") + show(arguments)), ...);
    record(std::string(operation) + '(' + all + ')');
    return answerTo(operation, 0);
}

std::string afterOutput() {
    return " after " + std::to_string(lseek(STDOUT_FILENO, 0, SEEK_CUR)) + " bytes";
}

template <typename Value>
int answerNumber(const Answer& answer, Value* out) {
    *out = static_cast<Value>(answer.number(0));
    return answer.status;
}

int answerId(const Answer& answer, ZORV_ID* out) {
    *out = answer.id(0);
    return answer.status;
}

int answerRecords(const Answer& answer, UserSetRecord** out) {
    if (answer.status > 0) {
        const size_t count = static_cast<size_t>(answer.status);
        *out = static_cast<UserSetRecord*>(std::calloc(count, sizeof(UserSetRecord)));
        for (size_t i = 0; i < count && 4 * i < answer.values.size(); ++i) {
            answer.values[4 * i].copy((*out)[i].path, sizeof((*out)[i].path) - 1);
            for (size_t part = 0; part < 3; ++part) {
                (*out)[i].values[part] = answer.number(4 * i + 1 + part);
            }
        }
    }
    return answer.status;
}

}  // namespace

// clang-format off
#define FAKE_FIELD(Field)                                                                                         \
    int delFile##Field(const char* path, int pattern) { return call("delFile" #Field, path, pattern).status; }    \
    int clearFile##Field() { return call("clearFile" #Field).status; }                                            \
    int queryUserSetFile##Field(const char* path, UserSetRecord** out, int pattern) {                             \
        return answerRecords(call("queryUserSetFile" #Field, path, static_cast<void*>(*out), pattern), out);      \
    }                                                                                                             \
    int showUserSetFile##Field(UserSetRecord** out) {                                                             \
        return answerRecords(call("showUserSetFile" #Field, static_cast<void*>(*out)), out);                      \
    }
#define FAKE_ID_FIELD(Field)                                                                                      \
    FAKE_FIELD(Field)                                                                                             \
    int setFile##Field(const char* path, int pattern, ZORV_ID id) {                                               \
        return call("setFile" #Field, path, pattern, id).status;                                                  \
    }                                                                                                             \
    int getFile##Field(const char* path, ZORV_ID* out) { return answerId(call("getFile" #Field, path, *out), out); }
#define FAKE_NUMBER_FIELD(Field)                                                                                  \
    FAKE_FIELD(Field)                                                                                             \
    int setFile##Field(const char* path, uint32_t value, int pattern) {                                           \
        return call("setFile" #Field, path, uint64_t{value}, pattern).status;                                     \
    }                                                                                                             \
    int getFile##Field(const char* path, uint32_t* out) { return answerNumber(call("getFile" #Field, path), out); }
// clang-format on

FAKE_ID_FIELD(Oid)
FAKE_ID_FIELD(Sid)
FAKE_NUMBER_FIELD(Tid)
FAKE_NUMBER_FIELD(InheritFlag)

int setPkgId(const char* name, uint64_t id) {
    return call("setPkgId", name, id).status;
}
int getPkgId(const char* name, uint64_t* id) {
    return answerNumber(call("getPkgId", name), id);
}
char* getPkgNameById(uint64_t id) {
    return call("getPkgNameById", id).newText();
}
int delUserSetPkgId(const char* name) {
    return call("delUserSetPkgId", name).status;
}
int clearUserSetPkgId() {
    return call("clearUserSetPkgId").status;
}
int queryUserSetPkgId(const char* name, uint64_t* id) {
    return answerNumber(call("queryUserSetPkgId", name), id);
}
int showUserSetPkgId(UserSetRecord** records) {
    return answerRecords(call("showUserSetPkgId", static_cast<void*>(*records)), records);
}
int getLabelSetStatus() {
    return call("getLabelSetStatus").status;
}
int getKernelModuleOid(const char* name, uint64_t* oid) {
    return answerNumber(call("getKernelModuleOid", name), oid);
}
int getDeviceOid(const char* name, uint64_t* oid) {
    return answerNumber(call("getDeviceOid", name), oid);
}
std::string restoreSingleFileLabel(const std::string& path) {
    return call("restoreSingleFileLabel", path).text();
}
std::string restoreSingleFileInitLabel(const std::string& path) {
    return call("restoreSingleFileInitLabel", path).text();
}
int addTagFullSystem(const char* root, const std::vector<std::string>& skip) {
    record("addTagFullSystem(" + show(root) + ", " + show(skip) + ')' + afterOutput());
    return answerTo("addTagFullSystem", 0).status;
}
int policies_parse(const std::map<std::string, std::vector<std::string>>& policies,
                   std::map<std::string, std::map<std::string, std::vector<ZORV_ID>>>& result) {
    record("policies_parse(" + show(policies) + ", " + std::to_string(result.size()) + ')' + afterOutput());
    const Answer answer = answerTo("policies_parse", 0);
    for (size_t i = 0; i + 4 < answer.values.size(); i += 5) {
        result[answer.values[i]][answer.values[i + 1]].push_back(answer.id(i + 2));
    }
    return answer.status;
}
void* createSubscriber() {
    static int subscriber;
    call("createSubscriber");
    return &subscriber;
}
int subscribeLabelChangeMsg(void* subscriber, const std::string& topic) {
    return call("subscribeLabelChangeMsg", static_cast<const void*>(subscriber), topic).status;
}
int recvLabelChangeMsg(void* subscriber, char** message) {
    record("recvLabelChangeMsg(" + show(static_cast<const void*>(subscriber)) + ", " +
           show(static_cast<const void*>(*message)) + ')' + afterOutput());
    const Answer answer = answerTo("recvLabelChangeMsg", -1);
    *message = answer.newText();
    return answer.status;
}
