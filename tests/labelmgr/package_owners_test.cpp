// The list of package owners that is kept in the state directory.
#include "labelmgr/policy/package_owners.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

#include <gtest/gtest.h>

#include "cli/label_manager.h"
#include "common/sm3_hash.h"
#include "labelmgr/policy/package_answers.h"
#include "tests/support/manager.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace {

struct FakeDatabase : PackageDatabase {
    bool isInstalled(const std::string& /*name*/) const override { return false; }
    std::vector<std::string> installed() const override { return {}; }
    std::string owner(const std::string& /*path*/) const override { return "asked"; }
    ListedOwners owners() const override {
        ++listed;
        current = afterwards;
        const std::vector<std::string> lines = {"\t" + package, " /d/f",
                                                " /" + std::string(9000, 'a') + "/g"};
        return {std::make_shared<const OwnerTable>(parseOwners(lines)), isOfState};
    }
    std::optional<DatabaseState> state() const override { return current; }
    void becomes(const std::optional<DatabaseState>& state) {
        current = state;
        afterwards = state;
    }

    std::string package = "old";
    mutable std::optional<DatabaseState> current = DatabaseState{"state", true};
    std::optional<DatabaseState> afterwards = current;
    bool isOfState = true;
    mutable int listed = 0;
};

class KeptOwners : public testing::Test {
 protected:
    KeptOwners() {
        tree.directory("state");
        chmod(tree.path("state").c_str(), 0700);
    }

    // Who owns /d/f, and how many lists were asked for.
    std::string answer() {
        database->listed = 0;
        const std::string owner = PackageOwners(context).of("/d/f");
        return owner + " " + std::to_string(database->listed);
    }

    const TemporaryTree tree;
    const std::string kept = tree.path("state/package-owners");
    const std::shared_ptr<FakeDatabase> database = std::make_shared<FakeDatabase>();
    const Context context{tree.path("state"), "", "", database};
};

}  // namespace

TEST_F(KeptOwners, AreNotBelievedWhenSpoiled) {
    constexpr const char* kTable = R"(
# done to the file             | first answer | second answer
:                              | old 0   | old 0
truncate -s -1 $kept           | new 1   | new 0
truncate -s 10 $kept           | new 1   | new 0
: >$kept                       | new 1   | new 0
echo >>$kept                   | new 1   | new 0
chmod 620 $kept                | new 1   | new 0
chown 1 $kept                  | new 1   | new 0
ln $kept $kept.2               | new 1   | new 0
mv $kept $kept.2; ln -s $kept.2 $kept | new 1 | new 0
rm $kept; mkfifo $kept         | new 1   | new 0
rm $kept; mkdir $kept          | new 1   | new 1
ln -s /dev/null $kept.new; rm $kept | asked 0 | asked 0
: >$kept.new; truncate -s 9M $kept.new; rm $kept | new 1 | new 0
chmod 770 ${kept%/*}           | asked 0 | asked 0
)";
    for (const Lines& row : readTable(kTable, 3)) {
        std::filesystem::remove_all(tree.path("state"));
        tree.directory("state");
        shell("chmod 700 " + tree.path("state"));
        database->package = "old";
        ASSERT_EQ(answer(), "old 1");
        database->package = "new";
        shell("kept=" + kept + "; " + row[0]);
        EXPECT_EQ(answer(), row[1]) << row[0];
        EXPECT_EQ(answer(), row[2]) << row[0];
    }
}

TEST_F(KeptOwners, AreNotBelievedWithAnyOneByteChanged) {
    ASSERT_EQ(answer(), "old 1");
    const std::string good = fileContent(kept);
    database->package = "new";
    for (size_t i = 0; i<good.size(); i += i> 100 && i + 100 < good.size() ? size_t{7} : 1) {
        std::string bad = good;
        bad[i] = static_cast<char>(bad[i] ^ 0x21);
        putFile(kept, bad);
        PackageOwners owners(context);
        // Each block on its own.
        EXPECT_TRUE(owners.of("/d/f") == "new" || owners.of("/" + std::string(9000, 'a') + "/g") == "new")
            << i;
    }
}

TEST_F(KeptOwners, LeaveNothingOnADiskThatDoesNotTakeThem) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit small{4096, limit.rlim_max};
    const auto former = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_EQ(answer(), "old 1");
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, former);
    EXPECT_TRUE(std::filesystem::is_empty(tree.path("state")));
}

TEST_F(KeptOwners, AreOfOneStateOfTheDatabase) {
    const DatabaseState other{"other", true};
    database->afterwards = other;  // changed while it was asked
    EXPECT_EQ(answer(), "old 1");
    EXPECT_EQ(answer(), "old 1");
    EXPECT_EQ(answer(), "old 0");
    database->package = "new";
    database->becomes(DatabaseState{"state", false});  // may still change
    EXPECT_EQ(answer(), "asked 0");
    database->becomes(std::nullopt);
    EXPECT_EQ(answer(), "asked 0");
    database->becomes(DatabaseState{"state", true});
    database->isOfState = false;
    EXPECT_EQ(answer(), "new 1");
    EXPECT_EQ(answer(), "new 1");
}

// With the machine's own programs, on a package database of the test's own.
TEST_F(KeptOwners, ChangeWithAnInstalledPackage) {
    const std::string file = tree.file("files/own");
    const auto packageOf = [&] {
        ZORV_ID oid{};
        EXPECT_NE(restoreSingleFileLabel(file), "");
        EXPECT_EQ(getFileOid(file.c_str(), &oid), 0);
        return oid.package;
    };
    const std::string list = stateDirectory() + "/package-owners";
    tree.file("admin/status");
    tree.directory("admin/info");
    tree.directory("admin/updates");
    tree.file("package/DEBIAN/control",
              "Package: z-own\nVersion: 1\nArchitecture: all\nMaintainer: a <a@b>\nDescription: z\n");
    shell("exec >/dev/null; cd " + tree.path() +
          "; mkdir -p package$PWD/files; echo >package$PWD/files/own;" +
          "chmod -R go-w package; dpkg-deb -b package own.deb; mount --bind admin /var/lib/dpkg");
    EXPECT_EQ(packageOf(), 0U);
    EXPECT_FALSE(std::filesystem::exists(list));  // so soon after a change
    std::this_thread::sleep_for(std::chrono::seconds(4));
    EXPECT_EQ(packageOf(), 0U);
    EXPECT_TRUE(std::filesystem::exists(list));
    shell("dpkg -i " + tree.path("own.deb") + " >/dev/null");
    EXPECT_EQ(packageOf(), getSM3HashLast64Bits("z-own"));
    setenv("DPKG_ADMINDIR", "/nonexistent", 1);
    EXPECT_EQ(packageOf(), 0U);
    unsetenv("DPKG_ADMINDIR");
    shell("umount /var/lib/dpkg");
}
