// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/configuration/ConfigurationPair.h"
#include "DetectionEngine/platform/NamedMutex.h"
#include "DetectionEngine/platform/WatchedFile.h"

namespace zeph {

/// Owns the configuration: finds the package, loads it and puts it in force, at the start on a thread of its own and
/// from then on whenever a newer package has appeared.
///
/// There are two slots. The active one is what readers get, an immutable pair that they share. Of the other, the spare
/// one, only that is kept which a load goes on from: resources, the trusted domains of blocked sites, texts and
/// flags. A load builds a new pair from it, aside, and then the slots change places; a load that fails changes neither.
///
/// Any thread may call anything.
class ConfigurationMgr {
 public:
  explicit ConfigurationMgr(const ModuleTexts& module);
  /// Stops first.
  ~ConfigurationMgr();
  ConfigurationMgr(const ConfigurationMgr&) = delete;
  ConfigurationMgr& operator=(const ConfigurationMgr&) = delete;

  /// To be called before each use of the configuration: waits for the load thread if there is one, loads the package
  /// in the shared data folder if it is newer than what is loaded, and, while nothing is loaded, the one beside the
  /// module. False when nothing could ever be loaded. When there is nothing to do it costs one look at a file's time.
  bool Run();

  /// The pair in force: empty records with the module's texts until something is loaded. Take it once per use, after
  /// Run.
  [[nodiscard]] std::shared_ptr<const ConfigurationPair> Active() const;

  /// Names the package ("name" of "name.zip", narrow) and starts the load thread.
  void SetConfigFileBaseName(std::string_view name);

  /// Starts the load thread; only the first call of the object does.
  void StartLoadConfigThread();

  /// Whether packages must be signed by an accepted signer. At first they needn't.
  void SetVerifyPackageSignature(bool verify) noexcept { verifyPackageSignature_ = verify; }

  /// Loads one package and puts it in force. False, with the reason in the log and in LastFailure, and everything as it
  /// was, when it isn't fit.
  bool LoadPackage(std::u16string_view path);

  /// The package that is in force, as a path; empty while none is. What Publish put there counts as the package before.
  [[nodiscard]] std::string LoadedPackage() const;

  /// Why the last load that failed did, for people; empty when none has.
  [[nodiscard]] std::string LastFailure() const;

  /// Puts a pair in force that was made or changed by other means, and keeps it there: Run looks for no package any
  /// more. Its indexes are built and its values prepared by the caller.
  void Publish(std::shared_ptr<const ConfigurationPair> pair);

  /// Sets the stop event and waits for the load thread, which gives up at its next step instead of waiting for other
  /// processes or taking a further package. Nothing is loaded afterwards; what is in force stays so.
  void Stop();

 private:
  /// The active slot, with the paths that Run looks at in the form that it needs.
  struct Slot {
    std::shared_ptr<const ConfigurationPair> pair;
    std::string originalConfigFile;
    std::shared_ptr<WatchedFile> newConfigFile;  ///< the slots' that name the same file
  };

  [[nodiscard]] std::shared_ptr<const Slot> ActiveSlot() const;
  /// Makes the pair the active slot. With changeLock_.
  void SetActive(std::shared_ptr<const ConfigurationPair> pair);
  /// Works the paths of both slots out anew; while something is loaded only if asked, since a memory file brings its
  /// own.
  void UpdatePaths(bool evenIfLoaded);
  void LoadConfigThreadProc();
  void LoadNewest(const char* label, const Slot& slot, bool heedStop);
  bool Parse(const std::string& path, const std::optional<std::string>& package, const std::error_code& error,
             const std::u16string& mutexName, ConfigurationPair& pair);
  bool WaitFor(NamedMutex& fileMutex) const;
  /// Logs an error and, as a detail, why; keeps it for LastFailure, and is false.
  bool Refuse(const char* label, std::string_view text, std::string_view why = {});
  /// Keeps why for LastFailure, and is false.
  bool Fail(std::string_view why);

  mutable std::mutex activeLock_;  ///< held for a copy of active_ only
  std::shared_ptr<const Slot> active_;

  mutable std::mutex changeLock_;  ///< orders those who change what follows, or active_
  Configuration spare_;            ///< what the spare slot keeps
  std::u16string packageBaseName_;
  std::string lastFailure_;
  std::string loadedPackage_;
  std::thread loadThread_;

  std::mutex runLock_;  ///< held by Run while it loads
  std::atomic<bool> loaded_{false};
  std::atomic<bool> pinned_{false};
  std::atomic<bool> firstRun_{true};
  std::atomic<bool> verifyPackageSignature_{false};
  std::atomic<bool> loadThreadStarted_{false};
  std::atomic<bool> loadDoneEvent_{false};
  std::atomic<bool> stopEvent_{false};
  std::atomic<std::int64_t> lastLoadTime_{0};  ///< last write of the package that was loaded last
};

}  // namespace zeph
