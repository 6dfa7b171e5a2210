#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "labelmgr/store/database.h"

struct FeedMessage {
    int64_t sequence = 0;
    std::string text;
};

// The messages about finished changes, in the order of their commits, numbered without
// gaps from 1. The newest 100,000 are kept, and those of the newest change however many
// they are.
class FeedTable {
 public:
    explicit FeedTable(Database& in) : database(in) {}

    // Makes room for the messages of a change, which is yet to add them.
    void trim();
    void add(const std::vector<std::string>& messages);
    // Takes back so many messages behind one, whether or not they are there. Somebody may
    // have read them: their numbers are not used again, and have empty messages.
    void withdraw(int64_t sequence, size_t count);
    // Makes so many messages behind one empty.
    void empty(int64_t sequence, size_t count);

    // The number of the newest message; 0 is "none yet".
    int64_t last();
    std::vector<FeedMessage> after(int64_t sequence, size_t most);

 private:
    Database& database;
};
