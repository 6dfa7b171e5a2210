#include <algorithm>
#include <unistd.h>

#include "cli/label_manager.h"
#include "labelmgr/change/session.h"
#include "labelmgr/change/user_values.h"
#include "labelmgr/files/canonical_path.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/port/port_support.h"
#include "labelmgr/port/process_context.h"
#include "labelmgr/port/target.h"

// The port's operations on single fields of files' labels.

namespace {

constexpr uint32_t kMaximumInheritFlag = 7;

int setFileField(const char* operation, Field field, const char* path, int patternMatch,
                 const FieldValue& value) {
    return statusOf(operation, [&] {
        setUserValue(processContext(), targetOfFile(field, path, patternMatch), value);
        return 0;
    });
}

int deleteFileField(const char* operation, Field field, const char* path, int patternMatch) {
    return statusOf(operation, [&] {
        deleteUserValue(processContext(), targetOfRecord(field, path, patternMatch));
        return 0;
    });
}

int clearFileField(const char* operation, Field field) {
    return statusOf(operation, [&] {
        clearUserValues(processContext(), field);
        return 0;
    });
}

// A caller who may not see the store may still read labels.
std::optional<Store> openToReadIfPermitted(const Context& context) {
    if (geteuid() == 0) {
        return openToRead(context);
    }
    try {
        return openToRead(context);
    } catch (const OperationError& failure) {
        ZORV_LOG(debug, "%s", failure.what());
        return std::nullopt;
    }
}

// The label of a file, or with a change of it under way the one from before it, which the
// list shows, too.
LabelBytes settledLabel(const Context& context, const std::string& path) {
    std::optional<Store> store = openToReadIfPermitted(context);
    const std::optional<PendingFile> pending = store ? store->pending().file(path) : std::nullopt;
    LabelBytes label = PinnedFile(context, path).label();
    return pending && label == pending->wanted ? pending->former : label;
}

int getFileField(const char* operation, Field field, const char* path, FieldValue& value) {
    return statusOf(operation, [&] {
        const std::string canonical = canonicalPath(path);
        const LabelBytes bytes = settledLabel(processContext(), canonical);
        if (!bytes) {
            throw OperationError(canonical, "no label");
        }
        value = fieldOf(decodeLabel(canonical, *bytes), field);
        return 0;
    });
}

int getFileId(const char* operation, Field field, const char* path, ZORV_ID* id) {
    FieldValue value;
    const int status = getFileField(operation, field, path, value);
    if (status == 0) {
        const ValueNumbers numbers = numbersOf(value);
        *id = {numbers[0], numbers[1], numbers[2]};
    }
    return status;
}

int getFileNumber(const char* operation, Field field, const char* path, uint32_t* number) {
    FieldValue value;
    const int status = getFileField(operation, field, path, value);
    if (status == 0) {
        *number = std::get<uint32_t>(value);
    }
    return status;
}

void fillUserValue(const UserRecord& source, UserSetRecord& record) {
    const ValueNumbers numbers = numbersOf(source.value.value);
    fillText(record, source.target.text);
    std::copy(numbers.begin(), numbers.end(), record.values);
}

int showFileField(const char* operation, Field field, UserSetRecord** records) {
    return statusOf(operation, [&] {
        std::optional<Store> store = openToRead(processContext());
        const auto list = [&] { return store->userValues().all(field); };
        return store ? answerRecords(nameOf(field), list, records, fillUserValue) : 0;
    });
}

int queryFileField(const char* operation, Field field, const char* path, UserSetRecord** records,
                   int patternMatch) {
    return statusOf(operation, [&] {
        const Target target = targetOfRecord(field, path, patternMatch);
        std::optional<Store> store = openToRead(processContext());
        const auto list = [&] { return findUserValues(*store, target); };
        return store ? answerRecords(target.text, list, records, fillUserValue) : 0;
    });
}

FieldValue valueOf(const ZORV_ID& id) {
    return fieldValueOf(Field::kOid, {id.package, id.file, id.path});
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
    return setFileField(__func__, Field::kOid, path, patternMatch, valueOf(oid));
}

int setFileSid(const char* path, int patternMatch, ZORV_ID sid) {
    return setFileField(__func__, Field::kSid, path, patternMatch, valueOf(sid));
}

int setFileTid(const char* path, uint32_t tid, int patternMatch) {
    return setFileField(__func__, Field::kTid, path, patternMatch, tid);
}

int setFileInheritFlag(const char* path, uint32_t flag, int patternMatch) {
    if (flag > kMaximumInheritFlag) {
        return statusOf(__func__,
                        [path]() -> int { throw OperationError(path, "an inherit flag is 0 to 7"); });
    }
    return setFileField(__func__, Field::kInheritFlag, path, patternMatch, flag);
}

int getFileOid(const char* path, ZORV_ID* oid) {
    return getFileId(__func__, Field::kOid, path, oid);
}

int getFileSid(const char* path, ZORV_ID* sid) {
    return getFileId(__func__, Field::kSid, path, sid);
}

int getFileTid(const char* path, uint32_t* tid) {
    return getFileNumber(__func__, Field::kTid, path, tid);
}

int getFileInheritFlag(const char* path, uint32_t* flag) {
    return getFileNumber(__func__, Field::kInheritFlag, path, flag);
}
