#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "base/api.h"

// Small text functions over bytes; no function knows of encodings or locales. Inputs are
// never changed, results are new strings. Nothing throws on bad input; what is logged
// carries the function's own name. No state is kept: all functions may run in any number
// of threads.

// Without spaces, TABs, line feeds and carriage returns at both ends. Vertical tab and
// form feed stay: they are no blanks here.
ZORV_API std::string trim(const std::string& text);

// Replaces the content of `out` by the fields between delimiters, in order. Empty fields
// are dropped on purpose: "a,,b" has two, "," has none. An empty text is logged at debug
// level ("input string is empty"). Neither text nor delimiter may live inside `out`.
ZORV_API void splitString(const std::string& text, const char& delimiter, std::vector<std::string>& out);

// Every occurrence of oldStr, from left to right without overlap, replaced by newStr;
// what newStr brings in is not searched. An empty text is an error line, "text is empty",
// and answers the empty string; an empty oldStr is "oldStr is empty" and answers the
// text.
ZORV_API std::string replaceString(const std::string& text, const std::string& oldStr,
                                   const std::string& newStr);

// The same only where the text begins with oldStr: once, or not at all. The same two
// errors.
ZORV_API std::string replaceBeginString(const std::string& text, const std::string& oldStr,
                                        const std::string& newStr);

// Without the occurrences of sub, from left to right in one pass: what comes together by
// a removal is not searched again ("aabb" without "ab" is "ab"). An empty sub changes
// nothing.
ZORV_API std::string removeSubString(const std::string& text, const std::string& sub);

// Deliberately not what its name says: removes sub only from the very beginning of the
// text; a later occurrence, though it be the first, stays.
ZORV_API std::string removeFirstSubString(const std::string& text, const std::string& sub);

// Replaces "<NAME>" by the value of NAME wherever the map has it; a name is what stands
// between a "<" and the first ">" behind it, so that it may hold "<". Where it is unknown
// or empty, the search goes on behind that "<". A value is not searched again. After 100
// replacements the rest stays as it is, as a guard against runaway input. The result is
// logged at debug level, "replaced: RESULT", unless the text has no "<" with a ">" behind
// it. The map must not change during the call.
ZORV_API std::string replaceVariable(const std::unordered_map<std::string, std::string>& variables,
                                     std::string text);

// Whether there is a backslash.
ZORV_API bool containsEscapeChars(const std::string& text);

// Without any backslash: one does not protect the next, two in a row both go.
ZORV_API std::string removeEscapeChars(const std::string& text);
