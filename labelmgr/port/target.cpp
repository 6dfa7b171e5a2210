#include "labelmgr/port/target.h"

#include "common/wildcard.h"
#include "labelmgr/files/canonical_path.h"
#include "labelmgr/model/operation_error.h"

namespace {

Target targetOfPattern(Field field, const char* text) {
    if (*text != '/' || !isPatternSafe(text)) {
        throw OperationError(text, "not a safe absolute pattern");
    }
    const std::string canonical = canonicalPattern(text);
    if (!isPatternSafe(canonical)) {
        throw OperationError(canonical, "not a safe pattern");
    }
    return {field, true, canonical};
}

}  // namespace

Target targetOfFile(Field field, const char* path, int patternMatch) {
    return patternMatch != 0 ? targetOfPattern(field, path) : Target{field, false, canonicalPath(path)};
}

Target targetOfRecord(Field field, const char* path, int patternMatch) {
    return patternMatch != 0 ? targetOfPattern(field, path)
                             : Target{field, false, canonicalPathOfRecord(path)};
}
