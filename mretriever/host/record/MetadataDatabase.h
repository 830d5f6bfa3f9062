#pragma once

#include <sqlite3.h>
#include <sys/time.h>

#include <cstdint>
#include <memory>
#include <string>

namespace host {

// Metadata of one folder's cameras: tables frames (device, time, objects, data)
// and records (device, time, name, record). Several processes may share it.
// One thread at a time. Failures throw std::runtime_error.
class MetadataDatabase {
 public:
  explicit MetadataDatabase(const std::string& folder);

  void addFrame(const std::string& device, const timeval& tv, const std::string& objects,
                const uint8_t* data, std::size_t size);
  void addRecord(const std::string& device, const timeval& tv, const std::string& name,
                 const std::string& record);

 private:
  struct Close {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Close>;
  Statement prepare(const char* sql);
  void run(sqlite3_stmt* statement);
  [[noreturn]] void fail() const;

  std::string name_;
  std::unique_ptr<sqlite3, Close> database_;
  Statement addFrame_;
  Statement addRecord_;
};

}  // namespace host
