// SPDX-License-Identifier: Apache-2.0
// zeph package info, where, install, rollback, keygen, sign and verify: a package's life once it is made.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "DetectionEngine/base/DataFolder.h"
#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/configuration/PackageSignature.h"
#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/Clock.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Files.h"
#include "DetectionEngine/platform/Module.h"
#include "DetectionEngine/platform/RunNotes.h"
#include "authoring/Lint.h"
#include "authoring/Sources.h"
#include "judging/Judge.h"
#include "judging/Privacy.h"
#include "judging/RuleTexts.h"
#include "judging/ScratchFolder.h"
#include "tools/packaging/Minisign.h"
#include "tools/packaging/Place.h"
#include "tools/packaging/Trust.h"
#include "tools/zeph/Common.h"
#include "tools/zeph/PrepareEngine.h"

namespace zeph {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxListFile = std::size_t{64} << 20;
constexpr std::size_t kPopularSample = 1000;  ///< of the installed package's popular sites
constexpr std::size_t kMaxPasswordFile = 4096;
constexpr std::size_t kShownProbes = 20;

struct LifeOptions {
  std::string file;
  std::string to;
  std::string name;
  std::string probe;
  std::string popular;
  std::string key;
  std::string publicKey;
  std::string output;
  std::string passwordFile;
  std::string comment;
  std::string library;
  std::uint64_t version = 0;
  double share = 0.0;
  double wait = 5.0;
  bool allowUnsigned = false;
  bool allowDowngrade = false;
  bool noPassword = false;
  bool force = false;
};

std::string ReadOrRefuse(const std::string& path, std::size_t limit) {
  std::error_code error;
  std::optional<std::string> text = ReadWholeFile(path, limit, &error);
  if (!text) throw CommandError(path + ": " + error.message());
  return *std::move(text);
}

void WriteOrRefuse(const std::string& path, std::string_view text) {
  std::error_code error;
  if (!WriteWholeFile(path, text, &error)) throw CommandError(path + ": can't be written: " + error.message());
}

std::string TimeText(std::int64_t nanoseconds) {
  const std::time_t seconds = static_cast<std::time_t>(nanoseconds / 1'000'000'000);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::ostringstream text;
  text << std::put_time(&parts, "%Y-%m-%d %H:%M:%S UTC");
  return text.str();
}

std::string Counted(std::size_t count, const std::string& one, const std::string& more) {
  return std::to_string(count) + " " + (count == 1 ? one : more);
}

// Where packages lie.

/// Where a program's packages are looked for.
struct Places {
  std::string name;    ///< NAME of NAME.zip
  std::string module;  ///< the library or program
  std::string first;   ///< in the shared data folder
  std::string second;  ///< beside the module
};

Places PlacesOf(const LifeOptions& options) {
  Places places;
  places.module = ModulePath();
  if (!options.library.empty()) {
    std::error_code error;
    places.module = fs::absolute(options.library, error).string();
    if (error || !FileExists(places.module)) throw CommandError(options.library + ": no such library or program");
  }
  const fs::path module(places.module);
  places.name = options.name.empty() ? std::string(BaseNameOf(module.filename().string())) : options.name;
  if (places.name.empty() || places.name.find('/') != std::string::npos) {
    throw CommandError("--name " + places.name + ": a name of a package is that of its file without .zip");
  }
  places.first = GetDataFolder() + "/" + places.name + ".zip";
  places.second = module.parent_path().string() + "/" + places.name + ".zip";
  return places;
}

/// Where an install or a rollback works.
std::string TargetOf(const LifeOptions& options, const Places& places) {
  if (options.to.empty()) return places.first;
  std::error_code error;
  const fs::path folder = fs::absolute(options.to, error);
  if (error) throw CommandError(options.to + ": " + error.message());
  return (folder / (places.name + ".zip")).string();
}

// What is in a package.

/// Loads a package as engines do, into this process. Throws CommandError.
std::shared_ptr<const ConfigurationPair> LoadForReal(const std::string& path, const std::string& shown) {
  ConfigurationMgr& manager = Process().configurationMgr;
  if (!manager.LoadPackage(Widen(path))) {
    const std::string why = manager.LastFailure();
    throw CommandError(shown + ": not loaded: " + (why.starts_with(path + ": ") ? why.substr(path.size() + 2) : why));
  }
  manager.Publish(manager.Active());
  return manager.Active();
}

/// The sources that the package says, looked through as those of its maker would be.
void LintLoaded(const std::string& path, const ConfigurationPair& pair, std::vector<SourceFile>& files, Diagnostics& found, std::string& refusal) {
  NamedRules rules;
  rules.rules = pair.indicators;
  for (RuleText& text : LoadRuleTexts(path)) {
    rules.names.push_back(std::move(text.name));
    rules.sentences.push_back(std::move(text.sentence));
  }
  XmlSources sources = DecompileSources(pair.configuration, rules);
  refusal = sources.refusal;
  if (!refusal.empty()) return;
  for (PackedFile& file : sources.files) files.push_back({std::move(file.Name), std::move(file.FileData)});
  Compiled compiled = CompileSources(files, true, found);
  compiled.configuration.BuildIndexes();
  Lint(compiled.configuration, files, found);
}

void Info(const LifeOptions& options) {
  std::string why;
  const std::optional<SignedPackage> package = ReadSignedPackage(options.file, why);
  if (!package) throw CommandError(why);
  const Extraction packed = ExtractCabinet(package->bytes, options.file);
  const auto pair = LoadForReal(options.file, options.file);
  const Configuration& world = pair->configuration;
  PrintShown(options.file);
  const auto tell = [](const std::string& name, const std::string& value) {
    PrintShown("  " + name + std::string(name.size() < 18 ? 18 - name.size() : 1, ' ') + value);
  };
  tell("size", std::to_string(package->bytes.size()) + " bytes");
  tell("SHA-256", Sha256Hex(package->bytes));
  tell("form", packed.pack ? "pack of sources" : "memory file");
  tell("rules", std::to_string(pair->indicators.Entries.size()));
  tell("brands", std::to_string(world.TrustedDomainInfos.size()));
  tell("safe sites", std::to_string(world.SafeList.Domains.size() + world.SafeList.Others.Entries.size()));
  tell("blocked sites", std::to_string(world.BlockList.Entries.size()));
  tell("popular sites", std::to_string(world.PopularSites.Entries.size()));
  tell("search services", std::to_string(world.SearchServices.Entries.size()));
  tell("hosting sites", std::to_string(world.WebHostingSites.Entries.size()));
  tell("redirectors", std::to_string(world.Redirectors.size()));
  tell("URL tokens", std::to_string(world.UrlAnalysisTable.size()));
  tell("server", world.Resources.Server.empty() ? "none" : Narrow(world.Resources.Server));
  const SignatureFinding signature = LookAtSignature(*package, MachinesTrust());
  tell("version", signature.version ? std::to_string(*signature.version) : "none");
  tell("signature", signature.words);
  tell("Authenticode", VerifyPackageSignature(package->bytes, &why) ? "by an accepted signer" : why);
  std::vector<SourceFile> files;
  Diagnostics found;
  std::string refusal;
  LintLoaded(options.file, *pair, files, found, refusal);
  const std::size_t errors = found.Errors();
  tell("checks", !refusal.empty() ? "no source can say it: " + refusal
                                  : Counted(errors, "error", "errors") + ", " +
                                        Counted(found.All().size() - errors, "warning", "warnings"));
}

// Who uses which.

std::string NoteText(const RunNote& note) {
  return std::to_string(note.process) + " " + note.program + ": " + note.package + ", SHA-256 " +
         note.digest.substr(0, 16) + ", loaded " + TimeText(note.loadedAt) +
         (note.follows.empty() ? ", keeps it" : "");
}

void Where(const LifeOptions& options) {
  const Places places = PlacesOf(options);
  const bool isOwn = options.library.empty() && options.name.empty();
  PrintShown("packages of " + places.module + ":");
  bool isFound = false;
  const auto look = [&](const char* rank, const std::string& path) {
    std::string finding = "there is none";
    if (FileExists(path)) {
      std::string why;
      const std::string distrust = DistrustOf(path, places.module);
      const std::optional<SignedPackage> package = ReadSignedPackage(path, why);
      if (!distrust.empty()) {
        finding = "not believed: " + distrust;
      } else if (!package) {
        finding = "can't be used: " + why;
      } else {
        const SignatureFinding signature = LookAtSignature(*package, MachinesTrust());
        std::string loads;
        if (isOwn && !Process().configurationMgr.LoadPackage(Widen(path))) loads = Process().configurationMgr.LastFailure();
        finding = !loads.empty() ? "can't be used: " + loads
                                 : std::string(std::exchange(isFound, true) ? "would be used without the first" : "used") + ": SHA-256 " +
                                       Sha256Hex(package->bytes).substr(0, 16) + ", " + signature.words;
      }
    }
    PrintShown(std::string("  ") + rank + " " + path + ": " + finding);
  };
  look("1.", places.first);
  look("2.", places.second);
  if (!isFound) PrintLine("  so nothing would be used");
  PrintLine("running, of this user:");
  std::size_t count = 0;
  for (const RunNote& note : ReadRunNotes()) {
    if (note.process == ProcessId()) continue;
    PrintShown("  " + NoteText(note));
    ++count;
  }
  if (count == 0) PrintLine("  none");
}

/// Waits until those that look for newer packages at this place have it, and says which don't.
void WaitForEngines(const std::string& path, const std::string& digest, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  for (;;) {
    std::vector<RunNote> behind;
    std::size_t have = 0;
    for (RunNote& note : ReadRunNotes()) {
      if (note.process == ProcessId() || note.follows != path) continue;
      if (note.digest == digest) {
        ++have;
      } else {
        behind.push_back(std::move(note));
      }
    }
    if (!behind.empty() && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      continue;
    }
    PrintLine("running engines of this user that have it: " + std::to_string(have));
    for (const RunNote& note : behind) {
      PrintShown("  " + std::to_string(note.process) + " " + note.program + " doesn't yet; it looks when it judges next");
    }
    return;
  }
}

// Install.

/// The lines of a file without those that are empty or begin with "#".
std::vector<std::string> ListLines(const std::string& path) {
  std::vector<std::string> lines;
  std::istringstream text(ReadOrRefuse(path, kMaxListFile));
  for (std::string line; std::getline(text, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty() && line.front() != '#') lines.push_back(std::move(line));
  }
  return lines;
}

/// The popular sites of the package that is installed now, evenly out of the list.
std::vector<std::string> InstalledPopular(const std::string& installed) {
  std::vector<std::string> hosts;
  ConfigurationMgr& manager = Process().configurationMgr;
  if (installed.empty() || !manager.LoadPackage(Widen(installed))) return hosts;
  const auto pair = manager.Active();
  for (const NetLocation& site : pair->configuration.PopularSites.Entries) {
    if (site.Type == kDomain) hosts.push_back(Narrow(site.Name));
  }
  const std::size_t step = (hosts.size() + kPopularSample - 1) / kPopularSample;
  std::vector<std::string> sample;
  for (std::size_t i = 0; i < hosts.size(); i += std::max<std::size_t>(step, 1)) sample.push_back(hosts[i]);
  return sample;
}

void ProbePopular(const std::vector<std::string>& popular, double share, const std::string& file) {
  if (popular.empty()) return;
  const Judge judge{JudgeOptions{}};
  std::vector<std::string> held;
  std::size_t judged = 0;
  for (const std::string& site : popular) {
    const Judgement answer = judge.OfAddress(site);
    if (answer.verdict != Verdict::kNotJudged) ++judged;
    if (IsHeld(answer.verdict)) held.push_back(site);
  }
  if (judged == 0) throw CommandError("none of the popular sites can be judged, the first: " + popular.front());
  const double found = static_cast<double>(held.size()) / static_cast<double>(judged);
  if (found > share) {
    throw CommandError(file + ": holds " + std::to_string(held.size()) + " of " + std::to_string(judged) +
                       " popular sites, the first: " + held.front() + " (--max-popular-held allows more)");
  }
  PrintLine("popular sites held: " + std::to_string(held.size()) + " of " + std::to_string(judged));
}

struct Probe {
  std::string verdict;
  std::string url;
};

std::vector<Probe> ReadProbes(const std::string& path) {
  std::vector<Probe> probes;
  for (const std::string& line : ListLines(path)) {
    const std::size_t tab = line.find('\t');
    Probe probe{line.substr(0, tab), tab == std::string::npos ? "" : line.substr(tab + 1)};
    bool isKnown = false;
    for (const Verdict verdict : {Verdict::kTrustworthy, Verdict::kSpoofing, Verdict::kSpoofingConfirmed,
                                  Verdict::kScriptAttack, Verdict::kUnclassified, Verdict::kNotJudged}) {
      isKnown = isKnown || probe.verdict == NameOf(verdict);
    }
    if (probe.url.empty() || !isKnown) {
      throw CommandError(path + ": \"" + line + "\" isn't a verdict, a tab and a URL, as spoofing<tab>http://host/");
    }
    probes.push_back(std::move(probe));
  }
  if (probes.empty()) throw CommandError(path + ": holds no probe");
  return probes;
}

void RunProbes(const std::vector<Probe>& probes, const std::string& file) {
  const Judge judge{JudgeOptions{}};
  std::size_t missed = 0;
  for (const Probe& probe : probes) {
    const std::string_view verdict = NameOf(judge.OfAddress(probe.url).verdict);
    if (verdict == probe.verdict) continue;
    if (missed++ < kShownProbes) PrintError(probe.url + ": " + std::string(verdict) + ", not " + probe.verdict);
  }
  if (missed > 0) {
    throw CommandError(file + ": misses " + std::to_string(missed) + " of " + std::to_string(probes.size()) + " probes");
  }
  PrintLine("probes met: " + std::to_string(probes.size()));
}

/// Refuses what isn't signed as this machine wants it, and versions older than the installed one.
void CheckSignature(const LifeOptions& options, const SignedPackage& package, const std::string& target) {
  const PackageTrust trust = MachinesTrust();
  if (!trust.refusal.empty()) throw CommandError(trust.refusal);
  const SignatureFinding signature = LookAtSignature(package, trust);
  if (signature.isBroken) throw CommandError(options.file + std::string(kSignatureEnding) + ": " + signature.words);
  if (!signature.isTrusted && !trust.takesUnsigned && !options.allowUnsigned) {
    throw CommandError(options.file + ": " + signature.words + ", and this machine takes no such package (--allow-unsigned does)");
  }
  PrintShown(signature.words);
  if (options.allowDowngrade) return;
  std::error_code error;
  const std::string beside = target + std::string(kSignatureEnding);
  const std::optional<std::string> installed = ReadWholeFile(beside, kMaxSignatureFile, &error);
  if (!installed && error != std::errc::no_such_file_or_directory) throw CommandError(beside + ": " + error.message());
  if (!installed) return;
  std::string why;
  const std::optional<FileSignature> before = ReadSignature(*installed, why);
  if (!before) throw CommandError(beside + ": " + why + " (--allow-downgrade passes over it)");
  const std::optional<std::uint64_t> version = VersionIn(before->trustedComment);
  if (version && signature.version.value_or(0) < *version) {
    const std::string has = signature.version ? "version " + std::to_string(*signature.version) : "no version";
    throw CommandError(options.file + ": has " + has + ", installed is version " + std::to_string(*version) +
                       " (zeph package rollback goes back; --allow-downgrade installs it)");
  }
}

void Install(const LifeOptions& options) {
  const Places places = PlacesOf(options);
  const std::string target = TargetOf(options, places);
  std::string why;
  const std::optional<SignedPackage> package = ReadSignedPackage(options.file, why);
  if (!package) throw CommandError(why);
  const std::vector<Probe> probes = options.probe.empty() ? std::vector<Probe>() : ReadProbes(options.probe);
  CheckSignature(options, *package, target);

  const std::string folder = fs::path(target).parent_path().string();
  if (!MakeFolders(folder)) throw CommandError(folder + ": can't be made");
  // The folder decides before there is a package in it.
  const std::string distrust = DistrustOf(folder + "/.", places.module);
  if (!distrust.empty()) throw CommandError(folder + ": engines believe no package there: " + distrust);

  // Where none is installed yet, the one beside the program is in force, and what a rollback goes back to.
  std::optional<SignedPackage> instead;
  const bool isOwn = options.to.empty() && FileExists(places.second) && DistrustOf(places.second, places.module).empty();
  if (isOwn) instead = ReadSignedPackage(places.second, why);
  const std::string installed = FileExists(target) ? target : isOwn ? places.second : std::string();
  const std::vector<std::string> popular = options.popular.empty() ? InstalledPopular(installed) : ListLines(options.popular);

  // The probes are the package's own business: nobody is told of them, and no memory of warnings softens them.
  PrepareEngine(false);
  const PrivacyGuard privacy(Privacy::kNone);
  // What is tried is what is installed, whatever becomes of the file meanwhile.
  const ScratchFolder scratch;
  const std::string copy = (scratch.Path() / "package.zip").string();
  WriteOrRefuse(copy, package->bytes);
  const auto pair = LoadForReal(copy, options.file);
  std::vector<SourceFile> files;
  Diagnostics found;
  std::string refusal;
  LintLoaded(copy, *pair, files, found, refusal);
  if (!refusal.empty()) PrintError(options.file + ": not looked through, since no source can say it: " + refusal);
  ReportFindings(options.file, found, true);
  if (!found.All().empty()) PrintLine(Counted(found.All().size(), "warning", "warnings"));
  ProbePopular(popular, options.share, options.file);
  if (!probes.empty()) RunProbes(probes, options.file);

  why = PackagePlace(target).Install(*package, instead);
  if (!why.empty()) throw CommandError(why);
  PrintShown("installed: " + target);
  WaitForEngines(target, Sha256Hex(package->bytes), options.wait);
}

void Rollback(const LifeOptions& options) {
  const Places places = PlacesOf(options);
  PackagePlace place(TargetOf(options, places));
  std::string why = place.Rollback();
  if (!why.empty()) throw CommandError(why);
  const std::optional<SignedPackage> package = place.Current(why);
  if (!package) throw CommandError(why);
  const SignatureFinding signature = LookAtSignature(*package, MachinesTrust());
  const std::string digest = Sha256Hex(package->bytes);
  PrintShown("put back: " + place.Path() + ", SHA-256 " + digest.substr(0, 16) + ", " + signature.words);
  WaitForEngines(place.Path(), digest, options.wait);
}

// Keys and signatures.

/// Asks on the terminal, without showing what is typed.
std::string AskPassword(const std::string& prompt) {
  const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
  termios before{};
  if (terminal < 0 || tcgetattr(terminal, &before) != 0) {
    if (terminal >= 0) close(terminal);
    throw CommandError("there is no terminal to ask for the password; --password-file names a file that holds it");
  }
  termios silent = before;
  silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  tcsetattr(terminal, TCSAFLUSH, &silent);
  static_cast<void>(!write(terminal, prompt.data(), prompt.size()));
  std::string password;
  char c = 0;
  while (password.size() < kMaxPasswordFile && read(terminal, &c, 1) == 1 && c != '\n') password += c;
  static_cast<void>(!write(terminal, "\n", 1));
  tcsetattr(terminal, TCSAFLUSH, &before);
  close(terminal);
  return password;
}

std::string PasswordOf(const LifeOptions& options, bool isNew) {
  if (!options.passwordFile.empty()) {
    std::string password = ReadOrRefuse(options.passwordFile, kMaxPasswordFile);
    password.erase(std::min(password.find_first_of("\r\n"), password.size()));
    if (password.empty()) throw CommandError(options.passwordFile + ": its first line is empty");
    return password;
  }
  std::string password = AskPassword("password of the secret key: ");
  if (isNew && password != AskPassword("once more: ")) throw CommandError("the passwords differ");
  if (isNew && password.empty()) throw CommandError("an empty password protects nothing; --no-password says so");
  return password;
}

void MakeKeys(const LifeOptions& options) {
  const std::string publicPath = options.output + ".pub";
  const std::string secretPath = options.output + ".key";
  for (const std::string& path : {publicPath, secretPath}) {
    if (!options.force && FileExists(path)) throw CommandError(path + ": is there already (--force replaces it)");
  }
  const KeyPair pair = MakeKeyPair();
  const auto secret = WriteSecretKey(pair.secretKey, options.noPassword ? std::nullopt : std::optional(PasswordOf(options, true)));
  if (!secret) throw CommandError("the memory that a password needs, 1 GiB, can't be had");
  // For this user's eyes from its first byte on.
  const mode_t mask = umask(0077);
  std::error_code error;
  const bool isWritten = WriteWholeFile(secretPath, *secret, &error);
  umask(mask);
  if (!isWritten) throw CommandError(secretPath + ": can't be written: " + error.message());
  WriteOrRefuse(publicPath, WritePublicKey(pair.publicKey));
  PrintShown("secret key: " + secretPath);
  PrintShown("public key: " + publicPath);
  PrintLine(PublicKeyWord(pair.publicKey));
}

void SignFile(const LifeOptions& options) {
  const std::string secret = ReadOrRefuse(options.key, kMaxSignatureFile);
  const std::string bytes = ReadOrRefuse(options.file, kPackageCeiling);
  if (std::ranges::any_of(options.comment, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }) ||
      options.comment.size() > 4096 || VersionIn(options.comment)) {
    throw CommandError("--comment: one line without control characters, at most 4096 bytes, and the version by --version");
  }
  std::string why;
  const auto key = ReadSecretKey(secret, NeedsPassword(secret) ? PasswordOf(options, false) : std::string(), why);
  if (!key) throw CommandError(options.key + ": " + why);
  const auto seconds = static_cast<std::uint64_t>(UtcNanoseconds() / 1'000'000'000);
  const std::uint64_t version = options.version != 0 ? options.version : seconds;
  std::string comment = "timestamp:" + std::to_string(seconds) + "\tversion:" + std::to_string(version);
  if (!options.comment.empty()) comment += "\t" + options.comment;
  const FileSignature signature = Sign(*key, bytes, std::move(comment));
  const std::string output = options.file + std::string(kSignatureEnding);
  WriteOrRefuse(output, WriteSignature(signature));
  PrintShown(output + ": key " + KeyIdText(key->id) + ", version " + std::to_string(version));
}

void VerifyFile(const LifeOptions& options) {
  std::string why;
  const std::optional<SignedPackage> package = ReadSignedPackage(options.file, why);
  if (!package) throw CommandError(why);
  PackageTrust trust = MachinesTrust();
  if (!options.publicKey.empty()) {
    const bool isFile = FileExists(options.publicKey);
    const auto key = ReadPublicKey(isFile ? ReadOrRefuse(options.publicKey, kMaxSignatureFile) : options.publicKey);
    if (!key) throw CommandError(options.publicKey + ": neither the file of a public key nor the key itself");
    trust.keys = {*key};
  } else if (!trust.refusal.empty() || trust.keys.empty()) {
    throw CommandError(trust.refusal.empty() ? "no key is trusted here (zeph settings set --machine TrustedPackageKeys KEY), and no --key is given"
                                             : trust.refusal);
  }
  const SignatureFinding finding = LookAtSignature(*package, trust);
  if (!finding.isTrusted) throw CommandError(options.file + ": " + finding.words);
  PrintShown(options.file + ": " + finding.words);
}

}  // namespace

void AddPackageLifeCommands(CLI::App& package, int&) {
  const auto add = [&](const char* name, const char* help, void (*run)(const LifeOptions&)) {
    CLI::App* const command = package.add_subcommand(name, help);
    auto options = std::make_shared<LifeOptions>();
    command->callback([options, run] { run(*options); });
    return std::pair(command, options);
  };
  const auto addPlace = [](CLI::App& command, LifeOptions& options) {
    command.add_option("--to", options.to, "Folder instead of the shared data folder");
    command.add_option("--name", options.name, "Name of the package's file without .zip (default: this program's)");
    command.add_option("--wait", options.wait, "Seconds to wait for running engines")->check(CLI::Range(0.0, 3600.0))->capture_default_str();
  };

  const auto [info, informed] = add("info", "What a package holds, who signed it, what checks say", Info);
  info->add_option("package", informed->file, "The package")->required();

  const auto [where, placed] = add("where", "Which package is used and why, and which ones running engines use", Where);
  where->add_option("--library", placed->library, "For this library or program instead of zeph itself");
  where->add_option("--name", placed->name, "For this name of a package");

  const auto [install, installed] = add("install", "Check a package and put it in force", Install);
  install->add_option("package", installed->file, "The package, its signature beside it as .minisig")->required();
  addPlace(*install, *installed);
  install->add_option("--probe", installed->probe, "File of lines VERDICT<tab>URL; a missed one refuses the package");
  install->add_option("--popular", installed->popular, "File of sites not to be held (default: the popular sites of the package in force)");
  install->add_option("--max-popular-held", installed->share, "Share of them that may be held nevertheless, 0 to 1")
      ->check(CLI::Range(0.0, 1.0))
      ->capture_default_str();
  install->add_flag("--allow-unsigned", installed->allowUnsigned, "Take it without a trusted signature, whatever the settings say");
  install->add_flag("--allow-downgrade", installed->allowDowngrade, "Take a version older than the installed one");

  const auto [rollback, rolled] = add("rollback", "Put the package before back in force", Rollback);
  addPlace(*rollback, *rolled);

  const auto [keygen, keys] = add("keygen", "Make a pair of keys to sign packages with", MakeKeys);
  keygen->add_option("--output", keys->output, "Path and name of the keys: NAME.key is secret, NAME.pub public")->required();
  keygen->add_option("--password-file", keys->passwordFile, "File whose first line is the password");
  keygen->add_flag("--no-password", keys->noPassword, "Leave the secret key open");
  keygen->add_flag("--force", keys->force, "Replace keys that are there");

  const auto [sign, signing] = add("sign", "Sign a file, into FILE.minisig", SignFile);
  sign->add_option("file", signing->file, "The file")->required();
  sign->add_option("--key", signing->key, "The secret key")->required();
  sign->add_option("--version", signing->version, "Its version, never lower than one before (default: seconds since 1970)");
  sign->add_option("--comment", signing->comment, "Further words of the trusted comment");
  sign->add_option("--password-file", signing->passwordFile, "File whose first line is the password");

  const auto [verify, verified] = add("verify", "Verify FILE.minisig", VerifyFile);
  verify->add_option("file", verified->file, "The file")->required();
  verify->add_option("--key", verified->publicKey, "The public key or its file (default: the trusted keys of the settings)");
  verify->footer("Exit status 0: the signature is whole and by the key. Otherwise 2.");
}

}  // namespace zeph
