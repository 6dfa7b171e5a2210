#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "base/api.h"

// The label manager library libzorvlabelmgr: every operation that the tool asks of it.
// The library is replaceable; the bundled one lives in labelmgr/.
//
// Paths and names are NUL-terminated and passed as the user typed them. An int result is
// a status (0 success, anything else failure) unless it says otherwise. Memory that an
// operation answers was allocated with malloc and belongs to the caller. The library logs
// the reason of a failure.

struct ZORV_ID {
    uint64_t package;
    uint64_t file;
    uint64_t path;
};

// One value that a user set. OIDs and SIDs use all three numbers (package, file, path),
// everything else the first.
struct UserSetRecord {
    char path[4096];
    uint64_t values[3];
};
static_assert(sizeof(UserSetRecord) == 4120,
              "the record's layout is shared with other builds of the library");

extern "C" {

// Set one field of a file, or with patternMatch 1 of every file that the pattern matches.
// The inherit flag is 0 to 7.
ZORV_API int setFileOid(const char* path, int patternMatch, ZORV_ID oid);
ZORV_API int setFileSid(const char* path, int patternMatch, ZORV_ID sid);
ZORV_API int setFileTid(const char* path, uint32_t tid, int patternMatch);
ZORV_API int setFileInheritFlag(const char* path, uint32_t flag, int patternMatch);

// Read one field of a file's label. Negative: failure, also for a file without a label.
ZORV_API int getFileOid(const char* path, ZORV_ID* oid);
ZORV_API int getFileSid(const char* path, ZORV_ID* sid);
ZORV_API int getFileTid(const char* path, uint32_t* tid);
ZORV_API int getFileInheritFlag(const char* path, uint32_t* flag);

// Take back what a user set for one path or pattern; nothing to take back is a failure.
ZORV_API int delFileOid(const char* path, int patternMatch);
ZORV_API int delFileSid(const char* path, int patternMatch);
ZORV_API int delFileTid(const char* path, int patternMatch);
ZORV_API int delFileInheritFlag(const char* path, int patternMatch);

// Take back everything that users set for one field; nothing to take back is a success.
ZORV_API int clearFileOid();
ZORV_API int clearFileSid();
ZORV_API int clearFileTid();
ZORV_API int clearFileInheritFlag();

// Package ids. getPkgId: negative is failure. getPkgNameById: null is failure.
ZORV_API int setPkgId(const char* name, uint64_t id);
ZORV_API int getPkgId(const char* name, uint64_t* id);
ZORV_API char* getPkgNameById(uint64_t id);
ZORV_API int delUserSetPkgId(const char* name);
ZORV_API int clearUserSetPkgId();

// What users set. The result is a count: above 0 the number of records in the newly
// allocated array, 0 nothing set, below 0 failure; the pointer is null before the call
// and stays so unless the count is above 0.
ZORV_API int queryUserSetFileOid(const char* pathOrPattern, UserSetRecord** records, int patternMatch);
ZORV_API int queryUserSetFileSid(const char* pathOrPattern, UserSetRecord** records, int patternMatch);
ZORV_API int queryUserSetFileTid(const char* pathOrPattern, UserSetRecord** records, int patternMatch);
ZORV_API int queryUserSetFileInheritFlag(const char* pathOrPattern, UserSetRecord** records,
                                         int patternMatch);
ZORV_API int showUserSetFileOid(UserSetRecord** records);
ZORV_API int showUserSetFileSid(UserSetRecord** records);
ZORV_API int showUserSetFileTid(UserSetRecord** records);
ZORV_API int showUserSetFileInheritFlag(UserSetRecord** records);
ZORV_API int queryUserSetPkgId(const char* name, uint64_t* id);
ZORV_API int showUserSetPkgId(UserSetRecord** records);

// The state of the last labelling of the whole file system, a number.
ZORV_API int getLabelSetStatus();

// Negative: failure.
ZORV_API int getKernelModuleOid(const char* name, uint64_t* oid);
ZORV_API int getDeviceOid(const char* name, uint64_t* oid);

// Label changes. A receive blocks until a message arrives; the handle lives until the
// process ends.
ZORV_API void* createSubscriber();
ZORV_API int recvLabelChangeMsg(void* subscriber, char** message);

}  // extern "C"

ZORV_API int subscribeLabelChangeMsg(void* subscriber, const std::string& topic);

// Derive a file's label anew, with or without what users set, and write it. The label's
// text; empty is failure.
ZORV_API std::string restoreSingleFileLabel(const std::string& path);
ZORV_API std::string restoreSingleFileInitLabel(const std::string& path);

// Label everything below root, leaving the subtrees of the list alone.
ZORV_API int addTagFullSystem(const char* root, const std::vector<std::string>& skip);

// The identifiers that policy items stand for: policy kind to item texts in, policy kind
// to item text to ids out.
ZORV_API int policies_parse(const std::map<std::string, std::vector<std::string>>& policies,
                            std::map<std::string, std::map<std::string, std::vector<ZORV_ID>>>& result);
