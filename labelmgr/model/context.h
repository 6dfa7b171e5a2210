#pragma once

#include <memory>
#include <string>

class PackageDatabase;

// Where an operation finds what it works with. Made by the port, from the environment,
// and handed down: nothing below the port looks at the environment.
struct Context {
    std::string stateDirectory;  // of the store
    std::string policyFile;
    std::string attribute;  // the extended attribute that holds a file's label
    std::shared_ptr<const PackageDatabase> packages;
};
