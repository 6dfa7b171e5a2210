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

PackageOwners& Facts::owners() {
    packageOwners.readAll();
    return packageOwners;
}

void Facts::expectFiles(size_t count) {
    packageOwners.expect(count >= kFilesWorthAllOwners);
}
