#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "base/api.h"

// Shell-style patterns over paths: recognising, checking, matching, expanding and
// translating them. What counts as a wildcard differs between the functions, on purpose:
// each says its own set. Only searchFilesByPattern logs; nothing throws on bad input. No
// state is kept: all functions may run in any number of threads, as far as the C
// library's glob() and fnmatch() may.

// Whether one of * ? [ ] stands in the text without a backslash in front. A backslash
// that is itself escaped protects nothing. (So isFilePathSafe takes a "]" for a wildcard
// too.)
ZORV_API bool containsWildcard(const std::string& text);

// Whether a pattern may be handed to the file system's expansion: 1 to 1024 bytes, at
// most 50 of * ? [ in it (not counting "]"), at most 20 slashes, and nowhere "..", not
// even inside a name, nor "/./", nor "//".
ZORV_API bool isPatternSafe(const std::string& pattern);

// Whether the whole text matches: * is any run of bytes, ? is exactly one byte, slashes
// included in both; every other byte means itself, brackets and backslash too. An empty
// pattern matches only the empty text. A byte equal to the pattern's is taken literally
// before the pattern's byte is looked at as a wildcard, and this is settled: where a star
// meets a star in the text, it is used up by it, so "*a" does not match "*ba". At most
// pattern length times text length steps.
ZORV_API bool wildcardMatch(const std::string& pattern, const std::string& text);

// wildcardMatch under its second name.
ZORV_API bool matchesPattern(const std::string& pattern, const std::string& text);

// Whether fnmatch() accepts the path's text under the pattern: with bracket expressions;
// a backslash is an ordinary character, and * and ? match slashes and leading dots.
ZORV_API bool matchesPattern1(const std::filesystem::path& path, const std::string& pattern);

// The existing paths that the pattern expands to, in the order in which the directories
// yield them, unsorted. The expansion is glob()'s: * ? and brackets within one component,
// a backslash escapes, a leading tilde is a home directory, hidden names want their dot
// written. Every failure is one error line and the empty list: "Unsafe pattern detected:
// PATTERN" when isPatternSafe says no, "No matches found." (an error on purpose, though
// an empty result is ordinary), "Read error. REASON", "Ran out of memory.", "Not
// implemented." or "unknown error".
ZORV_API std::vector<std::string> searchFilesByPattern(const std::string& pattern);

// The directory part in front of the first * or ? (brackets are no wildcards here):
// "/var/log" of "/var/log/*.log". "/" where only the root, or nothing at all, stands in
// front: deliberately so for a relative pattern too. Without a wildcard it is a plain
// dirname after one trailing slash is dropped: "/a" of "/a/b/", "/" of "/a", and empty
// for "/", for a bare name and for the empty pattern. The file system is not looked at.
ZORV_API std::string getParentDirWithoutWildcard(const std::string& pattern);

// The pattern as a regular expression without anchors: * becomes ".*", ? becomes ".",
// "{a,b}" becomes "(a|b)", "[!" becomes "[^", and . $ ^ + | ( ) are escaped. The settled
// limits: a backslash is dropped and the byte behind it is copied as it is, so that an
// escaped wildcard is *not* escaped in the result; the first "}" ends all braces; inside
// brackets the same translation goes on.
ZORV_API std::string wildcardsToRegex(const std::string& pattern);
