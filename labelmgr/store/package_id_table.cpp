#include "labelmgr/store/package_id_table.h"

#include "labelmgr/store/columns.h"

std::optional<uint64_t> PackageIdTable::find(std::string_view name) {
    Statement statement = database.prepare("SELECT id FROM package_id WHERE name = ?");
    return statement.bind(name).step() ? std::optional(fromStored(statement.integer(0))) : std::nullopt;
}

std::vector<PackageId> PackageIdTable::all() {
    Statement statement = database.prepare("SELECT name, id FROM package_id ORDER BY name");
    std::vector<PackageId> ids;
    while (statement.step()) {
        ids.push_back({statement.bytes(0), fromStored(statement.integer(1))});
    }
    return ids;
}

void PackageIdTable::set(std::string_view name, uint64_t id) {
    database.prepare("INSERT OR REPLACE INTO package_id(name, id) VALUES(?, ?)")
        .bind(name)
        .bind(toStored(id))
        .run();
}

void PackageIdTable::remove(std::string_view name) {
    database.prepare("DELETE FROM package_id WHERE name = ?").bind(name).run();
}

void PackageIdTable::putBack(const std::vector<FormerPackageId>& packages) {
    for (const FormerPackageId& former : packages) {
        if (former.id) {
            set(former.name, *former.id);
        } else {
            remove(former.name);
        }
    }
}
