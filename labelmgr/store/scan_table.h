#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "labelmgr/model/user_value.h"
#include "labelmgr/store/database.h"

// The numbers are what the port answers.
enum class ScanStatus { kNever = 0, kRunning = 1, kComplete = 2, kInterrupted = 3 };

struct ScanState {
    ScanStatus status = ScanStatus::kNever;
    int64_t process = 0;
};

// The last labelling of a whole tree, and what was changed while it ran.
class ScanTable {
 public:
    explicit ScanTable(Database& in) : database(in) {}

    ScanState state();
    // Forgets the changes during the scan.
    void set(const ScanState& state);

    // Keeps a target as changed during the scan, which is running.
    void noteChange(const Target& target);
    std::vector<Target> changes();

 private:
    Database& database;
};
