// SPDX-License-Identifier: Apache-2.0
// Which protected names a host resembles, and by what. Names are looked up by hash in all the forms in which a host can
// show them, so a host costs the same for one brand as for ten thousand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "DetectionEngine/configuration/Configuration.h"

namespace zeph {

/// How a host shows a name, the most telling first.
enum class Likeness : std::uint8_t {
  kPunycode,     ///< letters of other scripts or with accents that look like it
  kHomoglyph,    ///< digits or pairs that look like a letter: paypa1, rnicrosoft
  kSubdomain,    ///< the brand's whole domain in front of another: paypal.com.evil.example
  kHyphenation,  ///< it, or its whole domain, with hyphens: pay-pal, paypal-com, paypal-login
  kKeyboard,     ///< a letter that lies beside the right one: oaypal
  kSpelling,     ///< a letter left out, doubled, put in, swapped or wrong
  kTag,          ///< the name itself in a host of somebody else: paypal.evil.example, mypaypal.example
};
[[nodiscard]] std::string_view LikenessName(Likeness likeness) noexcept;

/// One brand that a host resembles.
struct Resemblance {
  std::string brand;    ///< the domain that stands for it
  Likeness likeness{};  ///< the most telling one
  std::string part;     ///< what of the host, as it is written there
  std::string name;     ///< what of the brand
  std::uint32_t distance = 0;  ///< letters to change; of kKeyboard and kSpelling

  friend bool operator==(const Resemblance&, const Resemblance&) = default;
};

/// The names of brands, prepared. Immutable once filled; any thread may ask.
class Lookalikes {
 public:
  /// Adds a brand: the domain that stands for it, its other domains, and further names, lower case. A name is also the
  /// first domain's own label, without what registries add. Of a name of fewer than four letters only the whole domain
  /// counts.
  void Add(const std::string& brand, const std::vector<std::string>& domains, const std::vector<std::string>& names);
  /// All brands of a configuration, by their domains and the tags of their addresses.
  void AddAll(const Configuration& configuration);

  /// The brand whose own host this is; empty when it is nobody's.
  [[nodiscard]] std::string OwnerOf(std::string_view host) const;

  /// What the host resembles, each brand once, the most telling first. Nothing for a brand's own host. The host is
  /// lower case, in ASCII, without port; linear in its length.
  [[nodiscard]] std::vector<Resemblance> Of(std::string_view host) const;

 private:
  struct Name {
    std::string text;
    std::string skeleton;
    std::size_t brand;
  };
  void AddName(std::string text, std::size_t brand);

  std::vector<std::string> brands_;
  std::vector<Name> names_;
  std::unordered_map<std::string, std::size_t> owners_;                    ///< domain -> brand
  std::unordered_map<std::string, std::vector<std::size_t>> byText_;       ///< name -> names
  std::unordered_map<std::string, std::vector<std::size_t>> bySkeleton_;   ///< skeleton -> names
  std::unordered_map<std::string, std::vector<std::size_t>> byDeletion_;   ///< name without a letter -> names
  std::unordered_map<std::string, std::vector<std::size_t>> byBeginning_;  ///< of skeletons -> names, for search inside words
};

/// The host of a URL or of a text that is one, as Of wants it; empty when there is none.
[[nodiscard]] std::string HostOf(std::string_view text);

}  // namespace zeph
