#include "cli/label_manager.h"

#include <deque>
#include <mutex>
#include <unistd.h>

#include "common/wildcard.h"
#include "labelmgr/change_feed.h"
#include "labelmgr/derived_label.h"
#include "labelmgr/field.h"
#include "labelmgr/file_labels.h"
#include "labelmgr/full_scan.h"
#include "labelmgr/lookups.h"
#include "labelmgr/operation_error.h"
#include "labelmgr/pinned_file.h"
#include "labelmgr/policy_items.h"
#include "labelmgr/port_support.h"
#include "labelmgr/user_values.h"
#include "log/logger.h"

namespace {

constexpr uint32_t kMaximumInheritFlag = 7;

// The pattern with the links in its directories before the first wildcard resolved, since it is matched with
// canonical paths. A directory that is not there stays as it is.
std::string resolvedPattern(const std::string& pattern) {
    const std::string directory = getParentDirWithoutWildcard(pattern);
    const std::string resolved = canonicalPathOfRecord(directory.c_str());
    const size_t rest = directory == "/" ? 0 : directory.size();
    return (resolved == "/" ? "" : resolved) + pattern.substr(rest);
}

// What an argument names: the file or the pattern, with links resolved.
Target targetOf(Field field, const char* text, int patternMatch, std::string (*resolve)(const char*)) {
    if (patternMatch == 0) {
        return {field, false, resolve(text)};
    }
    if (*text != '/' || !isPatternSafe(text)) {
        throw OperationError(text, "not a safe absolute pattern");
    }
    return {field, true, resolvedPattern(text)};
}

int setFileField(const char* operation, Field field, const char* path, int patternMatch,
                 const FieldValue& value) {
    return statusOf(operation, [&] {
        setUserValue(targetOf(field, path, patternMatch, canonicalPath), value);
        return 0;
    });
}

int deleteFileField(const char* operation, Field field, const char* path, int patternMatch) {
    return statusOf(operation, [&] {
        deleteUserValue(targetOf(field, path, patternMatch, canonicalPathOfRecord));
        return 0;
    });
}

int clearFileField(const char* operation, Field field) {
    return statusOf(operation, [&] {
        clearUserValues(field);
        return 0;
    });
}

// Before a label is read, a change of it that was left unfinished is finished. A caller who may not see the
// store could not do that, and may still read labels.
void finishChangesIfPermitted() {
    if (geteuid() == 0) {
        readUserValues();
        return;
    }
    try {
        readUserValues();
    } catch (const OperationError& failure) {
        ZORV_LOG(debug, "%s", failure.what());
    }
}

int getFileField(const char* operation, Field field, const char* path, FieldValue& value) {
    return statusOf(operation, [&] {
        const std::string canonical = canonicalPath(path);
        finishChangesIfPermitted();
        const LabelBytes bytes = PinnedFile(canonical).label();
        if (!bytes) {
            throw OperationError(canonical, "no label");
        }
        value = fieldOf(decodeLabel(canonical, *bytes), field);
        return 0;
    });
}

int getFileNumber(const char* operation, Field field, const char* path, uint32_t* number) {
    FieldValue value{};
    const int status = getFileField(operation, field, path, value);
    if (status == 0) {
        *number = static_cast<uint32_t>(value.package);
    }
    return status;
}

void fillUserValue(const std::pair<Target, UserValue>& source, UserSetRecord& record) {
    const FieldValue& value = source.second.value;
    fillText(record, source.first.text);
    record.values[0] = value.package;
    record.values[1] = value.file;
    record.values[2] = value.path;
}

int showFileField(const char* operation, Field field, UserSetRecord** records) {
    return statusOf(operation, [&] {
        std::optional<Store> store = readUserValues();
        return store ? answerRecords(store->userValues(field), records, fillUserValue) : 0;
    });
}

int queryFileField(const char* operation, Field field, const char* path, UserSetRecord** records,
                   int patternMatch) {
    return statusOf(operation, [&] {
        const Target target = targetOf(field, path, patternMatch, canonicalPathOfRecord);
        std::optional<Store> store = readUserValues();
        return store ? answerRecords(findUserValues(*store, target), records, fillUserValue) : 0;
    });
}

Subscriber& subscriberOf(void* handle) {
    if (handle == nullptr) {
        throw OperationError("no subscriber");
    }
    return *static_cast<Subscriber*>(handle);
}

std::string labelTextOf(const char* operation, const std::string& path, UserValues userValues) {
    std::string text;
    statusOf(operation, [&] {
        text = restoreLabel(canonicalPath(path.c_str()), userValues);
        return 0;
    });
    return text;
}

int lookUp(const char* operation, const char* name, uint64_t* oid, uint64_t (*oidOf)(const std::string&)) {
    return statusOf(operation, [&] {
        *oid = oidOf(name);
        return 0;
    });
}

}  // namespace

#define ZORV_FILE_FIELD(Name, field)                                                                   \
    int delFile##Name(const char* path, int patternMatch) {                                            \
        return deleteFileField(__func__, field, path, patternMatch);                                   \
    }                                                                                                  \
    int clearFile##Name() {                                                                            \
        return clearFileField(__func__, field);                                                        \
    }                                                                                                  \
    int showUserSetFile##Name(UserSetRecord** records) {                                               \
        return showFileField(__func__, field, records);                                                \
    }                                                                                                  \
    int queryUserSetFile##Name(const char* pathOrPattern, UserSetRecord** records, int patternMatch) { \
        return queryFileField(__func__, field, pathOrPattern, records, patternMatch);                  \
    }

ZORV_FILE_FIELD(Oid, Field::kOid)
ZORV_FILE_FIELD(Sid, Field::kSid)
ZORV_FILE_FIELD(Tid, Field::kTid)
ZORV_FILE_FIELD(InheritFlag, Field::kInheritFlag)

#undef ZORV_FILE_FIELD

int setFileOid(const char* path, int patternMatch, ZORV_ID oid) {
    return setFileField(__func__, Field::kOid, path, patternMatch, oid);
}

int setFileSid(const char* path, int patternMatch, ZORV_ID sid) {
    return setFileField(__func__, Field::kSid, path, patternMatch, sid);
}

int setFileTid(const char* path, uint32_t tid, int patternMatch) {
    return setFileField(__func__, Field::kTid, path, patternMatch, {tid, 0, 0});
}

int setFileInheritFlag(const char* path, uint32_t flag, int patternMatch) {
    if (flag > kMaximumInheritFlag) {
        return statusOf(__func__,
                        [path]() -> int { throw OperationError(path, "an inherit flag is 0 to 7"); });
    }
    return setFileField(__func__, Field::kInheritFlag, path, patternMatch, {flag, 0, 0});
}

int getFileOid(const char* path, ZORV_ID* oid) {
    return getFileField(__func__, Field::kOid, path, *oid);
}

int getFileSid(const char* path, ZORV_ID* sid) {
    return getFileField(__func__, Field::kSid, path, *sid);
}

int getFileTid(const char* path, uint32_t* tid) {
    return getFileNumber(__func__, Field::kTid, path, tid);
}

int getFileInheritFlag(const char* path, uint32_t* flag) {
    return getFileNumber(__func__, Field::kInheritFlag, path, flag);
}

int getLabelSetStatus() {
    return statusOf(__func__, wholeTreeStatus);
}

int getKernelModuleOid(const char* name, uint64_t* oid) {
    return lookUp(__func__, name, oid, kernelModuleOid);
}

int getDeviceOid(const char* name, uint64_t* oid) {
    return lookUp(__func__, name, oid, deviceOid);
}

// The handles live as long as the process, which may end while one of its threads waits on one.
void* createSubscriber() {
    Subscriber* subscriber = nullptr;
    statusOf(__func__, [&] {
        static std::mutex mutex;
        static auto* const all = new std::deque<Subscriber>;
        const std::lock_guard<std::mutex> lock(mutex);
        subscriber = &all->emplace_back();
        return 0;
    });
    return subscriber;
}

int subscribeLabelChangeMsg(void* subscriber, const std::string& topic) {
    return statusOf(__func__, [&] {
        subscriberOf(subscriber).subscribe(topic);
        return 0;
    });
}

int recvLabelChangeMsg(void* subscriber, char** message) {
    return statusOf(__func__, [&] {
        *message = newText(subscriberOf(subscriber).receive());
        return 0;
    });
}

std::string restoreSingleFileLabel(const std::string& path) {
    return labelTextOf(__func__, path, UserValues::kObserve);
}

std::string restoreSingleFileInitLabel(const std::string& path) {
    return labelTextOf(__func__, path, UserValues::kIgnore);
}

int addTagFullSystem(const char* root, const std::vector<std::string>& skip) {
    return statusOf(__func__, [&] {
        std::vector<std::string> skipped;
        skipped.reserve(skip.size());
        for (const std::string& path : skip) {
            skipped.push_back(canonicalPathOfRecord(path.c_str()));
        }
        return labelWholeTree(canonicalPath(root), skipped) == 0 ? 0 : kFailed;
    });
}

int policies_parse(const PolicyTexts& policies, PolicyIds& result) {
    return statusOf(__func__, [&] {
        result = parsePolicies(policies);
        return 0;
    });
}
