#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "labelmgr/model/message_text.h"

// Why an operation of the label manager failed: the path or name concerned and the
// reason, as one line for the log. Thrown inside labelmgr/ only; the port logs it once
// and answers a failed status.
class OperationError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
    OperationError(const std::string& subject, const std::string& reason)
        : std::runtime_error(asOneLine(subject) + ": " + reason) {}
};

// The system's reason for the call that just failed.
inline OperationError systemError(const std::string& subject, int reason = errno) {
    return {subject, std::strerror(reason)};
}

// The file concerned does not exist, or is not the one that it was.
class FileGone : public OperationError {
 public:
    using OperationError::OperationError;
};

// It is the file's own doing: its attribute space is full, it is immutable, its label
// cannot be decoded, it lies where nothing is asked. Of many files such a one does not
// hold up the others.
class FileRefuses : public OperationError {
 public:
    using OperationError::OperationError;
};

// Whether the reason of a failed call on a file is that it is not there.
inline bool isGone(int reason) {
    return reason == ENOENT || reason == ENOTDIR;
}

// The reason of a failed call on a file, as one of these. EREMOTE: it was not made, since
// the file lies where nothing may be asked.
[[noreturn]] void throwFileError(const std::string& path, int reason);
// The reason of a label that could not be written.
[[noreturn]] void throwLabelError(const std::string& path, int reason);
