// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "DetectionEngine/configuration/Configuration.h"
#include "DetectionEngine/configuration/Pack.h"
#include "authoring/RuleSource.h"

namespace zeph {

/// XML sources, under the names that their loader knows, in the order of a pack.
struct XmlSources {
  std::vector<PackedFile> files;
  std::string refusal;  ///< what can't be said in XML, such as a "<" in a value; empty: all was said
};

/// Adds the sources of what the configuration knows of the world. What would be empty is left out.
void WriteWorld(const Configuration& configuration, XmlSources& sources);
/// TrustedDomains.xml alone, and the safe list alone.
void WriteTrustedDomains(const Configuration& configuration, XmlSources& sources);
void WriteSafeList(const Configuration& configuration, XmlSources& sources);
/// Indicators.xml.
void WriteRules(const NamedRules& rules, XmlSources& sources);

}  // namespace zeph
