#pragma once

#include <string>

// What a target does with one input; each file of this directory defines it for one parser.
void fuzzOne(const std::string& input);

// Stops at an input that breaks a promise.
inline void require(bool kept) {
    if (!kept) {
        __builtin_trap();
    }
}
