// SPDX-License-Identifier: Apache-2.0
// The sources of a package as one thing: XML, the languages, or some of both.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Indicators.h"
#include "DetectionEngine/configuration/Pack.h"
#include "authoring/Diagnostics.h"
#include "authoring/RuleSource.h"
#include "authoring/XmlWriter.h"

namespace zeph {

inline constexpr std::string_view kRulesFile = "rules.zeph";
inline constexpr std::string_view kBrandsFile = "brands.zeph";

/// A package in the making. Not indexed.
struct Compiled {
  Configuration configuration;
  NamedRules rules;                  ///< without names when they came from XML
  std::vector<PackedFile> xml;       ///< all of it as XML sources, in the order of a pack
  std::string refusal;               ///< what can't be said in XML; empty: nothing
  bool tooMuch = false;              ///< more than a package can hold
};

/// Reads sources, in the order of a pack, and adds what they say to a world. Checks the XML among them when told to;
/// what is wrong with the others is always said. The files outlive what is found.
[[nodiscard]] Compiled CompileSources(std::span<const SourceFile> files, bool checkXml, Diagnostics& found,
                                      Configuration world = {});

/// Adds the names and sentences of the rules of an Indicators.xml, which stand in lines that the engine passes over.
void ReadRuleNames(std::string_view source, NamedRules& rules);

/// The sources of a package: rules.zeph, brands.zeph, and XML for the rest. Compiled again, they give the same.
[[nodiscard]] XmlSources DecompileSources(const Configuration& configuration, const NamedRules& rules);

}  // namespace zeph
