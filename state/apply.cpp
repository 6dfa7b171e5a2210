#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "base/handles.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/port/process_context.h"
#include "state/change_of_state.h"
#include "state/commands.h"
#include "state/name_resolution.h"
#include "state/state_reader.h"

namespace {

Records readFile(const std::string& path, const std::string& name) {
    const UniqueFd file(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                    : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        throw systemError(name);
    }
    const auto read = [&](char* buffer, size_t size) {
        const ssize_t got = ::read(file.get(), buffer, size);
        if (got < 0) {
            throw systemError(name);
        }
        return static_cast<size_t>(got);
    };
    return readState(read, name);
}

}  // namespace

Status runApply(const Options& options) {
    const std::string& path = options.operands.front();
    const std::string name = path == "-" ? "standard input" : path;
    Records records = readFile(path, name);
    return bringAbout(
        processContext(),
        [&](const Records& present) {
            resolveNames(records, present, name, options.allowsMissing);
            return std::move(records);
        },
        options);
}
