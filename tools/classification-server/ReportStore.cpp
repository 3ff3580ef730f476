// SPDX-License-Identifier: Apache-2.0
#include "tools/classification-server/ReportStore.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include <sqlite3.h>

#include "DetectionEngine/platform/CodePage.h"

namespace zeph::server {

namespace {

constexpr int kBusyMs = 2000;

struct Finalize {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

Statement Prepare(sqlite3* database, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(database, sql, -1, &statement, nullptr);
  return Statement(statement);
}

bool Execute(sqlite3* database, const char* sql) {
  return sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::string Column(sqlite3_stmt* statement, int column) {
  const auto* const text = sqlite3_column_text(statement, column);
  return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

/// A connection for reading alone, so that a look at the reports never waits for the writer.
std::unique_ptr<sqlite3, CloseDatabase> OpenForReading(const std::string& path) {
  sqlite3* database = nullptr;
  sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
  if (database != nullptr) sqlite3_busy_timeout(database, kBusyMs);
  return std::unique_ptr<sqlite3, CloseDatabase>(database);
}

}  // namespace

ReportStore::ReportStore(const std::string& path, unsigned limitMb) : path_(path), limitMb_(limitMb) {
  if (const std::string why = Open(); !why.empty()) throw std::runtime_error(path + ": " + why);
  writer_ = std::thread([this] { Run(); });
}

ReportStore::~ReportStore() {
  Finish();
  Close();
}

std::string ReportStore::Open() {
  const int opened = sqlite3_open_v2(path_.c_str(), &database_,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
  if (database_ != nullptr) sqlite3_busy_timeout(database_, kBusyMs);
  // 4096 bytes a page, in a database that is made here.
  const std::string limit = "PRAGMA max_page_count=" + std::to_string(std::uint64_t{limitMb_} * 256);
  if (opened != SQLITE_OK || !Execute(database_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;") ||
      !Execute(database_,
               "CREATE TABLE IF NOT EXISTS reports (url TEXT NOT NULL, code INTEGER NOT NULL, context TEXT NOT NULL,"
               " first TEXT NOT NULL, latest TEXT NOT NULL, count INTEGER NOT NULL,"
               " PRIMARY KEY (url, code, context)) WITHOUT ROWID;"
               "CREATE INDEX IF NOT EXISTS reports_latest ON reports (latest);") ||
      !Execute(database_, limit.c_str())) {
    const std::string reason = database_ != nullptr ? sqlite3_errmsg(database_) : "out of memory";
    Close();
    return reason;
  }
  opened_ = StampOf(path_);
  if (const Statement select = Prepare(database_, "SELECT COALESCE(SUM(count), 0) FROM reports");
      select != nullptr && sqlite3_step(select.get()) == SQLITE_ROW) {
    total_ = sqlite3_column_int64(select.get(), 0);
  }
  return {};
}

void ReportStore::Close() {
  sqlite3_close(database_);
  database_ = nullptr;
}

bool ReportStore::IsInPlace() const noexcept {
  const FileStamp stamp = StampOf(path_);
  return database_ != nullptr && stamp.Exists() && stamp.device == opened_.device && stamp.inode == opened_.inode;
}

bool ReportStore::Keep(const std::vector<Pending>& reports) {
  for (const bool isLastTry : {false, true}) {
    if (!IsInPlace()) {
      if (database_ != nullptr) log_.Write("ReportStore", path_ + ": gone, another is taken", kLogError);
      Close();
      if (failure_ = Open(); !failure_.empty()) return false;
    }
    if (!WriteAll(reports)) {
      failure_ = sqlite3_errmsg(database_);
      if (IsInPlace() || isLastTry) return false;
      continue;  // some failures only tell that the file has gone
    }
    if (IsInPlace()) return true;
  }
  failure_ = "goes again and again";
  return false;
}

void ReportStore::Finish() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  wake_.notify_all();
  if (writer_.joinable()) writer_.join();
}

void ReportStore::Add(const std::string& url, std::int32_t code, const std::string& context,
                      std::function<void(bool)> kept) {
  // Strangers send any bytes, and a context may be cut within a character: others read the database as UTF-8.
  Pending report{Narrow(Widen(url)), code, Narrow(Widen(context)), std::move(kept)};
  {
    const std::lock_guard lock(mutex_);
    if (waiting_.size() < kWaitingLimit && !stop_) {
      waiting_.push_back(std::move(report));
      wake_.notify_one();
      return;
    }
  }
  report.kept(false);
}

void ReportStore::Run() {
  for (;;) {
    std::vector<Pending> reports;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stop_ || !waiting_.empty(); });
      reports.swap(waiting_);
    }
    if (reports.empty()) return;
    const bool kept = Keep(reports);
    if (!kept) log_.Write("ReportStore", path_ + ": " + failure_, kLogError);
    if (kept) total_ += static_cast<std::int64_t>(reports.size());
    for (const Pending& report : reports) report.kept(kept);
  }
}

bool ReportStore::WriteAll(const std::vector<Pending>& reports) {
  if (!Execute(database_, "BEGIN IMMEDIATE")) return false;
  bool done = true;
  {
    const Statement insert = Prepare(database_,
                                     "INSERT INTO reports VALUES (?1, ?2, ?3, datetime('now'), datetime('now'), 1)"
                                     " ON CONFLICT DO UPDATE SET latest = excluded.latest, count = count + 1");
    for (const Pending& report : reports) {
      sqlite3_bind_text(insert.get(), 1, report.url.data(), static_cast<int>(report.url.size()), SQLITE_STATIC);
      sqlite3_bind_int(insert.get(), 2, report.code);
      sqlite3_bind_text(insert.get(), 3, report.context.data(), static_cast<int>(report.context.size()), SQLITE_STATIC);
      done = done && insert != nullptr && sqlite3_step(insert.get()) == SQLITE_DONE;
      sqlite3_reset(insert.get());
    }
  }
  if (done && Execute(database_, "COMMIT")) return true;
  Execute(database_, "ROLLBACK");
  return false;
}

std::vector<ReportSummary> ReportStore::Latest(std::size_t count) const {
  std::vector<ReportSummary> latest;
  const auto database = OpenForReading(path_);
  const Statement select = Prepare(
      database.get(), "SELECT latest, url, code, context, count FROM reports ORDER BY latest DESC, url LIMIT ?1");
  if (select == nullptr) return latest;
  sqlite3_bind_int64(select.get(), 1, static_cast<sqlite3_int64>(count));
  while (sqlite3_step(select.get()) == SQLITE_ROW) {
    latest.push_back({Column(select.get(), 0), Column(select.get(), 1), sqlite3_column_int64(select.get(), 2),
                      Column(select.get(), 3), sqlite3_column_int64(select.get(), 4)});
  }
  return latest;
}

}  // namespace zeph::server
