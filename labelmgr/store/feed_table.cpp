#include "labelmgr/store/feed_table.h"

void FeedTable::trim() {
    database.execute(
        "DELETE FROM change_feed WHERE sequence <= (SELECT max(sequence) FROM change_feed) - 100000");
}

// Many rows at once, since each statement writes down the newest number.
void FeedTable::add(const std::vector<std::string>& messages) {
    constexpr ptrdiff_t kMany = 50;
    static const std::string kAddOne = "INSERT INTO change_feed(message) VALUES(?)";
    static const std::string kAddMany = [] {
        std::string sql = kAddOne;
        for (ptrdiff_t i = 1; i < kMany; ++i) {
            sql.append(",(?)");
        }
        return sql;
    }();
    for (auto next = messages.begin(); next != messages.end();) {
        const bool areMany = messages.end() - next >= kMany;
        Statement statement = database.prepare(areMany ? kAddMany.c_str() : kAddOne.c_str());
        for (const auto end = next + (areMany ? kMany : 1); next != end; ++next) {
            statement.bind(*next);
        }
        statement.run();
    }
}

void FeedTable::withdraw(int64_t sequence, size_t count) {
    database.prepare("DELETE FROM change_feed WHERE sequence > ?").bind(sequence).run();
    Statement statement = database.prepare("INSERT INTO change_feed(sequence, message) VALUES(?, X'')");
    for (size_t i = 0; i < count; ++i) {
        statement.bind(++sequence).run();
    }
}

void FeedTable::empty(int64_t sequence, size_t count) {
    database.prepare("UPDATE change_feed SET message = X'' WHERE sequence > ? AND sequence <= ?")
        .bind(sequence)
        .bind(sequence + static_cast<int64_t>(count))
        .run();
}

int64_t FeedTable::last() {
    return database.number("SELECT max(sequence) FROM change_feed");
}

std::vector<FeedMessage> FeedTable::after(int64_t sequence, size_t most) {
    Statement statement = database.prepare(
        "SELECT sequence, message FROM change_feed WHERE sequence > ? ORDER BY sequence LIMIT ?");
    statement.bind(sequence).bind(static_cast<int64_t>(most));
    std::vector<FeedMessage> messages;
    while (statement.step()) {
        messages.push_back({statement.integer(0), statement.bytes(1)});
    }
    return messages;
}
