// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <charconv>
#include <iomanip>
#include <span>
#include <sstream>

#include "DetectionEngine/base/ModuleTexts.h"
#include "DetectionEngine/base/DebugLog.h"
#include "DetectionEngine/engine/ProcessState.h"
#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/SettingsHive.h"
#include "tools/packaging/Trust.h"
#include "tools/zeph/Common.h"

namespace zeph {

namespace {

/// What an administrator can set for the log.
struct LogSetting {
  std::string_view name;
  std::string_view standard;  ///< what holds while it isn't set
  std::string_view meaning;
  std::uint32_t highest = 1;  ///< of a number
  bool isText = false;
};
constexpr std::array kLogSettings = {
    LogSetting{"OutputToFile", "0", "1: append lines to the log file"},
    LogSetting{"Directory", "", "folder of the log files instead of the shared data folder (a text)", 0,
               true},
    LogSetting{"DebugType", "", "0 nothing, 1 everything, 2 errors and warnings, 3 errors", 3},
    LogSetting{"OutputToDebugger", "0", "1: write lines to standard error"},
    LogSetting{"AppendNewLine", "1", "end a line with a line feed"},
    LogSetting{"PrependDateTime", "1", "begin a line with date and time"},
    LogSetting{"PrependModuleName", "1", "put the label in the line"},
    LogSetting{"PrependProcessId", "0", "put the process id in the line"},
    LogSetting{"PrependThreadId", "0", "put the thread id in the line"},
    LogSetting{"PrependType", "1", "put Error, Warning or Information in the line"},
};

/// And for packages, under a key of its own.
constexpr std::array kPackageSettings = {
    LogSetting{kTrustedKeysSetting, "", "public keys whose signatures of packages are believed, blanks between (a text)", 0, true},
    LogSetting{kUnsignedSetting, "1", "0: package install takes none without such a signature"},
};

struct SettingsOptions {
  bool machine = false;
  bool text = false;
  std::string key;
  std::string name;
  std::string value;

  [[nodiscard]] SettingsHive Hive() const { return SettingsHive(machine ? HiveOwner::kMachine : HiveOwner::kUser); }
  [[nodiscard]] std::string Key() const {
    if (!key.empty()) return key;
    if (machine && std::ranges::find(kPackageSettings, name, &LogSetting::name) != kPackageSettings.end()) {
      return std::string(kPackageSettingsKey);
    }
    return machine ? std::string(kLogSettingsKey) : Narrow(SettingsKeyPath());
  }
};

std::string ShownValue(const SettingValue& value) {
  if (const auto* number = std::get_if<std::uint32_t>(&value)) return std::to_string(*number);
  return std::get<std::string>(value);
}

void PrintSetting(std::string_view name, std::string_view value, std::string_view remark) {
  std::ostringstream line;
  line << "  " << std::left << std::setw(20) << name << ' ' << std::setw(10) << value;
  if (!remark.empty()) line << ' ' << remark;
  std::string text = line.str();
  text.erase(text.find_last_not_of(' ') + 1);
  PrintShown(text);
}

/// The values of one key, and of the log's key also those that aren't set.
void ListKey(const SettingsHive& hive, const std::string& key, std::span<const LogSetting> known) {
  PrintShown(key);
  const SettingValues values = hive.ReadKey(key).value_or(SettingValues{});
  for (const auto& [name, value] : values) {
    const auto setting = std::ranges::find(known, name, &LogSetting::name);
    PrintSetting(name, ShownValue(value), setting != known.end() ? setting->meaning : "");
  }
  for (const LogSetting& setting : known) {
    if (values.contains(setting.name)) continue;
    PrintSetting(setting.name, setting.standard.empty() ? "(none)" : setting.standard,
                 std::string(setting.meaning) + " [not set]");
  }
}

void List(const SettingsOptions& options) {
  const SettingsHive hive = options.Hive();
  const auto known = [&options](std::string_view key) -> std::span<const LogSetting> {
    if (options.machine && key == kLogSettingsKey) return kLogSettings;
    if (options.machine && key == kPackageSettingsKey) return kPackageSettings;
    return {};
  };
  if (!options.key.empty()) return ListKey(hive, options.key, known(options.key));
  std::vector<std::string> keys = hive.Keys();
  if (std::ranges::find(keys, options.Key()) == keys.end()) keys.insert(keys.begin(), options.Key());
  if (options.machine && std::ranges::find(keys, kPackageSettingsKey) == keys.end()) {
    keys.emplace_back(kPackageSettingsKey);
  }
  for (const std::string& key : keys) ListKey(hive, key, known(key));
}

/// What is known of the name; null for the user's store, whose names are whoever's that uses it, and under --key.
const LogSetting* KnownSetting(const SettingsOptions& options) {
  if (!options.machine) return nullptr;
  const auto ofPackages = std::ranges::find(kPackageSettings, options.name, &LogSetting::name);
  if (ofPackages != kPackageSettings.end() && options.Key() == kPackageSettingsKey) return ofPackages;
  if (!options.key.empty() && options.key != kLogSettingsKey) return nullptr;
  const auto known = std::ranges::find(kLogSettings, options.name, &LogSetting::name);
  if (known != kLogSettings.end()) return known;
  std::string names;
  for (const LogSetting& setting : kLogSettings) names.append(names.empty() ? "" : ", ").append(setting.name);
  for (const LogSetting& setting : kPackageSettings) names.append(", ").append(setting.name);
  throw CommandError(options.name + ": no setting of the machine; there are " + names);
}

void Get(const SettingsOptions& options) {
  KnownSetting(options);
  const auto value = options.Hive().Read(options.Key(), options.name);
  if (!value) throw CommandError(options.name + ": not set under " + options.Key());
  PrintShown(ShownValue(*value));
}

/// Machine settings are numbers but for the log's folder; the user's store holds texts.
SettingValue ParseValue(const SettingsOptions& options) {
  const LogSetting* const known = KnownSetting(options);
  if (!options.machine || (known != nullptr ? known->isText : options.text)) return options.value;
  std::uint32_t number = 0;
  const char* const end = options.value.data() + options.value.size();
  const auto [rest, error] = std::from_chars(options.value.data(), end, number);
  const bool isNumber = error == std::errc{} && rest == end;
  if (known != nullptr && (!isNumber || number > known->highest)) {
    throw CommandError(options.name + ": \"" + options.value + "\" is none of 0 to " + std::to_string(known->highest) +
                       " (" + std::string(known->meaning) + ")");
  }
  if (!isNumber) {
    throw CommandError(options.name + ": \"" + options.value + "\" is no 32-bit number (--text sets a text)");
  }
  return number;
}

void Set(const SettingsOptions& options) {
  SettingsHive hive = options.Hive();
  const SettingValue value = ParseValue(options);
  if (options.name == kTrustedKeysSetting && options.Key() == kPackageSettingsKey) {
    std::string why;
    if (!ReadTrustedKeys(options.value, why)) throw CommandError(options.name + ": " + why);
  }
  if (!hive.CreateKey(options.Key()) || !hive.Write(options.Key(), options.name, value)) {
    throw CommandError(hive.Path() + ": can't be written" + (options.machine ? " (root is needed)" : ""));
  }
}

void Delete(const SettingsOptions& options) {
  if (!options.Hive().Delete(options.Key(), options.name)) {
    throw CommandError(options.name + ": not deleted under " + options.Key() + "; is it set, and may you change it?");
  }
}

}  // namespace

void AddSettingsCommand(CLI::App& program, int&) {
  CLI::App* settings = program.add_subcommand("settings", "See and change the settings of the log and the store");
  settings->require_subcommand(1);
  auto options = std::make_shared<SettingsOptions>();
  const auto add = [&](const char* name, const char* help, bool named, void (*run)(const SettingsOptions&)) {
    CLI::App* command = settings->add_subcommand(name, help);
    command->add_flag("--machine", options->machine, "The machine's settings (those of the log) instead of the user's");
    command->add_option("--key", options->key, "Another key than that of the log or the user's store");
    if (named) command->add_option("name", options->name, "Name of the value")->required();
    command->callback([options, run] {
      Process();  // names the key of the user's store
      run(*options);
    });
    return command;
  };
  add("list", "All values; with --machine also what isn't set, and what it means", false, List);
  add("get", "One value", true, Get);
  CLI::App* set = add("set", "Set a value", true, Set);
  set->add_option("value", options->value, "A number for the machine, a text for the user")->required();
  set->add_flag("--text", options->text, "Set a text where a number is usual");
  add("delete", "Remove a value, so that its default holds again", true, Delete);
  settings->footer("To log: zeph settings set --machine OutputToFile 1");
}

}  // namespace zeph
