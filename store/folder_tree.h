// The folder tree as the recovery driver fills it. The GUI puts its tree
// widget behind this; the command line and the tests use MemoryTree.
#pragma once

#include <cstdint>
#include <string>

namespace marrow {

// A handle of one tree item; 0 means none.
using TreeItem = std::uint32_t;
// The value a folder row holds before it has an item.
constexpr TreeItem kNoTreeItem = 0xFFFF0000u;

class TreeSink {
 public:
  virtual ~TreeSink() = default;
  // Inserts under `parent` at the position a sorted tree gives `text`.
  virtual TreeItem InsertSorted(TreeItem parent, const std::string& text, int image) = 0;
  virtual void Expand(TreeItem item) = 0;
  virtual void SetBold(TreeItem item) = 0;
  virtual TreeItem FirstChild(TreeItem item) const = 0;
  virtual TreeItem NextSibling(TreeItem item) const = 0;
  virtual TreeItem Parent(TreeItem item) const = 0;
  // Removes the item and everything below it.
  virtual void DeleteItem(TreeItem item) = 0;
  virtual std::string Text(TreeItem item) const = 0;
  // Check marks choose what a save takes.
  virtual bool IsChecked(TreeItem item) const = 0;
  virtual void SetChecked(TreeItem item, bool checked) = 0;
};

}  // namespace marrow
