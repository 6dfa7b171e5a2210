#pragma once

#include <string>
#include <string_view>

#include "state/json_names.h"
#include "state/options.h"

// What a run prints on standard output: lines of text, or one JSON object a line. Used by
// one thread at a time.

// Before anything is printed. From here on what others print on standard output, as the
// logger does of itself, goes to standard error, so that the result can be parsed.
void prepareOutput();

void printBytes(std::string_view bytes);
// One of the two, or neither with --quiet. Names in the text are to be one line each.
void printRecord(const Options& options, const std::string& text, const Json& record);

// A line on standard error about what is no failure of its own.
void printRemark(const Options& options, const std::string& text);

// The exit status of a run that ends with a status: 1, after a line on standard error,
// when output was lost.
Status statusAfterOutput(Status status);
