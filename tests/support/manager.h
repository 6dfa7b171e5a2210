#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

// What tests of the label manager ask of it.

std::string stateDirectory();
// "TARGET=VALUE", blanks between, of all TIDs that users set; "failed".
std::string listedTids();

// Nothing set and no policy, before and after.
struct NothingSet {
    NothingSet();
    ~NothingSet();
    NothingSet(const NothingSet&) = delete;
    NothingSet& operator=(const NothingSet&) = delete;
};

// A file's TID; 0xdead when it cannot be told.
uint32_t tidOf(const std::string& path);
// The next message to a listener, or "failed".
std::string nextMessage(void* subscriber);

// What a listener gets of everything so far, between line ends; a change of its own tells
// where that ends.
std::string messagesSoFar(void* subscriber);
// The text with each "SM3(TEXT)" as the last digits of that text's digest.
std::string withDigests(std::string text);

// Throws unless the shell's script succeeds.
void shell(const std::string& script);

// A new ext4 file system of 4 MiB, mounted as long as the object lives.
struct SmallDisk {
    SmallDisk(const std::string& where, const std::string& mkfsOptions);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    const std::string mountPoint;
};

// No package database on the PATH, and no other program.
struct WithoutPackages {
    WithoutPackages() { setenv("PATH", "/nonexistent", 1); }
    ~WithoutPackages() { setenv("PATH", former.c_str(), 1); }
    const std::string former = std::getenv("PATH");
};
