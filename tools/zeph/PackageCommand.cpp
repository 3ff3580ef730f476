// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <span>

#include "DetectionEngine/DetectionEngine.h"
#include "DetectionEngine/configuration/Cabinet.h"
#include "DetectionEngine/configuration/MemoryFileWriter.h"
#include "DetectionEngine/configuration/Pack.h"
#include "DetectionEngine/platform/Files.h"
#include "authoring/Sources.h"
#include "tools/zeph/Common.h"
#include "judging/RuleTexts.h"
#include "judging/ScratchFolder.h"

namespace zeph {

namespace {

namespace fs = std::filesystem;

struct BuildOptions {
  std::string sources;
  std::string output;
  std::string format = "memory";
  bool unchecked = false;
};

struct UnpackOptions {
  std::string package;
  std::string output;
};

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteFile(const fs::path& path, std::string_view content) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  file.close();
  if (!file) throw CommandError(path.string() + ": can't be written");
}

std::vector<const char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<const char*> pointers;
  for (const std::string& text : texts) pointers.push_back(text.c_str());
  return pointers;
}

/// The XML sources of a folder as files that can be packed: its own, or those that were made of it.
std::vector<std::string> FilesToPack(const BuildOptions& options, std::span<const SourceFile> sources,
                                     const Compiled& compiled, const fs::path& folder) {
  std::vector<std::string> files;
  if (std::ranges::none_of(sources, [](const SourceFile& file) { return file.name.ends_with(".zeph"); })) {
    for (const SourceFile& file : sources) files.push_back(file.name);
    return files;
  }
  if (!compiled.refusal.empty()) {
    throw CommandError(options.sources + ": can't be said in a pack of XML: " + compiled.refusal);
  }
  for (const PackedFile& file : compiled.xml) {
    files.push_back((folder / file.Name).string());
    WriteFile(files.back(), file.FileData);
  }
  return files;
}

/// The packed file of a package, under its name in the cabinet.
fs::path MakePackedFile(const BuildOptions& options, const fs::path& folder) {
  const std::vector<SourceFile> sources = ReadSources(options.sources);
  Diagnostics found;
  Compiled compiled = CompileSources(sources, !options.unchecked, found);
  ReportFindings(options.sources, found, !options.unchecked);
  if (options.format == "pack") {
    const std::vector<std::string> files = FilesToPack(options, sources, compiled, folder);
    const fs::path packed = folder / "packed2.dat";
    if (!MakePack(Pointers(files).data(), static_cast<int>(files.size()), packed.c_str())) {
      throw CommandError(options.sources + ": can't be packed");
    }
    std::string why;
    if (!OpenPacked(ReadFile(packed), &why)) throw CommandError(options.sources + ": " + why);
    return packed;
  }
  if (compiled.tooMuch) throw CommandError(options.sources + ": more than a package can hold");
  for (const auto text : kModuleTexts) compiled.configuration.*text = std::u16string(kOwnText);
  const fs::path packed = folder / "packed3.dat";
  const std::optional<std::string> content = SealMemoryFile(WriteMemoryFile(compiled.configuration, compiled.rules.rules));
  if (!content) throw CommandError(options.sources + ": more than a memory file can hold");
  WriteFile(packed, *content);
  return packed;
}

void Build(const BuildOptions& options) {
  const ScratchFolder scratch;
  const std::string packed = MakePackedFile(options, scratch.Path()).string();
  const fs::path output(options.output);
  std::error_code error;
  const fs::path whole = fs::absolute(output, error);
  if (error) throw CommandError(options.output + ": " + error.message());
  const std::string folder = whole.parent_path().string() + "/";
  std::vector<std::string> files = {packed};
  // A pack brings the sources, and the rules' sentences in them.
  if (const std::string texts = WriteRuleTexts(LoadRuleTexts(options.sources)); !texts.empty() && options.format != "pack") {
    files.push_back((scratch.Path() / kRuleTextsFile).string());
    WriteFile(files.back(), texts);
  }
  // A cabinet tells when its files were written last. The time of the build is nobody's business: the same sources give the
  // same package.
  for (const std::string& file : files) SetLastWriteTime(file, 0);
  if (!MakeCabinet(Pointers(files).data(), static_cast<std::int32_t>(files.size()), output.filename().c_str(), folder.c_str())) {
    throw CommandError(options.output + ": can't be written");
  }
}

void Unpack(const UnpackOptions& options) {
  std::error_code error;
  if (!fs::is_regular_file(options.package, error)) {
    throw CommandError(options.package + ": " + (error ? error.message() : "no such package"));
  }
  Extraction packed = CabExtract(options.package);
  if (!packed) throw CommandError(options.package + ": " + packed.refusal);
  fs::create_directories(options.output, error);
  if (error) throw CommandError(options.output + ": can't be made: " + error.message());
  const bool isPack = packed.pack.has_value();
  if (!isPack && !packed.memoryFile) {
    throw CommandError(options.package + ": holds neither packed2.dat nor packed3.dat");
  }
  std::string why;
  const std::optional<std::string> content =
      OpenPacked(isPack ? *std::move(packed.pack) : *std::move(packed.memoryFile), &why);
  if (!content) throw CommandError(options.package + ": " + why);
  if (!isPack) return WriteFile(fs::path(options.output) / "packed3.dat", *content);
  const std::optional<std::vector<PackedFile>> files = CreateVectorofFileData(*content);
  if (!files) throw CommandError(options.package + ": its pack ends before its last file does");
  for (const PackedFile& file : *files) {
    const fs::path name = fs::path(file.Name).filename();
    if (name.empty() || name == "." || name == ".." || name.string() != file.Name) {
      throw CommandError(options.package + ": a file in it is named \"" + file.Name + "\"");
    }
    WriteFile(fs::path(options.output) / name, file.FileData);
  }
}

}  // namespace

void AddPackageCommand(CLI::App& program, int& exitStatus) {
  CLI::App* package = program.add_subcommand("package", "Make, check, sign and install configuration packages");
  package->require_subcommand(1);

  CLI::App* build = package->add_subcommand("build", "Make a package from a folder of text sources");
  auto buildOptions = std::make_shared<BuildOptions>();
  build->add_option("--sources", buildOptions->sources, "Folder of the text sources")->required();
  build->add_option("--output", buildOptions->output, "The package to write (.zip)")->required();
  build->add_option("--format", buildOptions->format, "memory: loads fast; pack: the sources themselves, packed")
      ->check(CLI::IsMember({"memory", "pack"}))
      ->capture_default_str();
  build->add_flag("--unchecked", buildOptions->unchecked, "Make it of the sources as they stand, errors and all");
  build->footer("package/README.md and docs/package.md tell how sources are written.");
  build->callback([buildOptions] { Build(*buildOptions); });

  CLI::App* unpack = package->add_subcommand("unpack", "Extract, decipher and inflate a package");
  auto unpackOptions = std::make_shared<UnpackOptions>();
  unpack->add_option("package", unpackOptions->package, "The package")->required();
  unpack->add_option("--output", unpackOptions->output, "Folder to write into")->required();
  unpack->callback([unpackOptions] { Unpack(*unpackOptions); });

  AddAuthoringCommands(*package, exitStatus);
  AddPackageLifeCommands(*package, exitStatus);
}

}  // namespace zeph
