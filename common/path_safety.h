#pragma once

#include <string>

#include "base/api.h"
#include "common/string_utils.h"  // containsEscapeChars() belongs to both

// The gate for file paths that come from outside, and a few tests of the file system.
// Nothing throws or changes its argument. No state is kept. What was true of the file
// system may have changed when the path is used: who needs more opens the file and looks
// at that.

// Whether the path is acceptable as an absolute path. The rules run in this order and the
// first one broken is one error line and the answer false; each message begins with
// "FilePathCheck failed: " and is logged as isFilePathSafe unless said:
//
//    1  not empty                                "empty path"
//    2  at most 4095 bytes                      "path too long (length=LENGTH, max=4096)"
//    3  begins with "/"                          "not an absolute path - PATH"
//    4  no "//"                                  "contains consecutive slashes - PATH"
//    5  neither "/.." nor "../" anywhere, so that names such as "..b" or "b.." fail too
//                                                "path traversal attack detected - PATH"
//    6  the first component does not begin with a dot; "/tmp/.hidden" is fine
//                                                "invalid root path - PATH"
//       as containsDangerousChars:
//    7  no NUL                                   "contains null byte"
//    8  no control character but TAB             "contains control characters"
//    9  no DEL                                   "contains DEL character"
//   10  none of | & ; $ < > ` ! ( ) { } ' "      "contains shell metacharacters"
//   11  no backslash                             "contains backslash"
//       as isValidUTF8, positions in bytes from 0, of a sequence's first byte:
//   12  complete sequences                       "invalid UTF-8 sequence at position N"
//       not overlong (E0 and F0 lead bytes)      "overlong UTF-8 sequence"
//       no other byte from 0x80 on               "invalid UTF-8 byte 0xHH at position N"
//       Encoded surrogates and code points above U+10FFFF behind F4 pass, deliberately.
//   13  unless permitWildcard: no containsWildcard  "wildcard not allowed - PATH"
//   14  unless permitMissing: the path exists, links followed
//                                                "path does not exist - PATH"
//   15  unless permitSymlink: it is no link      "symbolic link not allowed - PATH"
//       A dangling link does not exist: rule 14 is what stops it.
//
// An accepted path with a space in it is logged as a warning, "FilePathCheck: path
// contains spaces - PATH"; every accepted path at debug level, "FilePathCheck passed:
// PATH".
ZORV_API bool isFilePathSafe(const std::string& path, bool permitSymlink, bool permitWildcard,
                             bool permitMissing);

// Whether the entry itself, links not followed, is a directory, or a symbolic link. False
// when it cannot be examined. Nothing is logged.
ZORV_API bool pathIsDir(const char* path);
ZORV_API bool pathIsLinkFile(const char* path);

// 0 when the path exists, links followed, and -1 otherwise: a status and deliberately no
// boolean.
ZORV_API int pathIsExists(const char* path);
