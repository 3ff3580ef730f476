// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "DetectionEngine/platform/Files.h"
#include "tools/classification-server/Log.h"

struct sqlite3;

namespace zeph::server {

/// One line of the status page: a URL that was reported, and how often.
struct ReportSummary {
  std::string time;  ///< of the latest, UTC
  std::string url;
  std::int64_t code = 0;
  std::string context;
  std::int64_t count = 0;
};

/// Reports in an SQLite database: url, code, context, time of the first and the latest, count. A thread of its own
/// writes what has gathered in one transaction and only then says that it is kept, so that every report that was
/// answered is there after a crash, and many at once cost little more than one. A database that somebody has removed or
/// put another in the place of isn't written on in secret: the one that is to be found there is, or a new one.
class ReportStore {
 public:
  /// Opens or makes the database, which grows to limitMb at most: new reports are refused then, and those that are
  /// there counted on. Throws std::runtime_error with the reason.
  explicit ReportStore(const std::string& path, unsigned limitMb = 1024);
  ~ReportStore();
  ReportStore(const ReportStore&) = delete;
  ReportStore& operator=(const ReportStore&) = delete;

  /// Takes a report; kept is called with the outcome on the store's thread, soon. When too many are waiting it is
  /// called with false at once. Any thread.
  void Add(const std::string& url, std::int32_t code, const std::string& context, std::function<void(bool)> kept);

  /// Writes what is waiting and takes no more. Once, before whatever the callbacks use goes.
  void Finish();

  /// The latest reports, newest first. Any thread; empty when the database can't be read.
  [[nodiscard]] std::vector<ReportSummary> Latest(std::size_t count) const;
  /// Reports taken in all, over the life of the database.
  [[nodiscard]] std::int64_t Total() const { return total_; }

 private:
  struct Pending {
    std::string url;
    std::int32_t code;
    std::string context;
    std::function<void(bool)> kept;
  };
  static constexpr std::size_t kWaitingLimit = 10000;

  void Run();
  /// Empty, or why the database can't be used.
  std::string Open();
  void Close();
  [[nodiscard]] bool IsInPlace() const noexcept;
  /// Writes all into the database that is in place, or none.
  bool Keep(const std::vector<Pending>& reports);
  bool WriteAll(const std::vector<Pending>& reports);

  std::string path_;
  unsigned limitMb_;
  sqlite3* database_ = nullptr;
  FileStamp opened_;  ///< the file that the database is
  std::string failure_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::vector<Pending> waiting_;
  bool stop_ = false;
  std::atomic<std::int64_t> total_{0};
  SparingLog log_;
  std::thread writer_;
};

}  // namespace zeph::server
