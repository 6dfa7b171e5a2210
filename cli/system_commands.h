#pragma once

#include <map>
#include <string>
#include <vector>

#include "cli/command_options.h"

// The one-shot commands beside the label fields. Every function that answers an int
// answers the exit status.

int restoreLabel(const CommandOptions& options);
int initLabel(const CommandOptions& options);

// Labels everything below root and prints how long it took. Has no failure of its own.
void labelWholeSystem(const char* root);

int printModuleOid(const char* name);
int printDeviceOid(const char* name);
int printPackageName(const char* hexadecimalId);

// The last 64 bits of the SM3 digest of the text itself, not of a file of that name.
void printSm3Value(const char* text);

// Kinds of policies and their items, for the self-test.
extern const std::map<std::string, std::vector<std::string>> testPolicies;

// Parses testPolicies, prints what came of it and the label-set status: in hexadecimal
// when a policy line was printed before it, in decimal otherwise.
int runPolicySelfTest();
