#pragma once

#include <string>

#include "base/api.h"

// Whole files as strings. Nothing throws for a file that cannot be used; what is logged
// carries the function's name. No state is kept.

// The whole content, byte for byte. A file that cannot be opened is one error line
// ("Unable to open file, PATH") and answers the empty string, as an empty file does. A
// read error ends the content without a message.
ZORV_API std::string readFile(const std::string& path);

// Makes content the whole content of the file, which is cut or created (mode 0666 less
// the umask; no directories). In place: a reader may see part of it. False, after one
// error line ("Unable to open file for writing, PATH"), only when it cannot be opened:
// deliberately, a failed write, as on a full disk, is not reported.
ZORV_API bool writeFile(const std::string& path, const std::string& content);
