#pragma once

#include <cstdint>

// The words of a state file: a JSON document of one object, see
// zorv-label-state.schema.json.
constexpr const char* kFormat = "zorv-label-state";
constexpr uint64_t kVersion = 1;

constexpr const char* kFormatKey = "format";
constexpr const char* kVersionKey = "version";
constexpr const char* kPathsKey = "paths";
constexpr const char* kPatternsKey = "patterns";
constexpr const char* kPackagesKey = "packages";

constexpr const char* kPathKey = "path";
constexpr const char* kPatternKey = "pattern";
constexpr const char* kPackageKey = "package";
constexpr const char* kIdKey = "id";
constexpr const char* kLatin1 = "_latin1";  // behind the key of a name that is no UTF-8
