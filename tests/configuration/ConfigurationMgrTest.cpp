// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <atomic>
#include <regex>
#include <thread>

#include <zlib.h>

#include "DetectionEngine/base/DataFolder.h"
#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/platform/Clock.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/platform/SettingsHive.h"
#include "tests/configuration/Packages.h"
#include "tests/configuration/TestSigner.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr std::int64_t kSecond = 1'000'000'000;

/// A module in a folder of its own, whose package is engine.zip, and the shared data folder of its machine.
class ConfigurationMgrTest : public FoldersTest {
 protected:
  ConfigurationMgrTest() {
    SetVendorName("Corvanta");
    fs::create_directories(Path("tmp"));
    fs::create_directories(Path("module"));
    fs::create_directories(Path("machine/Corvanta"));
    setenv("TMPDIR", Path("tmp").c_str(), 1);
  }
  ~ConfigurationMgrTest() override { unsetenv("TMPDIR"); }

  [[nodiscard]] ModuleTexts Module(const std::string& folder = "module") const {
    return {Widen(Path(folder + "/engine.so")), Widen(Path(folder)), u"engine"};
  }
  [[nodiscard]] std::string Original() const { return Path("module/engine.zip"); }
  [[nodiscard]] std::string New() const { return Path("machine/Corvanta/engine.zip"); }

  /// A cabinet of these files, last written at the given second.
  void Write(const std::string& path, const std::vector<PackedFile>& files, std::int64_t second = 1000) {
    std::vector<std::string> sources;
    for (const PackedFile& file : files) {
      sources.push_back(Path("tmp/" + file.Name));
      Fill(sources.back(), file.FileData);
    }
    const std::size_t slash = path.rfind('/');
    const auto pointers = Pointers(sources);
    ASSERT_TRUE(MakeCabinet(pointers.data(), static_cast<int>(pointers.size()), path.substr(slash + 1).c_str(),
                            path.substr(0, slash).c_str()));
    for (const std::string& source : sources) fs::remove(source);
    ASSERT_TRUE(SetLastWriteTime(path, second * kSecond));
  }
  /// A pack of these sources, under its name in a package.
  PackedFile Packed(const std::vector<PackedFile>& sources) {
    std::vector<std::string> paths;
    for (const PackedFile& source : sources) {
      paths.push_back(Path("tmp/" + source.Name));
      Fill(paths.back(), source.FileData);
    }
    const auto pointers = Pointers(paths);
    EXPECT_TRUE(MakePack(pointers.data(), static_cast<int>(pointers.size()), Path("tmp/out").c_str()));
    for (const std::string& path : paths) fs::remove(path);
    PackedFile packed = {"packed2.dat", Content(Path("tmp/out"))};
    fs::remove(Path("tmp/out"));
    return packed;
  }
  /// A pack whose server has this name; what more its resources hold.
  PackedFile Pack(const std::string& server, const std::string& more = {}) {
    std::string filler = "<Note>";  // so that it neither grows nor shrinks too far
    for (int i = 0; i < 200; ++i) filler += std::to_string(i);
    return Packed({{"Resources.xml", "<Server>" + server + "</Server>\n" + more + filler + "\n"}});
  }
  /// A memory file whose server has this name, and the path where it says that newer packages lie.
  static PackedFile Memory(const std::string& server, const std::string& newConfigFile) {
    ConfigurationPair pair = FullPair();
    pair.configuration.Resources.Server = Widen(server);
    pair.configuration.NewConfigFile = Widen(newConfigFile);
    return {"packed3.dat", SealedMemoryFile(pair)};
  }
  /// A call of Run that looks at the files.
  static bool RunAnew(ConfigurationMgr& manager) {
    for (const std::int64_t tick = CoarseTick(); CoarseTick() == tick;) std::this_thread::sleep_for(1ms);
    return manager.Run();
  }
  static std::string ServerOf(const ConfigurationMgr& manager) {
    return Narrow(manager.Active()->configuration.Resources.Server);
  }
};

TEST_F(ConfigurationMgrTest, KnowsItsModuleBeforeAnythingIsLoaded) {
  for (const auto& [folder, isClient] : {std::pair("module", true), std::pair("x/Zeph-Server/bin", false)}) {
    const ConfigurationMgr manager(Module(folder));
    const auto pair = manager.Active();
    const Configuration& c = pair->configuration;
    EXPECT_EQ(Narrow(c.ModulePath), Path(folder) + "/engine.so");
    EXPECT_EQ(c.ConfigBaseName, u"engine");
    EXPECT_EQ(Narrow(c.OriginalConfigFile), Path(folder) + "/engine.zip");
    EXPECT_EQ(c.ActiveConfigFile, c.OriginalConfigFile);
    EXPECT_EQ(c.IsClient, isClient);
    EXPECT_TRUE(c.NewConfigFile.empty());
    EXPECT_TRUE(pair->indicators.Entries.empty());
  }
}

TEST_F(ConfigurationMgrTest, RunTakesTheSharedPackageFirstAndTheModulesOwnForWantOfIt) {
  const struct {
    const char* name;
    const char* shared;  ///< null: none; empty: a bad one
    const char* own;
    const char* loaded;  ///< null: nothing
  } cases[] = {
      {"both", "shared", "own", "shared"},  {"own alone", nullptr, "own", "own"},
      {"shared is bad", "", "own", "own"},  {"shared alone", "shared", nullptr, "shared"},
      {"own is bad", nullptr, "", nullptr}, {"none", nullptr, nullptr, nullptr},
      {"both are bad", "", "", nullptr},
  };
  for (const auto& row : cases) {
    fs::remove(Original());
    fs::remove(New());
    for (const auto& [path, server] : {std::pair(New(), row.shared), std::pair(Original(), row.own)}) {
      if (server != nullptr && *server == '\0') Fill(path, "no cabinet");
      if (server != nullptr && *server != '\0') Write(path, {Pack(server)});
    }
    ConfigurationMgr manager(Module());
    EXPECT_EQ(manager.Run(), row.loaded != nullptr) << row.name;
    EXPECT_EQ(ServerOf(manager), row.loaded != nullptr ? row.loaded : "") << row.name;
    EXPECT_EQ(Narrow(manager.Active()->configuration.NewConfigFile), New()) << row.name;
    EXPECT_EQ(manager.Active()->configuration.ActiveConfigFile,
              row.shared != nullptr ? Widen(New()) : Widen(Original()))
        << row.name;
  }
}

// A package that is put back, as by "cp -p", is older; following every change means to take it.
TEST_F(ConfigurationMgrTest, RunReplacesWhatIsLoadedByALaterPackageOrByEveryOther) {
  struct Step {
    const char* name;  ///< the server's, of a good package
    std::int64_t second;  ///< 0: there is none
    bool isGood;
    const char* loaded;
    const char* failure;  ///< what it ends with; null: not looked at
  };
  constexpr char kNotLater[] = "it isn't later than the package in force, and not loaded";
  const std::vector<Step> later = {
      {"older", 999, true, "first", kNotLater},
      {"equally old", 1000, true, "first", kNotLater},
      {"later but bad", 1002, false, "first", "is broken, or enciphered with another key"},
      {"later", 1001, true, "later", nullptr},
      {"equal again", 1001, true, "later", kNotLater},
      {"bad", 1003, false, "later", nullptr},
      {"mended", 1003, true, "mended", nullptr},
      {"", 0, true, "mended", "it was removed, and stays in force"},
  };
  const std::vector<Step> every = {
      {"older", 999, true, "older", nullptr},     {"newer", 1001, true, "newer", nullptr},
      {"bad", 998, false, "newer", nullptr},      {"put back", 997, true, "put back", nullptr},
      {"", 0, true, "first", nullptr},            {"older still", 996, true, "older still", nullptr},
  };
  for (const bool followsEvery : {false, true}) {
    Write(Original(), {Pack("first")}, 1000);
    ConfigurationMgr manager(Module());
    manager.FollowEveryChange(followsEvery);
    ASSERT_TRUE(manager.Run());
    EXPECT_EQ(ServerOf(manager), "first");
    for (const auto& step : followsEvery ? every : later) {
      fs::remove(New());
      if (step.second != 0) {
        Write(New(), {step.isGood ? Pack(step.name) : PackedFile{"packed2.dat", "nonsense"}}, step.second);
      }
      EXPECT_TRUE(RunAnew(manager)) << step.name;
      EXPECT_EQ(ServerOf(manager), step.loaded) << step.name;
      const auto pair = manager.Active();
      EXPECT_TRUE(RunAnew(manager)) << step.name;
      EXPECT_EQ(manager.Active(), pair) << step.name << " is loaded twice";
      if (step.failure != nullptr) {
        EXPECT_TRUE(manager.LastFailure().starts_with(New() + ": ")) << manager.LastFailure();
        EXPECT_TRUE(manager.LastFailure().ends_with(step.failure)) << step.name << ": " << manager.LastFailure();
      }
    }
  }
}

TEST_F(ConfigurationMgrTest, MemoryFileBringsThePathThatTheNextPackageIsLookedForAt) {
  const std::string ownText = Narrow(kOwnText);
  struct Row {
    const char* name;
    std::string stored;  ///< NewConfigFile in the package that is loaded first
    const char* next;  ///< the server's name after another look
  };
  const Row rows[] = {
      {"a path", Path("elsewhere.zip"), "elsewhere"},
      {"no path: none is ever found", "", "first"},
      {"the loader's own", ownText, "at the usual place"},
  };
  for (const Row& row : rows) {
    fs::remove(New());
    Write(Original(), {Memory("first", row.stored)}, 1000);
    ConfigurationMgr manager(Module());
    ASSERT_TRUE(manager.Run());
    EXPECT_EQ(ServerOf(manager), "first") << row.name;
    Write(Path("elsewhere.zip"), {Memory("elsewhere", "")}, 2000);
    Write(New(), {Memory("at the usual place", ownText)}, 3000);
    ASSERT_TRUE(RunAnew(manager));
    EXPECT_EQ(ServerOf(manager), row.next) << row.name;
  }
}

TEST_F(ConfigurationMgrTest, PackageThatOthersMayHaveWrittenIsNotBelieved) {
  if (geteuid() != 0) GTEST_SKIP() << "files of other users can't be made";
  constexpr uid_t kStranger = 65534;
  const struct {
    const char* name;
    fs::perms file;
    fs::perms folder;
    uid_t fileOwner;
    uid_t folderOwner;
    uid_t moduleOwner;
    bool isBelieved;
  } rows[] = {
      {"the user's own", fs::perms(0644), fs::perms(0755), 0, 0, 0, true},
      {"a file that all may write", fs::perms(0666), fs::perms(0755), 0, 0, 0, false},
      {"a folder that all may write", fs::perms(0644), fs::perms(0777), 0, 0, 0, false},
      {"one where they may only add", fs::perms(0644), fs::perms(01777), 0, 0, 0, true},
      {"a group's", fs::perms(0664), fs::perms(0775), 0, 0, 0, true},
      {"a stranger's file", fs::perms(0644), fs::perms(0755), kStranger, 0, 0, false},
      {"a stranger's folder", fs::perms(0644), fs::perms(0755), 0, kStranger, 0, false},
      {"of who made the module", fs::perms(0644), fs::perms(0755), kStranger, kStranger, kStranger, true},
  };
  Fill(Path("module/engine.so"), "");
  for (const auto& row : rows) {
    Write(New(), {Pack("shared")});
    const std::string folder = fs::path(New()).parent_path().string();
    fs::permissions(New(), row.file);
    fs::permissions(folder, row.folder);
    ASSERT_EQ(chown(New().c_str(), row.fileOwner, 0), 0);
    ASSERT_EQ(chown(folder.c_str(), row.folderOwner, 0), 0);
    ASSERT_EQ(chown(Path("module/engine.so").c_str(), row.moduleOwner, 0), 0);
    ConfigurationMgr manager(Module());
    EXPECT_EQ(manager.Run(), row.isBelieved) << row.name << ": " << manager.LastFailure();
    EXPECT_TRUE(ConfigurationMgr(Module()).LoadPackage(Widen(New()))) << "what is named by hand is believed";
  }
}

// As the process's own manager is called around a fork.
TEST_F(ConfigurationMgrTest, ChildForkedWhileTheLoadThreadRunsLoadsForItself) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "a child of a program with threads can't tell its leaks from theirs";
#elif defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's own locks don't bear a fork among threads";
#endif
  Write(Original(), {Memory("own", "")});
  for (int round = 0; round < 20; ++round) {
    ConfigurationMgr manager(Module());
    manager.SetConfigFileBaseName("engine");
    manager.BeforeFork();
    Child child([&] {
      alarm(20);
      manager.AfterFork();
      return manager.Run() && ServerOf(manager) == "own";
    });
    manager.AfterFork();
    EXPECT_TRUE(child.Join());
    EXPECT_TRUE(manager.Run());
  }
}

TEST_F(ConfigurationMgrTest, LoadedRecordsAreReadyForUse) {
  Write(Path("memory.zip"), {Memory("m", "")});
  Write(Path("pack.zip"),
        {Packed({{"TrustedDomains.xml",
                  "<Trusted.Domain>\n<Domain>b.example</Domain>\n<UT>Tag</UT>\n<Note>0123456789012345\n"
                  "</Trusted.Domain>\n"},
                 {"Indicators.xml", "<Indicator>\n<Expression>\n<Value>a,b</Value>\n</Expression>\n</Indicator>\n"}})});
  for (const char* package : {"memory.zip", "pack.zip"}) {
    ConfigurationMgr manager(Module());
    ASSERT_TRUE(manager.LoadPackage(Widen(Path(package)))) << manager.LastFailure();
    const auto pair = manager.Active();
    EXPECT_FALSE(pair->configuration.UrlTagIndex.Entries().empty()) << package;
    EXPECT_TRUE(pair->configuration.TrustedDomains.Index.IsBuilt()) << package;
    EXPECT_EQ(pair->indicators.Entries[0].Rule.Expressions[0].ExpressionValue.GetItems().size(), 2U) << package;
    EXPECT_TRUE(pair->configuration.IsClient) << package;
    EXPECT_TRUE(manager.Run()) << package;
  }
}

TEST_F(ConfigurationMgrTest, PackGoesBeforeAMemoryFileInTheSamePackage) {
  Write(Path("both.zip"), {Memory("memory", ""), Pack("pack")});
  ConfigurationMgr manager(Module());
  ASSERT_TRUE(manager.LoadPackage(Widen(Path("both.zip"))));
  EXPECT_EQ(ServerOf(manager), "pack");
}

TEST_F(ConfigurationMgrTest, SlotsTakeTurnsAndKeepWhatIsNotCleared) {
  const auto load = [&](ConfigurationMgr& manager, const PackedFile& packed) {
    Write(Path("p.zip"), {packed});
    EXPECT_TRUE(manager.LoadPackage(Widen(Path("p.zip")))) << manager.LastFailure();
    return manager.Active();
  };
  ConfigurationMgr manager(Module());
  const auto first = load(manager, Pack("one", "<TRLMBrands>a</TRLMBrands>\n<Group>g</Group>\n"));
  const auto second = load(manager, Pack("two", "<TRLMBrands>b</TRLMBrands>\n"));
  EXPECT_EQ(second->configuration.Resources.TRLMBrands, std::vector<std::u16string>{u"b"});
  EXPECT_EQ(second->configuration.Resources.Group, u"");
  // A load that fails changes neither slot, whatever it has read before.
  std::string cutOff = Memory("bad", "").FileData;
  cutOff = OpenPacked(cutOff).value();
  cutOff.resize(cutOff.size() - 1);
  Write(Path("p.zip"), {{"packed3.dat", SealMemoryFile(cutOff).value()}});
  EXPECT_FALSE(manager.LoadPackage(Widen(Path("p.zip"))));
  EXPECT_EQ(manager.Active(), second);
  const auto third = load(manager, Pack("three", "<TRLMBrands>c</TRLMBrands>\n"));
  EXPECT_EQ(third->configuration.Resources.TRLMBrands, std::vector<std::u16string>({u"a", u"c"}));
  EXPECT_EQ(third->configuration.Resources.Group, u"g");
  EXPECT_EQ(third->configuration.Resources.Server, u"three");
  // Who holds a pair keeps it, however many loads follow.
  EXPECT_EQ(first->configuration.Resources.Server, u"one");
  EXPECT_EQ(second->configuration.Resources.Server, u"two");
}

TEST_F(ConfigurationMgrTest, UnfitPackagesAreRefusedWithTheirReason) {
  Write(Path("good.zip"), {Pack("good")});
  std::string truncated = Content(Path("good.zip"));
  truncated.resize(truncated.size() - 5);
  const std::string garbage(1000, 'g');
  const auto sealed = [](const std::string& content) { return SealMemoryFile(content).value(); };
  std::string bomb = std::string(1000, '\0');  // inflates to more than 20 times what it takes
  uLongf length = bomb.size();
  const std::string zeros(100000, '\0');
  ASSERT_EQ(compress(reinterpret_cast<Bytef*>(bomb.data()), &length, reinterpret_cast<const Bytef*>(zeros.data()), zeros.size()), Z_OK);
  bomb.resize(length);
  EncryptData(bomb.data(), bomb.size());
  constexpr char kOtherKey[] = "the packed file can't be inflated: it is broken, or enciphered with another key";
  constexpr char kTooMuch[] = "the packed file holds more than 20 times what it takes, which isn't read";
  const struct {
    const char* name;
    std::vector<PackedFile> files;  ///< of a cabinet; none: the bytes themselves
    std::string bytes;
    const char* failure;
  } cases[] = {
      {"empty file", {}, "", "it is no cabinet"},
      {"ZIP archive", {}, "PK\3\4" + std::string(100, '\0'), "it is no cabinet"},
      {"truncated", {}, truncated, "the cabinet ends early"},
      {"other files", {{"readme.txt", "hello"}}, "", "it holds neither packed2.dat nor packed3.dat"},
      {"pack under another key", {{"packed2.dat", garbage}}, "", kOtherKey},
      {"pack that inflates too far", {{"packed2.dat", bomb}}, "", kTooMuch},
      {"pack cut off",
       {{"packed2.dat", sealed(PackOf({{"SafeList", "x"}}).substr(0, 10))}},
       "",
       "the pack ends before its last file does"},
      {"no memory file", {{"packed3.dat", sealed("hello hello hello")}}, "", "Not a binary ZEPH configuration file"},
      {"memory file under another key", {{"packed3.dat", garbage}}, "", kOtherKey},
      {"memory file that inflates too far", {{"packed3.dat", bomb}}, "", kTooMuch},
      {"memory file cut off",
       {{"packed3.dat", sealed("\xCD\xAB\1\1")}},
       "",
       "Trying to read data past the end of the file"},
      {"empty packed file", {{"packed3.dat", ""}}, "", "the packed file is empty"},
  };
  ConfigurationMgr manager(Module());
  ASSERT_TRUE(manager.LoadPackage(Widen(Path("good.zip"))));
  EXPECT_EQ(manager.LastFailure(), "");
  const auto before = manager.Active();
  for (const auto& row : cases) {
    if (row.files.empty()) {
      Fill(Path("bad.zip"), row.bytes);
    } else {
      Write(Path("bad.zip"), row.files);
    }
    EXPECT_FALSE(manager.LoadPackage(Widen(Path("bad.zip")))) << row.name;
    EXPECT_EQ(manager.LastFailure(), Path("bad.zip: ") + row.failure) << row.name;
    EXPECT_EQ(manager.Active(), before) << row.name;
    fs::remove(Path("bad.zip"));
  }
  EXPECT_FALSE(manager.LoadPackage(Widen(Path("bad.zip"))));
  EXPECT_EQ(manager.LastFailure(), Path("bad.zip: CAB file not found"));
  EXPECT_FALSE(manager.LoadPackage(Widen(Path("machine"))));
  EXPECT_EQ(manager.LastFailure(), Path("machine: it can't be read: Is a directory"));
}

TEST_F(ConfigurationMgrTest, LoadThreadLoadsOnceAndRunWaitsForIt) {
  Write(Path("module/other.zip"), {Pack("other")});
  ConfigurationMgr manager(Module());
  manager.SetConfigFileBaseName("other");
  EXPECT_TRUE(manager.Run());
  EXPECT_EQ(ServerOf(manager), "other");
  // A second name starts no second thread.
  Write(Path("module/third.zip"), {Pack("third")});
  manager.SetConfigFileBaseName("third");
  EXPECT_TRUE(manager.Run());
  EXPECT_EQ(ServerOf(manager), "other");
  EXPECT_EQ(manager.Active()->configuration.ConfigBaseName, u"third");
  EXPECT_EQ(Narrow(manager.Active()->configuration.OriginalConfigFile), Path("module/third.zip"));
}

TEST_F(ConfigurationMgrTest, StopEndsTheLoadThreadThoughTheTemporaryFilesAreInUse) {
  Write(Original(), {Pack("own")});
  NamedMutex held(NamedMutexName(u"engine", u"File"));
  ASSERT_TRUE(held.TryLockFor(0ms));
  ConfigurationMgr manager(Module());
  manager.SetConfigFileBaseName("engine");
  manager.Stop();
  EXPECT_EQ(ServerOf(manager), "");
  held.Unlock();
  manager.StartLoadConfigThread();
  EXPECT_FALSE(manager.Run()) << "nothing is loaded any more";
  ConfigurationMgr neverStarted(Module());
  neverStarted.Stop();
}

// Base names differ, and so do machine folders: nothing that a load writes or waits for may be known by less than both.
TEST_F(ConfigurationMgrTest, ProcessesThatLoadAtOnceLoadEachItsOwn) {
  constexpr int kProcesses = 6;
  constexpr int kLoads = 20;
  std::vector<Child> children;
  for (int process = 0; process < kProcesses; ++process) {
    const std::string name = std::to_string(process);
    const std::u16string path = Widen(Path(name + ".zip"));
    Write(Path(name + ".zip"), {process % 2 == 0 ? Pack(name) : Memory(name, "")});
    children.emplace_back([&] {
      if (process % 3 == 0) setenv("ZEPH_MACHINE_DIR", Path("machine" + name).c_str(), 1);
      ConfigurationMgr manager(Module());
      if (process % 3 == 1) manager.SetConfigFileBaseName(name);
      for (int load = 0; load < kLoads; ++load) {
        if (!manager.LoadPackage(path) || ServerOf(manager) != name) return false;
      }
      return true;
    });
  }
  for (Child& child : children) EXPECT_TRUE(child.Join());
  EXPECT_TRUE(fs::is_empty(Path("tmp"))) << "a load writes nothing";
}

TEST_F(ConfigurationMgrTest, PublishedPairStaysInForce) {
  Write(New(), {Pack("package")});
  ConfigurationMgr manager(Module());
  auto pair = std::make_shared<ConfigurationPair>(*manager.Active());
  pair->configuration.Resources.Server = u"published";
  manager.Publish(pair);
  EXPECT_EQ(manager.Active(), pair);
  EXPECT_TRUE(manager.Run());
  EXPECT_EQ(manager.Active(), pair);
}

TEST_F(ConfigurationMgrTest, SignatureTestRefusesWhatIsNotSignedByAnAcceptedSigner) {
  const TestAuthority authority(Path("ca"));
  const TestSigner signer(authority, Path("signer"), "/CN=Corvanta", kCodeSigning);
  const TestSigner stranger(authority, Path("stranger"), "/CN=Somebody", kCodeSigning);
  Write(Path("plain.zip"), {Pack("signed")});
  signer.Sign(Path("plain.zip"), Path("signed.zip"));
  stranger.Sign(Path("plain.zip"), Path("stranger.zip"));
  setenv("SSL_CERT_FILE", authority.Certificate().c_str(), 1);
  ConfigurationMgr manager(Module());
  EXPECT_TRUE(manager.LoadPackage(Widen(Path("plain.zip"))));
  manager.SetVerifyPackageSignature(true);
  EXPECT_FALSE(manager.LoadPackage(Widen(Path("plain.zip"))));
  EXPECT_EQ(manager.LastFailure(), Path("plain.zip: the package isn't signed"));
  EXPECT_FALSE(manager.LoadPackage(Widen(Path("stranger.zip"))));
  EXPECT_EQ(manager.LastFailure(), Path("stranger.zip: \"Somebody\" isn't an accepted signer"));
  EXPECT_FALSE(manager.LoadPackage(Widen(Path("missing.zip"))));
  EXPECT_TRUE(manager.LoadPackage(Widen(Path("signed.zip")))) << manager.LastFailure();
  unsetenv("SSL_CERT_FILE");
}

TEST_F(ConfigurationMgrTest, LogsTheRoadOfAPackageStepByStep) {
  Write(New(), {Pack("x")});
  Write(Original(), {Memory("y", "")});
  Fill(Path("bad.zip"), "no cabinet");
  SettingsHive hive(HiveOwner::kMachine);
  ASSERT_TRUE(hive.CreateKey(kLogSettingsKey));
  for (const char* name : {"PrependDateTime", "PrependType"}) ASSERT_TRUE(hive.Write(kLogSettingsKey, name, 0U));
  ASSERT_TRUE(hive.Write(kLogSettingsKey, "OutputToFile", 1U));
  {
    ConfigurationMgr manager(Module());
    EXPECT_TRUE(manager.Run());
    EXPECT_TRUE(manager.LoadPackage(Widen(Original())));
    EXPECT_FALSE(manager.LoadPackage(Widen(Path("bad.zip"))));
  }
  hive.DeleteKey(kLogSettingsKey);
  const std::string run = "ConfigurationMgr::Run : ";
  const std::string parse = "ConfigurationMgr::Parse : ";
  EXPECT_EQ(Content(Path("machine/Corvanta/zeph0.log")),
            run + "Enter\nConfigurationMgr::Run - original config file : " + Original() +
                "\nConfigurationMgr::Run - new config file : " + New() + "\nCabExtract : " + New() + "\n" + parse +
                "Old style load\n" + parse + "Decrypt\n" + parse + "DecompressLZW\n" + parse +
                "CreateVectorofFileData\n" + parse + "Resources.xml\n" + parse + "Done\n" + run +
                "Successfully loaded new configuration file\n" + run + "Leave\nCabExtract : " + Original() + "\n" +
                parse +
                "Load in Memory\nMemoryFile::LoadFile : Success Loading configuration data - now to parse it\n" +
                "CabExtract : " + Path("bad.zip") + "\nCabExtract : FDIIsCabinet returned FALSE\n" +
                "CabExtract : it is no cabinet\n" + parse + "CAB Extract failed\n" + parse + "it is no cabinet\n");
}

TEST_F(ConfigurationMgrTest, ReadersKeepWholePairsWhilePackagesAreSwapped) {
  constexpr int kReaders = 8;
  constexpr int kLoads = 40;
  for (const char* name : {"a", "b"})
    Write(Path(std::string(name) + ".zip"), {Memory(name, std::string("/new/") + name)});
  ConfigurationMgr manager(Module());
  ASSERT_TRUE(manager.LoadPackage(Widen(Path("a.zip"))));
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < kReaders; ++i) {
    readers.emplace_back([&] {
      std::shared_ptr<const ConfigurationPair> kept = manager.Active();
      while (!done) {
        if (!manager.Run()) ++torn;
        const auto pair = manager.Active();
        const Configuration& c = pair->configuration;
        if (c.NewConfigFile != u"/new/" + c.Resources.Server || pair->indicators.Entries.size() != 2) ++torn;
        if (kept->configuration.NewConfigFile != u"/new/" + kept->configuration.Resources.Server) ++torn;
        if (c.Resources.TRLMBrands.size() % 16 == 0) kept = pair;
      }
    });
  }
  for (int i = 0; i < kLoads; ++i) {
    EXPECT_TRUE(manager.LoadPackage(Widen(Path(i % 2 == 0 ? "b.zip" : "a.zip")))) << manager.LastFailure();
  }
  done = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(torn, 0);
}

}  // namespace
}  // namespace zeph
