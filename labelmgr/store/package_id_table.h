#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "labelmgr/store/database.h"

struct PackageId {
    std::string name;
    uint64_t id = 0;
};

// As it was before a change; without an id there was none.
struct FormerPackageId {
    std::string name;
    std::optional<uint64_t> id;
};

// The package ids that users set.
class PackageIdTable {
 public:
    explicit PackageIdTable(Database& in) : database(in) {}

    std::optional<uint64_t> find(std::string_view name);
    // Ordered by name.
    std::vector<PackageId> all();
    void set(std::string_view name, uint64_t id);
    void remove(std::string_view name);
    void putBack(const std::vector<FormerPackageId>& packages);

 private:
    Database& database;
};
