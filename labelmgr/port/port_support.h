#pragma once

#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "cli/label_manager.h"
#include "labelmgr/model/operation_error.h"
#include "log/logger.h"

// What the functions of the port share: how they fail, and how they hand out memory that
// the caller frees.

constexpr int kFailed = -1;

// Runs one operation of the port: its failure is logged once, under the operation's name
// and line, and becomes a status.
template <typename Work>
int statusOf(const char* operation, Work work, int line = __builtin_LINE()) {
    try {
        return work();
    } catch (const std::exception& failure) {
        Logger::getInstance().error(operation, line, "%s", failure.what());
        return kFailed;
    }
}

inline char* newText(const std::string& text) {
    char* copy = strdup(text.c_str());
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    return copy;
}

inline void fillText(UserSetRecord& record, const std::string& text) {
    text.copy(record.path, sizeof(record.path) - 1);
}

// Answers the number of what `list` gives, and an array of it when there is any. A lack
// of memory names what was listed.
template <typename List, typename Fill>
int answerRecords(const std::string& whatIsListed, List list, UserSetRecord** records, Fill fill) try {
    const auto sources = list();
    if (sources.empty()) {
        return 0;
    }
    auto* answer = static_cast<UserSetRecord*>(std::calloc(sources.size(), sizeof(UserSetRecord)));
    if (answer == nullptr) {
        throw std::bad_alloc();
    }
    for (size_t i = 0; i < sources.size(); ++i) {
        fill(sources[i], answer[i]);
    }
    *records = answer;
    return static_cast<int>(sources.size());
} catch (const std::bad_alloc&) {
    throw OperationError(whatIsListed, "not enough memory to list what was set");
}
