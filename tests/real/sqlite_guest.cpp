// SQLite on the game's library: what a database promises, over files of the real file system.
#include "darwin.h"
#include "sqlite3.h"

namespace {

/// A connection that prints what it could not do.
class Database {
 public:
  explicit Database(const char* path) {
    CHECK(sqlite3_open_v2(path, &handle_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) == SQLITE_OK);
    run("PRAGMA synchronous=FULL; PRAGMA cache_size=10");  // so that pages are written before the commit
  }
  ~Database() { CHECK(sqlite3_close(handle_) == SQLITE_OK); }

  void run(const char* sql) {
    const int result = sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) fprintf(stderr, "%s: %s\n", sql, sqlite3_errmsg(handle_));
    CHECK(result == SQLITE_OK);
  }
  /// Whether the query's first value is this text.
  bool says(const char* sql, const char* expected) {
    sqlite3_stmt* query = nullptr;
    sqlite3_prepare_v2(handle_, sql, -1, &query, nullptr);
    const char* const text = sqlite3_step(query) == SQLITE_ROW
                                 ? reinterpret_cast<const char*>(sqlite3_column_text(query, 0))
                                 : sqlite3_errmsg(handle_);
    const bool same = strcmp(text, expected) == 0;
    if (!same) fprintf(stderr, "%s: %s, not %s\n", sql, text, expected);
    sqlite3_finalize(query);
    return same;
  }

 private:
  sqlite3* handle_ = nullptr;
};

constexpr const char* fill =
    "CREATE TABLE t(id INTEGER PRIMARY KEY, word TEXT, size INT);"
    "CREATE INDEX by_word ON t(word);"
    "WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < 5000)"
    "INSERT INTO t SELECT i, printf('word %08d', i * 7919 % 5003), i * i FROM n;";
constexpr const char* sum = "SELECT count(*) || ' ' || sum(size) || ' ' || min(word) || ' ' || max(word) FROM t";
constexpr const char* filled = "5000 41679167500 word 00000001 word 00005002";
constexpr const char* check_all = "PRAGMA integrity_check";

/// As a crash of the machine would leave it: what is on the disk now, under another name.
void copy_file(const char* from, const char* to) {
  FILE* const source = fopen(from, "r");
  FILE* const copy = fopen(to, "w");
  char buffer[65536];
  for (size_t size; (size = fread(buffer, 1, sizeof buffer, source)) > 0;) CHECK(fwrite(buffer, 1, size, copy) == size);
  CHECK(fclose(source) == 0 && fclose(copy) == 0);
}

}  // namespace

GUEST_TEST(a_journal_that_a_crash_left_is_rolled_back) {
  Database database("crash.db");
  database.run(fill);
  database.run("BEGIN; UPDATE t SET word = 'lost ' || id, size = -1");
  copy_file("crash.db", "crashed.db");
  copy_file("crash.db-journal", "crashed.db-journal");
  Database crashed("crashed.db");
  CHECK(crashed.says(sum, filled) && crashed.says(check_all, "ok"));
  CHECK(access("crashed.db-journal", F_OK) != 0);
  database.run("ROLLBACK");
  CHECK(database.says(sum, filled) && database.says(check_all, "ok"));
}

GUEST_TEST(a_log_that_a_crash_left_is_read_up_to_its_last_commit) {
  Database database("log.db");
  CHECK(database.says("PRAGMA journal_mode=wal", "wal"));
  database.run("PRAGMA wal_autocheckpoint=0");
  database.run(fill);
  Database reader("log.db");
  reader.run("BEGIN");
  CHECK(reader.says(sum, filled));
  database.run("DELETE FROM t WHERE id > 10");
  CHECK(reader.says(sum, filled));  // still what it saw first
  reader.run("COMMIT");
  CHECK(reader.says("SELECT count(*) FROM t", "10"));
  database.run("BEGIN; UPDATE t SET size = 0; INSERT INTO t(word) SELECT randomblob(2000) FROM t, t AS u, t AS v");
  copy_file("log.db", "log2.db");
  copy_file("log.db-wal", "log2.db-wal");
  database.run("ROLLBACK; PRAGMA wal_checkpoint(TRUNCATE)");
  Database crashed("log2.db");
  CHECK(crashed.says("SELECT count(*) || ' ' || sum(size) FROM t", "10 385") && crashed.says(check_all, "ok"));
}
