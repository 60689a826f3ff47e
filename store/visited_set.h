// Page offsets already read by one walk: the guard against cycles in a
// damaged tree.
#pragma once

#include <algorithm>
#include <cstdint>
#include <unordered_set>
#include <vector>

namespace marrow {

// A look-up meets a handful of pages and a full walk thousands, so the set
// stays a flat list until it grows, then moves to a hash set.
class VisitedSet {
 public:
  // Adds `offset`; false when it was there already.
  bool Add(std::uint64_t offset) {
    if (!large_.empty()) return large_.insert(offset).second;
    if (std::find(small_.begin(), small_.end(), offset) != small_.end()) return false;
    if (small_.size() < kSmallLimit) {
      small_.push_back(offset);
      return true;
    }
    large_.insert(small_.begin(), small_.end());
    small_.clear();
    return large_.insert(offset).second;
  }
  bool Contains(std::uint64_t offset) const {
    return large_.count(offset) != 0 || std::find(small_.begin(), small_.end(), offset) != small_.end();
  }
  std::size_t size() const { return small_.size() + large_.size(); }

 private:
  static constexpr std::size_t kSmallLimit = 32;
  std::vector<std::uint64_t> small_;
  std::unordered_set<std::uint64_t> large_;
};

}  // namespace marrow
