// SPDX-License-Identifier: Apache-2.0
#include "DetectionEngine/configuration/ConfigurationMgr.h"

#include <chrono>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

#include "DetectionEngine/base/DataFolder.h"
#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/base/StringTable.h"
#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/configuration/PackageReader.h"
#include "DetectionEngine/configuration/PackageSignature.h"
#include "DetectionEngine/platform/Clock.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/platform/Module.h"
#include "DetectionEngine/text/Text.h"

namespace zeph {

namespace {

using namespace std::chrono_literals;

constexpr char kRunLabel[] = "ConfigurationMgr::Run";
constexpr char kThreadLabel[] = "ConfigurationMgr::LoadConfigThreadProc";
constexpr char kStartLabel[] = "ConfigurationMgr::StartLoadConfigThread";
constexpr char kParseLabel[] = "ConfigurationMgr::Parse";

constexpr auto kFileMutexLimit = 5000ms;
constexpr auto kFileMutexStep = 100ms;  ///< how often a wait looks at the stop event

/// A package that can't be loaded may have met a passing want, of memory or of the file mutex.
constexpr std::int64_t kRetryAfter = 1'000'000'000;

/// What stays in a slot when it is cleared for the next load. Indexes are left out, since every load builds them anew.
Configuration KeptOf(const Configuration& configuration) {
  Configuration kept;
  kept.Resources = configuration.Resources;
  kept.BlockedToTrusted = configuration.BlockedToTrusted;
  for (const auto text : kModuleTexts) kept.*text = configuration.*text;
  kept.KeepOriginalFile = configuration.KeepOriginalFile;
  kept.IsClient = configuration.IsClient;
  return kept;
}

std::u16string PackagePath(std::u16string_view folder, std::u16string_view baseName) {
  return std::u16string(folder) + u'/' + std::u16string(baseName) + u".zip";
}

void SetOriginalConfigFile(Configuration& configuration) {
  configuration.OriginalConfigFile = PackagePath(configuration.ModuleFolder, configuration.ConfigBaseName);
  configuration.ActiveConfigFile = configuration.OriginalConfigFile;
}

/// Without a shared data folder no newer package is looked for.
void SetNewConfigFile(Configuration& configuration, std::u16string_view dataFolder, bool signatureTest) {
  configuration.NewConfigFile =
      dataFolder.empty() ? std::u16string() : PackagePath(dataFolder, configuration.ConfigBaseName);
  if (!signatureTest) configuration.SpareConfigFile = configuration.NewConfigFile;
  const bool isNew = !configuration.KeepOriginalFile && FileExists(Narrow(configuration.NewConfigFile));
  configuration.ActiveConfigFile = isNew ? configuration.NewConfigFile : configuration.OriginalConfigFile;
}

void LogPaths(const std::string& label, const std::string& originalConfigFile, const std::string& newConfigFile) {
  LogLine((label + " - original config file").c_str(), originalConfigFile, kLogInformation);
  LogLine((label + " - new config file").c_str(), newConfigFile, kLogInformation);
}

}  // namespace

ConfigurationMgr::ConfigurationMgr(const ModuleTexts& module) {
  own_.ModulePath = module.ModulePath;
  own_.ModuleFolder = module.ModuleFolder;
  own_.ConfigBaseName = module.BaseName;
  own_.IsClient = !ContainsNoCase(StringEntry(0xBE), module.ModuleFolder);
  SetOriginalConfigFile(own_);
  spare_ = own_;
  SetActive(std::make_shared<ConfigurationPair>(ConfigurationPair{own_, {}}));
  SetSettingsKeyPath(Narrow(StringEntry(0xC6)), Narrow(module.BaseName));
}

ConfigurationMgr::~ConfigurationMgr() { Stop(); }

std::shared_ptr<const ConfigurationMgr::Slot> ConfigurationMgr::ActiveSlot() const {
  const std::lock_guard lock(activeLock_);
  return active_;
}

std::shared_ptr<const ConfigurationPair> ConfigurationMgr::Active() const {
  const std::lock_guard lock(activeLock_);
  return active_->pair;
}

void ConfigurationMgr::SetActive(std::shared_ptr<const ConfigurationPair> pair) {
  auto slot = std::make_shared<Slot>();
  slot->originalConfigFile = Narrow(pair->configuration.OriginalConfigFile);
  slot->newConfigFile = Narrow(pair->configuration.NewConfigFile);
  slot->pair = std::move(pair);
  // What was active may go with the last reference to it, which takes its time: not under the lock of the readers.
  std::shared_ptr<const Slot> next = std::move(slot);
  {
    const std::lock_guard lock(activeLock_);
    active_.swap(next);
  }
  lookedAt_ = -1;
}

bool ConfigurationMgr::Run() {
  LogLine(kRunLabel, "Enter", kLogInformation);
  if (loadThreadStarted_ && !stopEvent_) {
    LogLine(kRunLabel, "Waiting for configuration thread to finish loading", kLogInformation);
    loadDoneEvent_.wait(false);
  }
  if (!loaded_) UpdatePaths(false);
  if (!loaded_ || (!pinned_ && IsTimeToLook())) {
    const std::shared_ptr<const Slot> slot = ActiveSlot();
    if (noteIsDue_.exchange(false)) NoteInForce({});
    if (firstRun_ && !loaded_) LogPaths(kRunLabel, slot->originalConfigFile, slot->newConfigFile);
    // Looked at once before the lock, so that callers queue only when there is something to load.
    if (!loaded_ || SeesChange(*slot)) {
      const std::lock_guard lock(runLock_);
      LoadNewest(kRunLabel, *slot, false);
    }
  }
  if (firstRun_) firstRun_ = false;
  LogLine(kRunLabel, "Leave", kLogInformation);
  return loaded_;
}

bool ConfigurationMgr::IsTimeToLook() noexcept {
  const std::int64_t tick = CoarseTick();
  std::int64_t lookedAt = lookedAt_.load(std::memory_order_relaxed);
  return tick != lookedAt && lookedAt_.compare_exchange_strong(lookedAt, tick, std::memory_order_relaxed);
}

void ConfigurationMgr::SetConfigFileBaseName(std::string_view name) {
  LogLine("SetConfigFileBaseName", name, kLogInformation);
  {
    const std::lock_guard lock(changeLock_);
    packageBaseName_ = Widen(name);
    own_.ConfigBaseName = packageBaseName_;
    SetOriginalConfigFile(own_);
    spare_.ConfigBaseName = packageBaseName_;
    auto pair = std::make_shared<ConfigurationPair>(*Active());
    pair->configuration.ConfigBaseName = packageBaseName_;
    SetOriginalConfigFile(pair->configuration);
    SetActive(std::move(pair));
  }
  StartLoadConfigThread();
}

void ConfigurationMgr::StartLoadConfigThread() {
  LogLine(kStartLabel, "Enter", kLogInformation);
  // Told before it is done, since the thread's own lines come next.
  if (!loadThreadStarted_ && !stopEvent_) LogLine(kStartLabel, "Starting Thread", kLogInformation);
  std::string failure;
  {
    const std::lock_guard lock(changeLock_);
    if (!loadThreadStarted_ && !stopEvent_) {
      try {
        loadThread_ = std::thread([this] { LoadConfigThreadProc(); });
        loadThreadStarted_ = true;
      } catch (const std::system_error& error) {
        failure = error.what();  // the next Run does the load itself
      }
    }
  }
  if (!failure.empty()) LogLine(kStartLabel, failure, kLogError);
  LogLine(kStartLabel, "Leave", kLogInformation);
}

void ConfigurationMgr::Stop() {
  std::thread thread;
  {
    const std::lock_guard lock(changeLock_);
    stopEvent_ = true;
    thread.swap(loadThread_);
  }
  if (thread.joinable()) thread.join();
}

void ConfigurationMgr::BeforeFork() {
  changeLock_.lock();
  activeLock_.lock();
  forkingProcess_ = ProcessId();
}

void ConfigurationMgr::AfterFork() {
  const bool isChild = forkingProcess_ != ProcessId();
  activeLock_.unlock();
  if (isChild) {
    // The threads that held it, or were to be joined, are not here.
    new (&runLock_) std::mutex;
    new (&loadThread_) std::thread;
    if (!loadDoneEvent_) loadThreadStarted_ = false;
    noteIsDue_ = loaded_.load();
  }
  changeLock_.unlock();
}

void ConfigurationMgr::LoadConfigThreadProc() {
  try {
    UpdatePaths(true);
    const std::shared_ptr<const Slot> slot = ActiveSlot();
    LogPaths(kThreadLabel, slot->originalConfigFile, slot->newConfigFile);
    LoadNewest(kThreadLabel, *slot, true);
  } catch (const std::exception& error) {
    DebugLog(kThreadLabel, error.what(), "", 0, kLogError);
  }
  loadDoneEvent_ = true;
  loadDoneEvent_.notify_all();
}

void ConfigurationMgr::UpdatePaths(bool evenIfLoaded) {
  const std::u16string dataFolder = Widen(GetDataFolder());
  EnsureFolder(dataFolder);
  const std::lock_guard lock(changeLock_);
  if (loaded_ && !evenIfLoaded) return;
  SetNewConfigFile(spare_, dataFolder, verifyPackageSignature_);
  auto pair = std::make_shared<ConfigurationPair>(*Active());
  SetNewConfigFile(pair->configuration, dataFolder, verifyPackageSignature_);
  SetActive(std::move(pair));
}

bool ConfigurationMgr::SeesChange(const Slot& slot) {
  SeenFile seen{slot.newConfigFile, StampOf(slot.newConfigFile)};
  const std::lock_guard lock(changeLock_);
  if (seen == failedFile_ && CoarseTick() < retryAt_) return false;
  if (!followsEveryChange_) {
    if (seen.stamp.Exists() && seen.stamp.lastWrite > loadedFile_.stamp.lastWrite) return true;
    if (seen != loadedFile_ && seen != ignoredFile_ && (seen.stamp.Exists() || seen.path == loadedFile_.path)) {
      lastFailure_ = seen.stamp.Exists() ? seen.path + ": it isn't later than the package in force, and not loaded"
                                         : seen.path + ": it was removed, and stays in force";
      ignoredFile_ = std::move(seen);
    }
    return false;
  }
  if (!seen.stamp.Exists()) seen = {slot.originalConfigFile, StampOf(slot.originalConfigFile)};
  return seen.stamp.Exists() && seen != loadedFile_ && (seen != failedFile_ || CoarseTick() >= retryAt_);
}

void ConfigurationMgr::LoadNewest(const char* label, const Slot& slot, bool heedStop) {
  const SeenFile newest{slot.newConfigFile, StampOf(slot.newConfigFile)};
  // Somebody else may have loaded it since it was seen.
  if (newest.stamp.Exists() && (!loaded_ || SeesChange(slot)) &&
      LoadFound(slot.pair->configuration.NewConfigFile, newest)) {
    LogLine(label, "Successfully loaded new configuration file", kLogInformation);
  }
  const bool wasRemoved = loaded_ && !newest.stamp.Exists() && SeesChange(slot);
  if ((loaded_ && !wasRemoved) || (heedStop && stopEvent_)) return;
  if (!loaded_) {
    LogLine(label, "Not loaded yet and new one does not exist - so loading original zip", kLogInformation);
  }
  if (LoadFound(slot.pair->configuration.OriginalConfigFile,
                {slot.originalConfigFile, StampOf(slot.originalConfigFile)})) {
    LogLine(label, "successfull loading original zip", kLogInformation);
  } else {
    LogLine(label, "Failure loading original zip", kLogError);
  }
}

bool ConfigurationMgr::LoadFound(const std::u16string& path, const SeenFile& seen) {
  const std::string why = DistrustOf(seen.path, Narrow(own_.ModulePath));
  const bool isLoaded = why.empty() ? LoadPackage(path) : Refuse(seen.path, kParseLabel, "The package isn't trusted", why);
  const std::lock_guard lock(changeLock_);
  (isLoaded ? loadedFile_ : failedFile_) = seen;
  if (!isLoaded) retryAt_ = CoarseTick() + kRetryAfter;
  return isLoaded;
}

bool ConfigurationMgr::LoadPackage(std::u16string_view path) {
  const std::string file = Narrow(path);
  try {
    // What is verified is what will be extracted, whatever becomes of the file.
    std::error_code error;
    const std::optional<std::string> package = ReadWholeFile(file, kPackageCeiling, &error);
    if (verifyPackageSignature_) {
      std::string why = error.message();
      if (!package || !VerifyPackageSignature(*package, &why)) {
        return Refuse(file, Narrow(StringEntry(0xAF)).c_str(), Narrow(StringEntry(0xB2)), why);
      }
    }
    auto pair = std::make_shared<ConfigurationPair>();
    std::u16string baseName;
    {
      const std::lock_guard lock(changeLock_);
      pair->configuration = spare_;
      baseName = packageBaseName_;
    }
    if (!Parse(file, package, error, NamedMutexName(baseName, u"File"), *pair)) return false;

    const std::u16string dataFolder = Widen(GetDataFolder());
    std::string digest = Sha256Hex(*package);
    std::unique_lock lock(changeLock_);
    SetNewConfigFile(own_, dataFolder, verifyPackageSignature_);
    UseOwnTexts(pair->configuration, own_);
    // The name may have been set while the load ran.
    if (packageBaseName_ != baseName) pair->configuration.ConfigBaseName = packageBaseName_;
    spare_ = KeptOf(Active()->configuration);
    SetActive(std::move(pair));
    loadedPackage_ = file;
    loaded_ = true;
    lock.unlock();
    NoteInForce(std::move(digest));
    return true;
  } catch (const std::exception& failure) {
    return Refuse(file, kParseLabel, "The package can't be loaded", failure.what());
  }
}

bool ConfigurationMgr::Parse(const std::string& path, const std::optional<std::string>& package,
                             const std::error_code& error, const std::u16string& mutexName, ConfigurationPair& pair) {
  Extraction extraction;
  {
    NamedMutex fileMutex(mutexName);
    if (!WaitFor(fileMutex)) return Fail(path, "another process has been loading a package for too long");
    if (error == std::errc::no_such_file_or_directory) return Refuse(path, kParseLabel, "CAB file not found");
    extraction = package ? ExtractCabinet(*package, path) : Extraction{{}, {}, "it can't be read: " + error.message()};
  }
  if (!extraction) return Refuse(path, kParseLabel, "CAB Extract failed", extraction.refusal);
  if (stopEvent_) return Fail(path, "the engine is being unloaded");
  const std::string why = ReadPackedFile(std::move(extraction), pair);
  return why.empty() || Fail(path, why);
}

bool ConfigurationMgr::WaitFor(NamedMutex& fileMutex) const {
  for (auto waited = 0ms; waited < kFileMutexLimit && !stopEvent_; waited += kFileMutexStep) {
    if (fileMutex.TryLockFor(kFileMutexStep)) return true;
  }
  return false;
}

bool ConfigurationMgr::Refuse(const std::string& path, const char* label, std::string_view text, std::string_view why) {
  LogLine(label, text, kLogError);
  if (!why.empty()) LogLine(label, why, kLogDetail);
  return Fail(path, why.empty() ? text : why);
}

bool ConfigurationMgr::Fail(const std::string& path, std::string_view why) {
  const std::lock_guard lock(changeLock_);
  lastFailure_ = path + ": ";
  lastFailure_ += why;
  return false;
}

std::string ConfigurationMgr::LoadedPackage() const {
  const std::lock_guard lock(changeLock_);
  return loadedPackage_;
}

std::string ConfigurationMgr::LastFailure() const {
  const std::lock_guard lock(changeLock_);
  return lastFailure_;
}

void ConfigurationMgr::Publish(std::shared_ptr<const ConfigurationPair> pair) {
  {
    const std::lock_guard lock(changeLock_);
    SetActive(std::move(pair));
    loaded_ = true;
    pinned_ = true;
  }
  NoteInForce({});
}

void ConfigurationMgr::NoteInForce(std::string digest) {
  const std::string newest = pinned_ ? std::string() : ActiveSlot()->newConfigFile;
  RunNote note;
  {
    const std::lock_guard lock(changeLock_);
    if (!digest.empty()) note_ = {0, {}, loadedPackage_, {}, std::move(digest), UtcNanoseconds()};
    note_.follows = newest;
    note = note_;
  }
  if (note.package.empty()) return;  // of sources, not of a package
  WriteRunNote(note);
}

}  // namespace zeph
