#include "MetadataDatabase.h"

#include <stdexcept>

namespace host {

namespace {

// Another process of this folder may be writing.
constexpr int kBusyMillis = 2000;

constexpr const char* kSchema =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=NORMAL;"
    "CREATE TABLE IF NOT EXISTS frames(id INTEGER PRIMARY KEY, device TEXT NOT NULL,"
    " seconds INTEGER NOT NULL, microseconds INTEGER NOT NULL, objects TEXT, data BLOB);"
    "CREATE INDEX IF NOT EXISTS frames_time ON frames(device, seconds);"
    "CREATE TABLE IF NOT EXISTS records(id INTEGER PRIMARY KEY, device TEXT NOT NULL,"
    " seconds INTEGER NOT NULL, microseconds INTEGER NOT NULL, name TEXT NOT NULL,"
    " record TEXT NOT NULL);"
    "CREATE INDEX IF NOT EXISTS records_time ON records(device, seconds);";

void bindText(sqlite3_stmt* statement, int index, const std::string& text) {
  sqlite3_bind_text64(statement, index, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

void bindHead(sqlite3_stmt* statement, const std::string& device, const timeval& tv) {
  bindText(statement, 1, device);
  sqlite3_bind_int64(statement, 2, tv.tv_sec);
  sqlite3_bind_int64(statement, 3, tv.tv_usec);
}

}  // namespace

MetadataDatabase::MetadataDatabase(const std::string& folder) : name_(folder + "/metadata.sqlite") {
  sqlite3* opened = nullptr;
  const int result = sqlite3_open(name_.c_str(), &opened);
  database_.reset(opened);
  if (result != SQLITE_OK) fail();
  sqlite3_busy_timeout(opened, kBusyMillis);
  if (sqlite3_exec(opened, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
  addFrame_ = prepare(
      "INSERT INTO frames(device, seconds, microseconds, objects, data) VALUES(?, ?, ?, ?, ?)");
  addRecord_ = prepare(
      "INSERT INTO records(device, seconds, microseconds, name, record) VALUES(?, ?, ?, ?, ?)");
}

MetadataDatabase::Statement MetadataDatabase::prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(database_.get(), sql, -1, &statement, nullptr) != SQLITE_OK) fail();
  return Statement(statement);
}

void MetadataDatabase::fail() const {
  throw std::runtime_error(name_ + ": " + sqlite3_errmsg(database_.get()));
}

void MetadataDatabase::run(sqlite3_stmt* statement) {
  const int result = sqlite3_step(statement);
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  if (result != SQLITE_DONE) fail();
}

void MetadataDatabase::addFrame(const std::string& device, const timeval& tv,
                                const std::string& objects, const uint8_t* data, std::size_t size) {
  bindHead(addFrame_.get(), device, tv);
  if (!objects.empty()) bindText(addFrame_.get(), 4, objects);
  if (size > 0) sqlite3_bind_blob64(addFrame_.get(), 5, data, size, SQLITE_STATIC);
  run(addFrame_.get());
}

void MetadataDatabase::addRecord(const std::string& device, const timeval& tv,
                                 const std::string& name, const std::string& record) {
  bindHead(addRecord_.get(), device, tv);
  bindText(addRecord_.get(), 4, name);
  bindText(addRecord_.get(), 5, record);
  run(addRecord_.get());
}

}  // namespace host
