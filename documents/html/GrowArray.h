// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "DetectionEngine/Document.h"

namespace zeph::html {

/// A growing array of plain records. Unlike std::vector it grows through realloc, which moves pages instead of
/// copying them, and gives back what it doesn't use: a parse of hostile markup stays within a few times its size.
template <class T>
class GrowArray {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  GrowArray() = default;
  GrowArray(GrowArray&& other) noexcept
      : data_(std::move(other.data_)),
        size_(std::exchange(other.size_, 0)),
        capacity_(std::exchange(other.capacity_, 0)),
        budget_(other.budget_) {}
  GrowArray& operator=(GrowArray&& other) noexcept {
    data_ = std::move(other.data_);
    size_ = std::exchange(other.size_, 0);
    capacity_ = std::exchange(other.capacity_, 0);
    budget_ = other.budget_;
    return *this;
  }

  [[nodiscard]] T* data() noexcept { return data_.get(); }
  [[nodiscard]] const T* data() const noexcept { return data_.get(); }
  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
  [[nodiscard]] T& operator[](std::size_t index) noexcept { return data_.get()[index]; }
  [[nodiscard]] const T& operator[](std::size_t index) const noexcept { return data_.get()[index]; }
  [[nodiscard]] T& back() noexcept { return data_.get()[size_ - 1]; }
  [[nodiscard]] const T& back() const noexcept { return data_.get()[size_ - 1]; }
  [[nodiscard]] T* begin() noexcept { return data(); }
  [[nodiscard]] T* end() noexcept { return data() + size_; }
  [[nodiscard]] const T* begin() const noexcept { return data(); }
  [[nodiscard]] const T* end() const noexcept { return data() + size_; }

  /// From now on all growth is taken from a budget; past it, no memory is left.
  void TakeFrom(PageBudget& budget) noexcept { budget_ = &budget; }

  void Reserve(std::size_t capacity) {
    if (capacity > capacity_) Reallocate(capacity);
  }
  T& Push(const T& item) {
    if (size_ == capacity_) {
      const T copy = item;  // it may lie in here
      Reallocate(capacity_ + capacity_ / 2 + 16);
      return *std::construct_at(data_.get() + size_++, copy);
    }
    return *std::construct_at(data_.get() + size_++, item);
  }
  /// Room for count more items, whose content is for the caller to write; gives the first.
  T* Extend(std::size_t count) {
    if (capacity_ - size_ < count) Reallocate(size_ + count + (size_ + count) / 2);
    size_ += count;
    return data_.get() + size_ - count;
  }
  void Pop() noexcept { --size_; }
  void Truncate(std::size_t size) noexcept { size_ = size; }
  void Erase(std::size_t index) noexcept {
    for (std::size_t i = index + 1; i < size_; ++i) data_[i - 1] = data_[i];
    --size_;
  }
  void Insert(std::size_t index, const T& item) {
    Push(item);
    for (std::size_t i = size_ - 1; i > index; --i) std::swap(data_[i], data_[i - 1]);
  }
  void ShrinkToFit() {
    if (size_ == 0) {
      data_.reset();
      capacity_ = 0;
    } else if (size_ < capacity_) {
      Reallocate(size_);
    }
  }

 private:
  struct Free {
    void operator()(T* data) const noexcept { std::free(data); }
  };

  void Reallocate(std::size_t capacity) {
    if (capacity > static_cast<std::size_t>(-1) / (2 * sizeof(T))) throw std::bad_alloc();
    if (budget_ != nullptr) {
      if (capacity < capacity_) {
        budget_->GiveBack((capacity_ - capacity) * sizeof(T));
      } else if (!budget_->Take((capacity - capacity_) * sizeof(T))) {
        throw std::bad_alloc();
      }
    }
    void* const moved = std::realloc(static_cast<void*>(data_.get()), capacity * sizeof(T));
    if (moved == nullptr) throw std::bad_alloc();
    static_cast<void>(data_.release());
    data_.reset(static_cast<T*>(moved));
    capacity_ = capacity;
  }

  std::unique_ptr<T[], Free> data_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
  PageBudget* budget_ = nullptr;
};

}  // namespace zeph::html
