// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/platform/SettingsHive.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include <sqlite3.h>

namespace zeph {

namespace {

/// One for each owner.
std::atomic<std::uint64_t> generations[2];

void MoveOn(HiveOwner owner) noexcept { ++generations[static_cast<std::size_t>(owner)]; }

/// How long another process may hold the hive before it counts as unusable, in milliseconds.
constexpr int kBusyLimit = 500;
/// A statement of ours takes some hundred steps of SQLite's machine; a doctored file could make it take any number.
constexpr int kMostSteps = 1'000'000;

constexpr char kSchema[] = R"(
CREATE TABLE IF NOT EXISTS setting_key(
  id INTEGER PRIMARY KEY,
  path TEXT NOT NULL UNIQUE COLLATE NOCASE);
CREATE TABLE IF NOT EXISTS setting_value(
  key_id INTEGER NOT NULL REFERENCES setting_key(id) ON DELETE CASCADE,
  name TEXT NOT NULL COLLATE NOCASE,
  value NOT NULL CHECK(typeof(value) IN ('integer', 'text')),
  PRIMARY KEY(key_id, name)) WITHOUT ROWID;
)";

bool Fits(std::string_view text) noexcept { return text.size() <= kSettingTextLimit; }

/// A prepared statement. Texts that are bound must outlive it.
class Statement {
 public:
  Statement(sqlite3* file, const char* text) {
    sqlite3_stmt* statement = nullptr;
    // Fails on a file that isn't a hive.
    if (file != nullptr && sqlite3_prepare_v2(file, text, -1, &statement, nullptr) == SQLITE_OK)
      handle_.reset(statement);
  }

  Statement& Bind(int place, std::string_view text) {
    // A null pointer would bind no text instead of an empty one.
    const char* bytes = text.empty() ? "" : text.data();
    if (handle_) sqlite3_bind_text(handle_.get(), place, bytes, static_cast<int>(text.size()), SQLITE_STATIC);
    return *this;
  }
  Statement& Bind(int place, const SettingValue& value) {
    if (const auto* text = std::get_if<std::string>(&value)) return Bind(place, std::string_view(*text));
    if (handle_) sqlite3_bind_int64(handle_.get(), place, std::get<std::uint32_t>(value));
    return *this;
  }

  /// Steps to the next row; false at the end and on any failure, which Ended tells apart.
  bool Next() {
    status_ = handle_ ? sqlite3_step(handle_.get()) : SQLITE_ERROR;
    return status_ == SQLITE_ROW;
  }
  [[nodiscard]] bool Ended() const noexcept { return status_ == SQLITE_DONE; }

  [[nodiscard]] std::string Text(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(handle_.get(), column));
    if (text == nullptr) return {};
    return {text, static_cast<std::size_t>(sqlite3_column_bytes(handle_.get(), column))};
  }
  [[nodiscard]] std::optional<SettingValue> Value(int column) const {
    switch (sqlite3_column_type(handle_.get(), column)) {
      case SQLITE_INTEGER: {
        const sqlite3_int64 number = sqlite3_column_int64(handle_.get(), column);
        if (number < 0 || number > UINT32_MAX) return {};
        return static_cast<std::uint32_t>(number);
      }
      case SQLITE_TEXT:
        if (sqlite3_column_bytes(handle_.get(), column) > static_cast<int>(kSettingTextLimit)) return {};
        return Text(column);
      default:
        return {};
    }
  }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> handle_;
  int status_ = SQLITE_ERROR;
};

/// The hive's file, open for one operation. Nothing but SQLite may open that file in this process: closing it elsewhere
/// would drop SQLite's locks on it.
class HiveFile {
 public:
  enum Use { kRead = SQLITE_OPEN_READONLY, kChange = SQLITE_OPEN_READWRITE, kMake = kChange | SQLITE_OPEN_CREATE };

  HiveFile(const std::string& path, Use use) {
    sqlite3* file = nullptr;
    const int flags = use | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
    const bool open = !path.empty() && sqlite3_open_v2(path.c_str(), &file, flags, nullptr) == SQLITE_OK;
    handle_.reset(file);
    if (!open) {
      handle_.reset();
      return;
    }
    sqlite3_busy_timeout(file, kBusyLimit);
    sqlite3_limit(file, SQLITE_LIMIT_LENGTH, 1 << 20);
    sqlite3_progress_handler(
        file, kMostSteps, [](void*) { return 1; }, nullptr);
    // The file may be anybody's work: nothing in it but plain tables is to be heeded.
    sqlite3_db_config(file, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(file, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(file, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(file, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_db_config(file, SQLITE_DBCONFIG_ENABLE_FKEY, 1, nullptr);
  }

  [[nodiscard]] sqlite3* Get() const noexcept { return handle_.get(); }
  bool Run(const char* text) { return handle_ && sqlite3_exec(Get(), text, nullptr, nullptr, nullptr) == SQLITE_OK; }
  /// Rows that the last statement changed.
  [[nodiscard]] int Changes() const { return sqlite3_changes(Get()); }

 private:
  struct Close {
    void operator()(sqlite3* file) const { sqlite3_close(file); }
  };
  std::unique_ptr<sqlite3, Close> handle_;
};

/// Runs a statement that is to change something, and tells whether it did.
bool Change(HiveOwner owner, const HiveFile& file, Statement& statement) {
  if (statement.Next() || !statement.Ended() || file.Changes() == 0) return false;
  MoveOn(owner);
  return true;
}

}  // namespace

bool SettingNameLess::operator()(std::string_view a, std::string_view b) const noexcept {
  const auto lower = [](char c) { return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + 32 : c); };
  return std::ranges::lexicographical_compare(a, b, {}, lower, lower);
}

SettingsHive::SettingsHive(HiveOwner owner)
    : owner_(owner), path_(owner == HiveOwner::kMachine ? MachineFolder() : UserFolder()) {
  if (!path_.empty()) path_ += "/settings.sqlite";
}

bool SettingsHive::HasKey(std::string_view key) const {
  const HiveFile file(path_, HiveFile::kRead);
  return Fits(key) && Statement(file.Get(), "SELECT 1 FROM setting_key WHERE path = ?1").Bind(1, key).Next();
}

bool SettingsHive::CreateKey(std::string_view key) {
  if (path_.empty() || !Fits(key)) return false;
  const bool isNew = !Stamp().Exists();
  const bool isPrivate = owner_ == HiveOwner::kUser;
  if (isNew) {
    const std::filesystem::path folder = std::filesystem::path(path_).parent_path();
    MakeFolders(folder.string(), isPrivate ? 0700 : 0755);  // one that is missing shows when the file is made
  }
  HiveFile file(path_, HiveFile::kMake);
  if (isNew && isPrivate) SetFileMode(path_, 0600);
  // Readers notice a change by the file itself, which a write-ahead log would leave alone.
  if (!file.Run("PRAGMA journal_mode = DELETE") || !file.Run("BEGIN IMMEDIATE") || !file.Run(kSchema)) return false;
  Statement insert(file.Get(), "INSERT OR IGNORE INTO setting_key(path) VALUES(?1)");
  insert.Bind(1, key).Next();
  if (!insert.Ended() || !file.Run("COMMIT")) return false;
  MoveOn(owner_);
  return true;
}

std::vector<std::string> SettingsHive::Keys() const {
  const HiveFile file(path_, HiveFile::kRead);
  Statement select(file.Get(), "SELECT path FROM setting_key ORDER BY path LIMIT ?1");
  select.Bind(1, SettingValue(kSettingCountLimit));
  std::vector<std::string> keys;
  while (select.Next()) keys.push_back(select.Text(0));
  return keys;
}

bool SettingsHive::DeleteKey(std::string_view key) {
  const HiveFile file(path_, HiveFile::kChange);
  Statement statement(file.Get(), "DELETE FROM setting_key WHERE path = ?1");
  return Fits(key) && Change(owner_, file, statement.Bind(1, key));
}

std::optional<SettingValue> SettingsHive::Read(std::string_view key, std::string_view name) const {
  const HiveFile file(path_, HiveFile::kRead);
  Statement select(file.Get(),
                   "SELECT value FROM setting_value JOIN setting_key ON id = key_id WHERE path = ?1 AND name = ?2");
  if (!Fits(key) || !Fits(name) || !select.Bind(1, key).Bind(2, name).Next()) return {};
  return select.Value(0);
}

std::optional<SettingValues> SettingsHive::ReadKey(std::string_view key) const {
  const HiveFile file(path_, HiveFile::kRead);
  // A key without values gives one row without a name.
  Statement select(
      file.Get(),
      "SELECT name, value FROM setting_key LEFT JOIN setting_value ON key_id = id WHERE path = ?1 LIMIT ?2");
  if (!Fits(key) || !select.Bind(1, key).Bind(2, SettingValue(kSettingCountLimit)).Next()) return {};
  SettingValues values;
  do {
    if (auto value = select.Value(1)) values.insert_or_assign(select.Text(0), *std::move(value));
  } while (select.Next());
  if (!select.Ended()) return {};
  return values;
}

bool SettingsHive::Write(std::string_view key, std::string_view name, const SettingValue& value) {
  const auto* text = std::get_if<std::string>(&value);
  if (!Fits(key) || !Fits(name) || (text != nullptr && !Fits(*text))) return false;
  const HiveFile file(path_, HiveFile::kChange);
  Statement statement(
      file.Get(),
      "INSERT INTO setting_value(key_id, name, value) SELECT id, ?2, ?3 FROM setting_key WHERE path = ?1 "
      "ON CONFLICT(key_id, name) DO UPDATE SET value = excluded.value");
  return Change(owner_, file, statement.Bind(1, key).Bind(2, name).Bind(3, value));
}

bool SettingsHive::Delete(std::string_view key, std::string_view name) {
  const HiveFile file(path_, HiveFile::kChange);
  Statement statement(
      file.Get(),
      "DELETE FROM setting_value WHERE name = ?2 AND key_id = (SELECT id FROM setting_key WHERE path = ?1)");
  return Fits(key) && Fits(name) && Change(owner_, file, statement.Bind(1, key).Bind(2, name));
}

std::uint64_t SettingsHive::Generation(HiveOwner owner) noexcept {
  return generations[static_cast<std::size_t>(owner)].load(std::memory_order_acquire);
}

}  // namespace zeph
