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
#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/platform/NamedMutex.h"
#include "DetectionEngine/platform/RunNotes.h"

namespace zeph {

/// Owns the configuration: finds the package, loads it and puts it in force, at the start on a thread of its own and
/// from then on whenever a newer package has appeared.
///
/// There are two slots. The active one is what readers get, an immutable pair that they share. Of the other, the spare
/// one, only that is kept which a load goes on from: resources, the trusted domains of blocked sites, texts and
/// flags. A load builds a new pair from it, aside, and then the slots change places; a load that fails changes neither.
///
/// Packages that are looked for (not those that LoadPackage is given) are believed only where nobody else can have
/// written them, see DistrustOf.
///
/// What is in force is noted down where the user's other processes can read it, see WriteRunNote: at each load, not for each
/// use.
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
  /// module. False when nothing could ever be loaded. Once something is, the file is looked at when the coarse clock has
  /// moved (a few milliseconds), by one thread; in between nothing is asked of the system. One that can't be loaded is
  /// tried again when it has changed, or after a second.
  bool Run();

  /// Which change of the package in the shared data folder counts: at first only a later time of last write than that of
  /// the package loaded last. With true any other file counts, so that an older package put back is loaded, and the
  /// package beside the module when there is none in the shared folder any more.
  void FollowEveryChange(bool every) noexcept { followsEveryChange_ = every; }

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

  /// Why the last load that failed did, or why a package that lies where newer ones are looked for isn't loaded: the file
  /// and the reason, for people; empty when there is nothing to tell.
  [[nodiscard]] std::string LastFailure() const;

  /// Puts a pair in force that was made or changed by other means, and keeps it there: Run looks for no package any
  /// more. Its indexes are built and its values prepared by the caller.
  void Publish(std::shared_ptr<const ConfigurationPair> pair);

  /// Sets the stop event and waits for the load thread, which gives up at its next step instead of waiting for other
  /// processes or taking a further package. Nothing is loaded afterwards; what is in force stays so.
  void Stop();

  /// To be called around each fork of the process, on the thread that forks. The child goes on with what is in force; a
  /// load that other threads were at, the load thread's too, is its own to do again.
  void BeforeFork();
  void AfterFork();

 private:
  /// The active slot, with the paths that Run looks at in the form that it needs.
  struct Slot {
    std::shared_ptr<const ConfigurationPair> pair;
    std::string originalConfigFile;
    std::string newConfigFile;
  };
  /// A file at a moment.
  struct SeenFile {
    std::string path;
    FileStamp stamp;

    friend bool operator==(const SeenFile&, const SeenFile&) = default;
  };

  [[nodiscard]] std::shared_ptr<const Slot> ActiveSlot() const;
  /// Makes the pair the active slot. With changeLock_.
  void SetActive(std::shared_ptr<const ConfigurationPair> pair);
  /// Works the paths of both slots out anew, unless a package has brought its own; evenIfLoaded: even then.
  void UpdatePaths(bool evenIfLoaded);
  void LoadConfigThreadProc();
  /// True for the one thread that is to look whether there is a newer package.
  bool IsTimeToLook() noexcept;
  /// Whether the look at the files shows one to load.
  bool SeesChange(const Slot& slot);
  void LoadNewest(const char* label, const Slot& slot, bool heedStop);
  /// Loads a package that was looked for and found.
  bool LoadFound(const std::u16string& path, const SeenFile& seen);
  bool Load(const std::string& path);
  bool Parse(const std::string& path, const std::optional<std::string>& package, const std::error_code& error,
             const std::u16string& mutexName, ConfigurationPair& pair);
  bool WaitFor(NamedMutex& fileMutex) const;
  /// Notes down which package is in force. digest: of the package; empty: that of the note before.
  void NoteInForce(std::string digest);
  /// Logs an error and, as a detail, why; keeps it for LastFailure, and is false.
  bool Refuse(const std::string& path, const char* label, std::string_view text, std::string_view why = {});
  /// Keeps it for LastFailure, and is false.
  bool Fail(const std::string& path, std::string_view why);

  mutable std::mutex activeLock_;  ///< held for a copy of active_ only
  std::shared_ptr<const Slot> active_;

  mutable std::mutex changeLock_;  ///< orders those who change what follows, or active_; nothing is logged under it
  Configuration own_;              ///< texts and flags of the module, whatever packages have brought
  Configuration spare_;            ///< what the spare slot keeps
  std::u16string packageBaseName_;
  std::string lastFailure_;
  std::string loadedPackage_;
  RunNote note_;               ///< the last one
  SeenFile loadedFile_;        ///< what was found and loaded last
  SeenFile failedFile_;        ///< what was found and failed last
  SeenFile ignoredFile_;       ///< what was told to be ignored last
  std::int64_t retryAt_ = 0;   ///< when failedFile_ may be tried again, in CoarseTick
  std::thread loadThread_;

  std::mutex runLock_;  ///< held by Run while it loads
  std::atomic<bool> loaded_{false};
  std::atomic<bool> pinned_{false};
  std::atomic<bool> firstRun_{true};
  std::atomic<bool> verifyPackageSignature_{false};
  std::atomic<bool> followsEveryChange_{false};
  std::atomic<bool> loadThreadStarted_{false};
  std::atomic<bool> loadDoneEvent_{false};
  std::atomic<bool> stopEvent_{false};
  std::atomic<bool> noteIsDue_{false};  ///< a fork's child hasn't written its own yet
  std::atomic<std::int64_t> lookedAt_{-1};  ///< CoarseTick of the last look
  std::uint32_t forkingProcess_ = 0;
};

}  // namespace zeph
