#pragma once

#include <functional>
#include <string_view>

#include "state/records.h"

// Writes the state file of records that are in the order of recordsOf, piece by piece.
// The same records are the same bytes.
void writeState(const Records& records, const std::function<void(std::string_view)>& write);
