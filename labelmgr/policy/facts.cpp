#include "labelmgr/policy/facts.h"

namespace {

constexpr size_t kFilesWorthAllOwners = 4;

}  // namespace

const Policy& Facts::policy() {
    if (!readPolicy) {
        readPolicy = loadPolicy(context.policyFile);
    }
    return *readPolicy;
}

std::string Facts::ownerOf(const std::string& path) {
    if (!owners && expectsManyFiles) {
        ownersBelow("/");
    }
    return owners ? ownerIn(*owners, path) : context.packages->owner(path);
}

const OwnersByPath& Facts::ownersBelow(const std::string& root) {
    owners = context.packages->owners(root);
    return *owners;
}

void Facts::expectFiles(size_t count) {
    expectsManyFiles = count >= kFilesWorthAllOwners;
}
