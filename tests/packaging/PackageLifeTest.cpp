// SPDX-License-Identifier: Apache-2.0
// A package's life: signatures against the tool whose form they have, the place at every interruption, the commands.
#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "DetectionEngine/platform/Files.h"
#include "TestPaths.h"
#include "tools/packaging/Minisign.h"
#include "tools/packaging/Place.h"

namespace zeph {
namespace {

namespace fs = std::filesystem;
using std::string_literals::operator""s;

constexpr PasswordCost kCheap{32'768, 16'777'216};

struct Outcome {
  int status = -1;
  std::string out;  ///< standard error too
};

Outcome Shell(const std::string& command) {
  FILE* const pipe = popen((command + " 2>&1 </dev/null").c_str(), "r");
  Outcome outcome;
  std::array<char, 4096> buffer{};
  for (std::size_t count = 0; (count = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) outcome.out.append(buffer.data(), count);
  outcome.status = pclose(pipe) >> 8;
  return outcome;
}

class PackageLife : public testing::Test {
 protected:
  void SetUp() override {
    fs::remove_all(folder_);
    fs::create_directories(folder_);
  }
  void TearDown() override { fs::remove_all(folder_); }
  [[nodiscard]] std::string At(const std::string& name) const { return (folder_ / name).string(); }
  std::string Put(const std::string& name, const std::string& text) const {
    fs::create_directories(fs::path(At(name)).parent_path());
    std::ofstream(At(name), std::ios::binary) << text;
    return At(name);
  }
  [[nodiscard]] std::string Get(const std::string& name) const { return ReadWholeFile(At(name), 1 << 24).value_or("none"); }
  [[nodiscard]] std::string Program() const {
    return "ZEPH_MACHINE_DIR=" + At("machine") + " ZEPH_USER_DIR=" + At("user") + " " ZEPH_PROGRAM " ";
  }
  [[nodiscard]] Outcome Zeph(const std::string& arguments) const { return Shell("cd " + At("") + " && " + Program() + arguments); }
  /// A package that holds every address with the brand's tag, and those with tag.
  std::string Package(const std::string& name, const std::string& tag) const {
    Put("sources-" + name + "/TrustedDomains.xml",
        "<Trusted.Domain>\n<Domain>bank.example</Domain>\n<CN>Example Bank</CN>\n<UT>examplebank^" + tag +
            "</UT>\n<DT>bank.example</DT>\n</Trusted.Domain>\n");
    Put("sources-" + name + "/PopularSites.xml", "<Domain>popular.example</Domain>\n<Domain>known.example</Domain>\n");
    Put("sources-" + name + "/Indicators.xml",
        "<Indicator>\n<OnWeight>0.95</OnWeight>\n<TDPriority>1</TDPriority>\n<Category>0</Category>\n<Expression>\n"
        "<FieldID>4</FieldID>\n<MethodID>3</MethodID>\n<ValueType>0</ValueType>\n<Value>8</Value>\n"
        "</Expression>\n</Indicator>\n");
    const Outcome built = Zeph("package build --sources sources-" + name + " --output " + name + ".zip");
    EXPECT_EQ(built.status, 0) << built.out;
    return At(name + ".zip");
  }

  fs::path folder_ = fs::path(testing::TempDir()) /
                     ("package-life-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
};

TEST_F(PackageLife, SignaturesAndKeysAreThoseOfTheToolOfTheirForm) {
  const KeyPair pair = MakeKeyPair();
  const std::string bytes = "what is signed\n\0\xFF"s;
  Put("file", bytes);
  Put("key.pub", WritePublicKey(pair.publicKey));
  Put("file.minisig", WriteSignature(Sign(pair.secretKey, bytes, "timestamp:1\tversion:7")));
  const auto covered = WriteSecretKey(pair.secretKey, "pass word", kCheap);
  ASSERT_TRUE(covered);
  Put("key.key", *covered);

  // Ours by our own reading.
  std::string why;
  EXPECT_EQ(ReadPublicKey(Get("key.pub")), pair.publicKey);
  EXPECT_EQ(ReadPublicKey(PublicKeyWord(pair.publicKey)), pair.publicKey);
  const auto key = ReadSecretKey(*covered, "pass word", why);
  ASSERT_TRUE(key) << why;
  EXPECT_EQ(key->seedAndPoint, pair.secretKey.seedAndPoint);
  EXPECT_FALSE(ReadSecretKey(*covered, "password", why));
  EXPECT_EQ(why, "wrong password");
  const auto open = WriteSecretKey(pair.secretKey, std::nullopt);
  ASSERT_TRUE(open);
  EXPECT_TRUE(ReadSecretKey(*open, "", why)) << why;

  if (Shell("command -v minisign").status != 0) GTEST_SKIP() << "minisign isn't installed";
  const std::string tool = "cd " + At("") + " && minisign ";
  const Outcome verified = Shell(tool + "-V -p key.pub -m file");
  EXPECT_EQ(verified.status, 0) << verified.out;
  EXPECT_NE(verified.out.find("version:7"), std::string::npos) << verified.out;
  // What it signs with our keys, in both of its forms; under a password, which it reads from standard input, and open.
  Put("open.key", *open);
  Put("password", "pass word\n");
  for (const char* const form : {"-s key.key", "-s open.key", "-l -s open.key"}) {
    fs::remove(At("file.minisig"));
    const Outcome signing = Shell("(" + tool + "-S " + form + " -m file -t 'said version:9' <password)");
    EXPECT_EQ(signing.status, 0) << signing.out;
    const std::string text = Get("file.minisig");
    const auto signature = ReadSignature(text, why);
    ASSERT_TRUE(signature) << why << text;
    EXPECT_EQ(Mismatch(*signature, pair.publicKey, bytes), "") << form;
    EXPECT_EQ(VersionIn(signature->trustedComment), 9U);
  }
}

TEST_F(PackageLife, NoChangedSignatureIsBelieved) {
  const KeyPair pair = MakeKeyPair();
  const std::string good = WriteSignature(Sign(pair.secretKey, "bytes", "version:3"));
  std::string why;
  EXPECT_NE(Mismatch(*ReadSignature(good, why), pair.publicKey, "Bytes"), "");
  EXPECT_NE(Mismatch(*ReadSignature(good, why), MakeKeyPair().publicKey, "bytes"), "");
  // The untrusted comment is nobody's; of the rest each character counts.
  for (std::size_t at = good.find('\n') + 1; at < good.size(); ++at) {
    if (good[at] == '\n') continue;
    std::string bad = good;
    bad[at] = bad[at] == '4' ? '5' : '4';
    const auto signature = ReadSignature(bad, why);
    EXPECT_TRUE(!signature || !Mismatch(*signature, pair.publicKey, "bytes").empty()) << at << '\n' << bad;
    EXPECT_FALSE(ReadSignature(good.substr(0, at), why) && at + 2 < good.size()) << at;
  }
  const std::pair<const char*, std::optional<std::uint64_t>> versions[] = {
      {"version:12", 12}, {"timestamp:3\tversion:4", 4}, {"subversion:4", {}}, {"version:", {}}, {"version:4x", {}},
      {"version:99999999999999999999", {}}, {"subversion:1 version:2 x", 2}};
  for (const auto& [comment, version] : versions) EXPECT_EQ(VersionIn(comment), version) << comment;
}

TEST_F(PackageLife, AnInterruptedChangeLeavesAWholePackageAndTheNextOneWorks) {
  const auto package = [](char c) { return SignedPackage{std::string(50'000, c), std::string("signature of ") + c}; };
  const std::string path = At("p/zeph.zip");
  for (const bool rollsBack : {false, true}) {
    bool isDone = false;
    for (int stop = 1; !isDone; ++stop) {
      ASSERT_LT(stop, 30);
      fs::remove_all(At("p"));
      fs::create_directories(At("p"));
      for (const char c : {'a', 'b'}) ASSERT_EQ(PackagePlace(path).Install(package(c)), "");
      const pid_t child = fork();
      if (child == 0) {
        int steps = 0;
        PackagePlace place(path, [&](const char*) {
          if (++steps == stop) _exit(9);
        });
        _exit((rollsBack ? place.Rollback() : place.Install(package('c'))).empty() ? 0 : 1);
      }
      int status = 0;
      waitpid(child, &status, 0);
      isDone = WEXITSTATUS(status) == 0;
      ASSERT_NE(WEXITSTATUS(status), 1);
      const std::string after(50'000, rollsBack ? 'a' : 'c');
      const std::string found = Get("p/zeph.zip");
      EXPECT_TRUE(found == after || (!isDone && found == package('b').bytes)) << stop;
      // Again, to the end: what was left half done is in nobody's way.
      if (rollsBack) {
        if (found != after) {
          EXPECT_EQ(PackagePlace(path).Rollback(), "") << stop;
        }
        EXPECT_EQ(Get("p/zeph.zip"), after) << stop;
        EXPECT_NE(PackagePlace(path).Rollback(), "") << stop;
      } else {
        EXPECT_EQ(PackagePlace(path).Install(package('c')), "") << stop;
        EXPECT_EQ(Get("p/zeph.zip.minisig"), "signature of c");
        for (const char c : {'b', 'a'}) {
          EXPECT_EQ(PackagePlace(path).Rollback(), "") << stop;
          EXPECT_EQ(Get("p/zeph.zip"), package(c).bytes) << stop;
          EXPECT_EQ(Get("p/zeph.zip.minisig"), package(c).signature) << stop;
        }
      }
    }
  }
}

TEST_F(PackageLife, ThreeEarlierOnesAreKeptTimesGrowAndAFullDiskChangesNothing) {
  const std::string path = Put("p/zeph.zip", "0");
  std::int64_t time = LastWriteTime(path);
  // As when the clock was ahead.
  ASSERT_TRUE(SetLastWriteTime(path, time += 1'000'000'000'000));
  for (const char* const bytes : {"1", "2", "3", "4", "5"}) {
    ASSERT_EQ(PackagePlace(path).Install({bytes, ""}), "");
    EXPECT_GT(LastWriteTime(path), time);
    time = LastWriteTime(path);
  }
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0644));
  for (const char* const bytes : {"4", "3", "2"}) {
    ASSERT_EQ(PackagePlace(path).Rollback(), "");
    EXPECT_EQ(Get("p/zeph.zip"), bytes);
    EXPECT_GT(LastWriteTime(path), time);
    time = LastWriteTime(path);
  }
  EXPECT_EQ(PackagePlace(path).Rollback(), path + ": no earlier package is kept");

  const pid_t child = fork();
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1000, 1000};
    setrlimit(RLIMIT_FSIZE, &limit);
    const std::string why = PackagePlace(path).Install({std::string(5000, 'x'), ""});
    _exit(why.find("can't be written") != std::string::npos ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(Get("p/zeph.zip"), "2");
  for (const auto& entry : fs::directory_iterator(At("p"))) {
    const std::string name = entry.path().filename().string();
    EXPECT_TRUE(name == "zeph.zip" || name == "zeph.zip.earlier") << name;
  }
}

TEST_F(PackageLife, InstallTakesWhatIsFitAndSaysWhyNotOtherwise) {
  Package("one", "onetag");
  Package("two", "twotag");
  Package("greedy", "popular");
  Put("junk.zip", "no cabinet");
  Put("hits.txt", "spoofing\thttp://twotag.evil.test/\nunclassified\thttp://quiet.test/\n");
  Put("popular.txt", "# sites\nquiet.example\n");
  ASSERT_EQ(Zeph("package keygen --no-password --output k").status, 0);
  const auto sign = [&](const std::string& name, int version) {
    const Outcome signing = Zeph("package sign --key k.key --version " + std::to_string(version) + " " + name + ".zip");
    EXPECT_EQ(signing.status, 0) << signing.out;
  };
  const std::string word = PublicKeyWord(*ReadPublicKey(Get("k.pub")));
  struct Step {
    const char* arguments;
    int status;
    const char* says;
    const char* inForce;  ///< which package is, afterwards
  };
  const auto take = [&](std::initializer_list<Step> steps) {
    for (const Step& step : steps) {
      const Outcome outcome = Zeph(step.arguments);
      EXPECT_EQ(outcome.status, step.status) << step.arguments << '\n' << outcome.out;
      EXPECT_NE(outcome.out.find(step.says), std::string::npos) << step.arguments << '\n' << outcome.out;
      EXPECT_EQ(Get("machine/Corvanta/zeph.zip") == Get(step.inForce + ".zip"s), true) << step.arguments << '\n' << outcome.out;
    }
  };
  take({
      {"package install one.zip --popular popular.txt", 0, "not signed", "one"},
      {"package install none.zip", 2, "none.zip: No such file", "one"},
      {"package install junk.zip", 2, "junk.zip: not loaded: ", "one"},
      {"package install greedy.zip", 2, "holds 1 of 2 popular sites, the first: popular.example", "one"},
      {"package install greedy.zip --max-popular-held 0.5", 0, "popular sites held: 1 of 2", "greedy"},
      {"package rollback", 0, "put back", "one"},
      {"package install one.zip --probe hits.txt", 2, "misses 1 of 2 probes", "one"},
      {"package install two.zip --probe hits.txt", 0, "probes met: 2", "two"},
      {"package install one.zip --probe popular.txt", 2, "isn't a verdict, a tab and a URL", "two"},
      {"package rollback", 0, "put back", "one"},
      {"package install two.zip --wait 0", 0, "installed", "two"},
      {"settings set --machine UnsignedPackages 2", 2, "none of 0 to 1", "two"},
      {"settings set --machine UnsignedPackages 0", 0, "", "two"},
      {"settings set --machine TrustedPackageKeys nonsense", 2, "is no public key", "two"},
      {"package install one.zip", 2, "this machine takes no such package", "two"},
      {"package install one.zip --allow-unsigned", 0, "installed", "one"},
  });
  sign("two", 5);
  take({{"package install two.zip", 2, "which isn't trusted here", "one"},
        {"package verify two.zip --key k.pub", 0, "version:5", "one"}});
  ASSERT_EQ(Zeph("settings set --machine TrustedPackageKeys " + word).status, 0);
  take({{"package install two.zip", 0, "signed by trusted key", "two"},
        {"settings list --machine", 0, word.c_str(), "two"},
        {"package info two.zip", 0, "version           5", "two"}});
  sign("one", 4);
  take({{"package install one.zip", 2, "has version 4, installed is version 5", "two"},
        {"package install one.zip --allow-downgrade", 0, "installed", "one"}});
  Put("two.zip.minisig", Get("one.zip.minisig"));
  take({{"package install two.zip", 2, "isn't one of this file", "one"},
        {"package verify two.zip", 2, "isn't one of this file", "one"}});
}

TEST_F(PackageLife, RunningEnginesSayWhatTheyUseAndFollow) {
  Package("one", "onetag");
  Package("two", "twotag");
  ASSERT_EQ(Zeph("package install one.zip --popular " + Put("popular.txt", "quiet.example\n")).status, 0);
  // A process that judges each line that it is given.
  ASSERT_EQ(mkfifo(At("in").c_str(), 0600), 0);
  FILE* const engine = popen(("cd " + At("") + " && exec env " + Program() + "check --json - <in >out").c_str(), "w");
  std::ofstream lines(At("in"));
  const auto judge = [&](std::size_t count) {
    lines << "http://twotag.evil.test/" << std::endl;
    for (int i = 0; i < 6000; ++i) {
      const std::string out = Get("out");
      if (static_cast<std::size_t>(std::count(out.begin(), out.end(), '\n')) >= count) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  };
  judge(1);
  const std::string place = At("machine/Corvanta/zeph.zip");
  // One of a process that can't exist, and one of a process that had this one's number before it.
  struct stat space {};
  ASSERT_EQ(stat("/proc/self/ns/pid", &space), 0);
  for (const std::string& process : {"4000000000"s, std::to_string(getpid())}) {
    Put("user/run/" + std::to_string(space.st_ino) + "-" + process, "1\n/gone.zip\n\nabc\n0\n");
  }
  const Outcome where = Zeph("package where");
  EXPECT_EQ(where.out.find("/gone.zip"), std::string::npos) << where.out;
  EXPECT_NE(where.out.find("1. " + place + ": used: "), std::string::npos) << where.out;
  EXPECT_NE(where.out.find(" zeph: " + place + ", SHA-256 "), std::string::npos) << where.out;
  const Outcome install = Zeph("package install two.zip --wait 0");
  EXPECT_NE(install.out.find("zeph doesn't yet"), std::string::npos) << install.out;
  for (const char* const command : {"package install two.zip --wait 0", "package rollback --wait 0"}) {
    ASSERT_EQ(Zeph(command).status, 0);
    // The clock that says when to look is coarse.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    judge(command[8] == 'i' ? 2 : 3);
  }
  const std::string out = Get("out");
  lines.close();
  pclose(engine);
  std::istringstream text(out);
  std::string verdicts;
  for (std::string line; std::getline(text, line);) verdicts += line.find("\"spoofing\"") != std::string::npos ? 's' : 'u';
  EXPECT_EQ(verdicts, "usu") << out;
  // It has gone, and so have its note and the stale ones.
  for (const auto& entry : fs::directory_iterator(At("user/run"))) ADD_FAILURE() << entry.path();
  EXPECT_EQ(fs::status(At("user/run")).permissions(), fs::perms(0700));
}

TEST_F(PackageLife, ThePagesCommandsWorkFromTopToBottom) {
  Package("zeph", "onetag");
  fs::rename(At("sources-zeph"), At("DIR-sources"));
  Put("hits.txt", "spoofing\thttp://onetag.evil.test/\n");
  // There is no terminal to ask for a password.
  Put("bin/zeph", "#!/bin/sh\n[ \"$2\" = keygen ] && set -- \"$@\" --no-password\nexec " ZEPH_PROGRAM " \"$@\"\n");
  fs::permissions(At("bin/zeph"), fs::perms(0755));
  const std::string page = ReadWholeFile(ZEPH_SOURCE_DIR "/docs/package.md", 1 << 20).value_or("");
  const std::string folders = "cd " + At("") + " && export PATH=" + At("bin") + ":$PATH ZEPH_MACHINE_DIR=" + At("machine") +
                              " ZEPH_USER_DIR=" + At("user") + " && ";
  std::istringstream lines(page);
  std::size_t count = 0;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("zeph ")) continue;
    ++count;
    std::string command = line.substr(0, line.find("  #"));
    if (const std::size_t at = command.find("--sources DIR"); at != std::string::npos) command.insert(at + 13, "-sources");
    const Outcome outcome = Shell(folders + command);
    EXPECT_EQ(outcome.status, 0) << command << '\n' << outcome.out;
  }
  EXPECT_GE(count, 15U);
}

}  // namespace
}  // namespace zeph
