// SPDX-License-Identifier: Apache-2.0
#include "documents/html/NameTable.h"

#include <array>
#include <cstring>
#include <random>

namespace zeph::html {
namespace {

struct KnownName {
  std::u16string_view text;
  std::uint16_t kinds;
};
constexpr std::array<KnownName, name::kKnownCount> kKnown = {{
#define ZEPH_NAME(identifier, text, kinds) {u##text, kinds},
#include "documents/html/Names.inc"
#undef ZEPH_NAME
}};

/// The known names in upper case, one behind another.
struct UpperNames {
  static constexpr std::size_t kSize = [] {
    std::size_t size = 0;
    for (const KnownName& known : kKnown) size += known.text.size();
    return size;
  }();
  std::array<char16_t, kSize> text{};
  std::array<std::uint16_t, name::kKnownCount + 1> begins{};
};
consteval UpperNames MakeUpperNames() {
  UpperNames names;
  std::size_t at = 0;
  for (std::size_t id = 0; id < kKnown.size(); ++id) {
    for (const char16_t c : kKnown[id].text) {
      names.text[at++] = c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c;
    }
    names.begins[id + 1] = static_cast<std::uint16_t>(at);
  }
  return names;
}
constexpr UpperNames kUpperNames = MakeUpperNames();

constexpr std::uint64_t KnownKey(std::u16string_view text) noexcept {
  std::uint64_t key = text.size() <= NameKey::kShort ? 0 : 0x9E3779B97F4A7C15U;
  for (const char16_t c : text) key = text.size() <= NameKey::kShort ? key << 8 | c : (key ^ c) * 0x100000001B3U;
  return key;
}

constexpr unsigned kKnownBits = 10;
constexpr std::size_t KnownSlot(std::uint64_t key) noexcept {
  return static_cast<std::size_t>((key * 0x9E3779B97F4A7C15U) >> (64 - kKnownBits));
}

struct KnownTable {
  std::array<std::uint16_t, std::size_t{1} << kKnownBits> slots{};  ///< number + 1; 0: free
  std::array<std::uint64_t, name::kKnownCount> keys{};
};
consteval KnownTable MakeKnownTable() {
  KnownTable table;
  for (std::size_t id = 0; id < kKnown.size(); ++id) {
    table.keys[id] = KnownKey(kKnown[id].text);
    std::size_t slot = KnownSlot(table.keys[id]);
    while (table.slots[slot] != 0) slot = (slot + 1) % table.slots.size();
    table.slots[slot] = static_cast<std::uint16_t>(id + 1);
  }
  return table;
}
constexpr KnownTable kKnownTable = MakeKnownTable();

__extension__ using Wide = unsigned __int128;

std::uint64_t Mix(std::uint64_t a, std::uint64_t b) noexcept {
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t ProcessSecret() {
  static const std::uint64_t secret = [] {
    std::random_device device;
    return static_cast<std::uint64_t>(device()) << 32 | device() | 1;
  }();
  return secret;
}

}  // namespace

std::uint16_t KindsOf(NameId id) noexcept { return id < name::kKnownCount ? kKnown[id].kinds : std::uint16_t{0}; }

std::u16string_view KnownNameText(NameId id) noexcept { return kKnown[id].text; }

std::u16string_view KnownNameInUpperCase(NameId id) noexcept {
  const std::size_t begin = kUpperNames.begins[id];
  return {kUpperNames.text.data() + begin, kUpperNames.begins[id + 1] - begin};
}

NameId FindKnownName(std::u16string_view text) noexcept {
  const std::uint64_t key = KnownKey(text);
  for (std::size_t slot = KnownSlot(key); kKnownTable.slots[slot] != 0; slot = (slot + 1) % kKnownTable.slots.size()) {
    const NameId id = kKnownTable.slots[slot] - 1U;
    if (kKnownTable.keys[id] == key && kKnown[id].text == text) return id;
  }
  return name::kKnownCount;
}

std::uint64_t HashWithSecret(std::u16string_view text) noexcept {
  const std::uint64_t secret = ProcessSecret();
  std::uint64_t hash = secret ^ text.size();
  std::size_t i = 0;
  for (; i + 4 <= text.size(); i += 4) {
    std::uint64_t four = 0;
    std::memcpy(&four, text.data() + i, 8);
    hash = Mix(hash ^ four, 0xA0761D6478BD642FU ^ secret);
  }
  for (; i < text.size(); ++i) hash = Mix(hash ^ text[i], 0xE7037ED1A0B428DBU ^ secret);
  return hash;
}

NameTable::NameTable() : secret_(ProcessSecret()) { Grow(); }

NameId NameTable::FindKnown(const NameKey& name) noexcept {
  if (name.key == 0) return FindKnownName(name.text);
  for (std::size_t slot = KnownSlot(name.key); kKnownTable.slots[slot] != 0;
       slot = (slot + 1) % kKnownTable.slots.size()) {
    const NameId id = kKnownTable.slots[slot] - 1U;
    if (kKnownTable.keys[id] == name.key) return id;  // a long name's key is never that of a short one
  }
  return name::kKnownCount;
}

std::uint32_t NameTable::HashOf(const NameKey& name) const noexcept {
  const std::uint64_t hash =
      name.key != 0 ? Mix(name.key ^ secret_ ^ name.text.size(), 0x8EBC6AF09C88C6E3U) : HashWithSecret(name.text);
  return static_cast<std::uint32_t>(hash ^ hash >> 32);
}

std::size_t NameTable::SlotOf(const NameKey& name, std::uint32_t hash, const char16_t* base) const noexcept {
  const std::size_t mask = slots_.size() - 1;
  std::size_t slot = hash & mask;
  while (slots_[slot].id != kNoId && (slots_[slot].hash != hash || Text(slots_[slot].id, base) != name.text)) {
    slot = (slot + 1) & mask;
  }
  return slot;
}

void NameTable::Grow() {
  GrowArray<Slot> old = std::move(slots_);
  const std::size_t size = old.empty() ? 64 : old.size() * 2;
  slots_ = {};
  slots_.Reserve(size);
  slots_.Extend(size);
  for (Slot& slot : slots_) slot = {0, kNoId};
  const std::size_t mask = size - 1;
  for (const Slot& entry : old) {
    if (entry.id == kNoId) continue;
    std::size_t slot = entry.hash & mask;
    while (slots_[slot].id != kNoId) slot = (slot + 1) & mask;
    slots_[slot] = entry;
  }
}

std::int64_t NameTable::Find(std::u16string_view text, const char16_t* base) const noexcept {
  if (text.empty()) return -1;
  const NameKey name = MakeNameKey(text);
  if (const NameId known = FindKnown(name); known != name::kKnownCount) return known;
  const Slot& slot = slots_[SlotOf(name, HashOf(name), base)];
  return slot.id == kNoId ? -1 : static_cast<std::int64_t>(slot.id);
}

}  // namespace zeph::html
