#pragma once

#include <map>
#include <string>
#include <unordered_map>

#include "base/api.h"

// Two readers of INI-like files whose rules differ on purpose; both are relied upon as
// they are.
//
//                         parseConfig                  readConfig
//   comments begin with   "#"                          "#" or ";"
//   blanks of a line      cut at both ends             spaces and TABs in front cut
//   section header        the whole line is "[NAME]"   "[NAME]", anything may follow
//   line "[NAME"          a pair, if it has a "="      ignored
//   before any section    pairs are ignored            stored under their bare key
//   blanks of a key       cut at both ends             in front cut: "a = 1" has "a "
//   blanks of a value     cut at both ends             front cut, spaces and CRs removed
//   repeated key          the first counts             the last counts
//
// Common to both: a line ends at a line feed; a pair is split at its first "="; a section
// name is not trimmed and may come again; after "[]" it is as before any section; any
// other line is skipped without a message. A read error ends the reading like the end of
// the file. No state is kept, nothing throws: a file that cannot be opened is one error
// line under the function's name and an empty table.

// Section to key to value. A section without keys is there, empty; so is the section ""
// of a header "[]". "Failed to open config: PATH". (Blanks are those of trim().)
ZORV_API std::unordered_map<std::string, std::unordered_map<std::string, std::string>> parseConfig(
    const std::string& path);

// "SECTION.KEY", or the bare key, to value, in byte order. "can not open file PATH".
ZORV_API std::map<std::string, std::string> readConfig(const std::string& path);
