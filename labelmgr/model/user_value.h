#pragma once

#include <cstdint>
#include <string>

#include "labelmgr/model/field.h"

// What a value belongs to: a canonical path, or the text of a pattern.
struct Target {
    Field field = Field::kOid;
    bool isPattern = false;
    std::string text;
};

// A value that a user set. Of several the one with the greatest order was set last.
struct UserValue {
    FieldValue value;
    int64_t order = 0;
};

// A target with its value.
struct UserRecord {
    Target target;
    UserValue value;
};
