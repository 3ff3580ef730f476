// SPDX-License-Identifier: Apache-2.0
// A letter as a mail server hands it over, piece by piece.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace zeph::milter {

/// The memory that all letters under way may take together. Any thread.
class Room {
 public:
  explicit Room(std::size_t bytes) : left_(bytes) {}
  [[nodiscard]] bool Take(std::size_t bytes) noexcept {
    std::size_t left = left_;
    while (left >= bytes) {
      if (left_.compare_exchange_weak(left, left - bytes)) return true;
    }
    return false;
  }
  void Give(std::size_t bytes) noexcept { left_ += bytes; }

 private:
  std::atomic<std::size_t> left_;
};

/// Gathers one letter, up to a length. One thread at a time.
class GatheredLetter {
 public:
  GatheredLetter(Room& room, std::size_t most) : room_(room), most_(most) {}
  ~GatheredLetter() { room_.Give(taken_); }
  GatheredLetter(const GatheredLetter&) = delete;
  GatheredLetter& operator=(const GatheredLetter&) = delete;

  /// value: as it stood behind the colon, with its leading blank, lines of a folded one parted by a line feed.
  void AddHeader(std::string_view name, std::string_view value);
  void EndHeaders() { Append("\r\n"); }
  void AddBody(std::string_view bytes) { Append(bytes); }

  /// Nothing more is taken up: further pieces needn't be handed over.
  [[nodiscard]] bool IsFull() const { return isCut_ || lacksRoom_; }
  [[nodiscard]] bool IsCut() const { return isCut_; }
  [[nodiscard]] bool LacksRoom() const { return lacksRoom_; }
  /// How many headers it brought that have the name of ours.
  [[nodiscard]] int ForgedHeaders() const { return forged_; }
  /// Its bytes, moved out. Their room stays taken while the letter lives.
  [[nodiscard]] std::string TakeBytes() { return std::move(bytes_); }

 private:
  void Append(std::string_view bytes);

  Room& room_;
  std::size_t most_;
  std::size_t taken_ = 0;
  std::string bytes_;
  int forged_ = 0;
  bool isCut_ = false;
  bool lacksRoom_ = false;
};

}  // namespace zeph::milter
