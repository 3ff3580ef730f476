// SPDX-License-Identifier: Apache-2.0
#include "tools/lookalikes/Lookalikes.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "DetectionEngine/platform/CodePage.h"
#include "DetectionEngine/platform/Idn.h"
#include "tools/lookalikes/Skeleton.h"

namespace zeph {

namespace {

constexpr std::size_t kShortestName = 4;
constexpr std::size_t kShortestInside = 5;    ///< to be found inside a word
constexpr std::size_t kShortestMisspelt = 6;  ///< to be found by its misspellings: shorter ones are near everyday words
constexpr std::size_t kLongestName = 40;
constexpr std::size_t kBeginning = 4;

constexpr std::array<std::string_view, 7> kLikenessNames = {
    "punycode", "homoglyph", "subdomain", "hyphenation", "keyboard slip", "spelling distance", "tag"};

bool IsNameLetter(char c) noexcept { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); }

std::string LettersOf(std::string_view text) {
  std::string letters;
  std::ranges::copy_if(text, std::back_inserter(letters), IsNameLetter);
  return letters;
}

/// The label that a domain's owner chose: the one in front of what registries give out.
std::string_view OwnLabel(std::string_view domain) {
  std::vector<std::string_view> labels;
  for (std::size_t at = 0; at <= domain.size();) {
    const std::size_t dot = std::min(domain.find('.', at), domain.size());
    labels.push_back(domain.substr(at, dot - at));
    at = dot + 1;
  }
  if (labels.size() < 2) return domain;
  // "co.uk", "com.br", "gov.au": a short label in front of a country.
  constexpr std::string_view kGiven[] = {"co", "com", "net", "org", "gov", "gob", "gouv", "go", "or", "ne", "ac", "edu", "govt"};
  std::size_t own = labels.size() - 2;
  if (own > 0 && labels.back().size() == 2 && std::ranges::find(kGiven, labels[own]) != std::end(kGiven)) --own;
  return labels[own];
}

/// Letters that lie side by side.
bool AreNeighbours(char a, char b) noexcept {
  constexpr std::string_view kRows[] = {"1234567890", "qwertyuiop", "asdfghjkl", "zxcvbnm"};
  for (std::size_t row = 0; row < std::size(kRows); ++row) {
    const std::size_t at = kRows[row].find(a);
    if (at == std::string_view::npos) continue;
    for (std::size_t other = row == 0 ? 0 : row - 1; other <= row + 1 && other < std::size(kRows); ++other) {
      const std::size_t there = kRows[other].find(b);
      if (there == std::string_view::npos) continue;
      if (other == row) return there + 1 == at || at + 1 == there;
      // Each row is shifted to the right by half a key.
      return other > row ? there == at || there + 1 == at : there == at || there == at + 1;
    }
  }
  return false;
}

/// Letters left out, put in, changed or swapped with the next; more than one is as good as none.
bool DiffersByOne(std::string_view a, std::string_view b) noexcept {
  if (a.size() > b.size()) std::swap(a, b);
  if (b.size() - a.size() > 1 || a == b) return false;
  std::size_t at = 0;
  while (at < a.size() && a[at] == b[at]) ++at;
  if (a.size() != b.size()) return a.substr(at) == b.substr(at + 1);
  if (a.substr(at + 1) == b.substr(at + 1)) return true;
  return at + 1 < a.size() && a[at] == b[at + 1] && a[at + 1] == b[at] && a.substr(at + 2) == b.substr(at + 2);
}

Likeness LikenessOf(std::string_view written, std::string_view name) noexcept {
  if (written.size() == name.size()) {
    const auto [a, b] = std::ranges::mismatch(written, name);
    if (a != written.end() && AreNeighbours(*a, *b) && std::equal(a + 1, written.end(), b + 1)) return Likeness::kKeyboard;
  }
  return Likeness::kSpelling;
}

/// Where each word of a host begins: its labels, and what hyphens part in them.
struct Word {
  std::string_view text;
  std::size_t label;  ///< 0: the first
  bool isLabel;       ///< a whole label
};

}  // namespace

std::string_view LikenessName(Likeness likeness) noexcept {
  return kLikenessNames[static_cast<std::size_t>(likeness)];
}

void Lookalikes::AddName(std::string text, std::size_t brand) {
  if (text.size() < kShortestName || text.size() > kLongestName) return;
  std::string skeleton = Skeleton(text);
  // A tag may be a brand's name misspelt on purpose: what looks like the name is no name.
  for (const std::size_t known : bySkeleton_[skeleton]) {
    if (names_[known].brand == brand) return;
  }
  const std::size_t number = names_.size();
  byText_[text].push_back(number);
  bySkeleton_[skeleton].push_back(number);
  if (skeleton.size() >= kShortestInside) byBeginning_[skeleton.substr(0, kBeginning)].push_back(number);
  if (text.size() >= kShortestMisspelt) {
    byDeletion_[text].push_back(number);
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (i == 0 || text[i] != text[i - 1]) byDeletion_[text.substr(0, i) + text.substr(i + 1)].push_back(number);
    }
  }
  names_.push_back({std::move(text), std::move(skeleton), brand});
}

void Lookalikes::Add(const std::string& brand, const std::vector<std::string>& domains,
                     const std::vector<std::string>& names) {
  const std::size_t number = brands_.size();
  brands_.push_back(brand);
  owners_.emplace(brand, number);
  AddName(LettersOf(OwnLabel(brand)), number);
  for (const std::string& domain : domains) owners_.emplace(domain, number);
  for (const std::string& name : names) AddName(LettersOf(name), number);
}

void Lookalikes::AddAll(const Configuration& configuration) {
  for (const auto& [key, info] : configuration.TrustedDomainInfos) {
    std::vector<std::string> domains;
    for (const std::u16string& domain : info.DT) domains.push_back(Narrow(domain));
    std::vector<std::string> names;
    for (const std::u16string& tag : info.UT) {
      // A tag with separators is no name.
      const std::string name = Narrow(tag);
      if (std::ranges::all_of(name, IsNameLetter)) names.push_back(name);
    }
    Add(Narrow(key), domains, names);
  }
}

std::string Lookalikes::OwnerOf(std::string_view host) const {
  for (std::string_view rest = host; !rest.empty();) {
    if (const auto owner = owners_.find(std::string(rest)); owner != owners_.end()) return brands_[owner->second];
    const std::size_t dot = rest.find('.');
    if (dot == std::string_view::npos) break;
    rest.remove_prefix(dot + 1);
  }
  return {};
}

std::vector<Resemblance> Lookalikes::Of(std::string_view host) const {
  std::vector<Resemblance> found;
  if (host.empty() || host.size() > kMaxAsciiHost || !OwnerOf(host).empty()) return found;
  const auto take = [&](std::size_t brand, Likeness likeness, std::string_view part, std::string_view name,
                        std::uint32_t distance = 0) {
    const auto known = std::ranges::find(found, brands_[brand], &Resemblance::brand);
    if (known == found.end()) {
      found.push_back({brands_[brand], likeness, std::string(part), std::string(name), distance});
    } else if (likeness < known->likeness) {
      *known = {brands_[brand], likeness, std::string(part), std::string(name), distance};
    }
  };

  std::vector<Word> words;
  std::size_t label = 0;
  for (std::size_t at = 0; at <= host.size(); ++label) {
    const std::size_t dot = std::min(host.find('.', at), host.size());
    const std::string_view whole = host.substr(at, dot - at);
    // The last label is a registry's.
    if (dot < host.size() || label == 0) {
      words.push_back({whole, label, true});
      if (whole.find('-') != std::string_view::npos && !whole.starts_with("xn--")) {
        for (std::size_t begin = 0; begin <= whole.size();) {
          const std::size_t hyphen = std::min(whole.find('-', begin), whole.size());
          if (hyphen > begin) words.push_back({whole.substr(begin, hyphen - begin), label, false});
          begin = hyphen + 1;
        }
      }
    }
    at = dot + 1;
  }

  // A brand's whole domain in front of the host's own, with dots or hyphens.
  for (std::size_t begin = 0; begin < host.size(); ++begin) {
    if (begin > 0 && host[begin - 1] != '.' && host[begin - 1] != '-') continue;
    std::size_t separators = 0;
    for (std::size_t end = begin + 1; end < host.size() && separators < 3; ++end) {
      if (host[end] != '.' && host[end] != '-') continue;
      ++separators;
      if (separators == 1) continue;
      std::string domain(host.substr(begin, end - begin));
      const bool hasHyphen = domain.find('-') != std::string::npos;
      auto owner = owners_.find(domain);
      if (owner == owners_.end() && hasHyphen) {
        std::ranges::replace(domain, '-', '.');
        owner = owners_.find(domain);
      }
      if (owner != owners_.end()) {
        const bool isWritten = owner->first == host.substr(begin, end - begin);
        take(owner->second, isWritten ? Likeness::kSubdomain : Likeness::kHyphenation, host.substr(begin, end - begin),
             owner->first);
      }
    }
  }

  thread_local const LatinReader reader;
  for (const Word& word : words) {
    std::string letters = LettersOf(word.text);
    const std::string foreign = reader.Read(word.text);
    if (!foreign.empty()) letters = LettersOf(foreign);
    if (letters.size() < kShortestName || letters.size() > 2 * kLongestName) continue;
    const bool hasHyphens = foreign.empty() && letters.size() != word.text.size();
    const Likeness plain = !foreign.empty() ? Likeness::kPunycode : hasHyphens ? Likeness::kHyphenation : Likeness::kTag;

    // The whole word is a name, or looks like one.
    const auto exact = byText_.find(letters);
    if (exact != byText_.end()) {
      for (const std::size_t name : exact->second) {
        const bool isPart = !word.isLabel && plain == Likeness::kTag;
        take(names_[name].brand, isPart ? Likeness::kHyphenation : plain, word.text, names_[name].text);
      }
    }
    const std::string skeleton = Skeleton(letters);
    if (const auto alike = bySkeleton_.find(skeleton); alike != bySkeleton_.end()) {
      for (const std::size_t name : alike->second) {
        if (names_[name].text == letters) continue;
        take(names_[name].brand, foreign.empty() ? Likeness::kHomoglyph : Likeness::kPunycode, word.text,
             names_[name].text);
      }
    }
    // It is misspelt by one letter.
    if (letters.size() + 1 >= kShortestMisspelt && letters.size() <= kLongestName + 1) {
      const auto compare = [&](const std::string& form) {
        const auto near = byDeletion_.find(form);
        if (near == byDeletion_.end()) return;
        for (const std::size_t name : near->second) {
          if (DiffersByOne(letters, names_[name].text)) {
            take(names_[name].brand, LikenessOf(letters, names_[name].text), word.text, names_[name].text, 1);
          }
        }
      };
      compare(letters);
      std::string shorter;
      for (std::size_t i = 0; i < letters.size(); ++i) {
        shorter.assign(letters, 0, i).append(letters, i + 1);
        compare(shorter);
      }
    }
    // It holds a name, or what looks like one.
    if (!word.isLabel) continue;
    for (std::size_t at = 0; at + kShortestInside <= skeleton.size(); ++at) {
      const auto begins = byBeginning_.find(skeleton.substr(at, kBeginning));
      if (begins == byBeginning_.end()) continue;
      for (const std::size_t number : begins->second) {
        const Name& name = names_[number];
        if (name.skeleton.size() >= skeleton.size() || skeleton.compare(at, name.skeleton.size(), name.skeleton) != 0) {
          continue;
        }
        const bool isWritten = letters.find(name.text) != std::string::npos;
        take(name.brand,
             !foreign.empty() ? Likeness::kPunycode
             : isWritten      ? Likeness::kTag
                              : Likeness::kHomoglyph,
             word.text, name.text);
      }
    }
  }
  std::ranges::stable_sort(found, {}, &Resemblance::likeness);
  return found;
}

std::string HostOf(std::string_view text) {
  if (const std::size_t scheme = text.find("://"); scheme != std::string_view::npos) text.remove_prefix(scheme + 3);
  text = text.substr(0, text.find_first_of("/?#\\ \t"));
  if (const std::size_t user = text.rfind('@'); user != std::string_view::npos) text.remove_prefix(user + 1);
  if (!text.starts_with('[')) text = text.substr(0, text.find(':'));
  while (text.ends_with('.')) text.remove_suffix(1);
  if (text.starts_with("*.")) text.remove_prefix(2);  // as certificates write it
  const bool isAscii = std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  std::string host = isAscii ? std::string(text) : Narrow(IdnToAscii(Widen(text)));
  std::ranges::transform(host, host.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return host;
}

}  // namespace zeph
