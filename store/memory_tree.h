// A tree held in memory: what the command line prints and the tests inspect.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "store/folder_tree.h"

namespace marrow {

class MemoryTree final : public TreeSink {
 public:
  struct Node {
    std::string text;
    int image = 0;
    bool bold = false;
    bool expanded = false;
    bool alive = false;
    bool checked = false;
    TreeItem parent = 0;
    std::vector<TreeItem> children;
  };

  MemoryTree();

  // A top-level item, as the application adds one per source file.
  TreeItem AddRoot(const std::string& text, int image);

  TreeItem InsertSorted(TreeItem parent, const std::string& text, int image) override;
  void Expand(TreeItem item) override;
  void SetBold(TreeItem item) override;
  TreeItem FirstChild(TreeItem item) const override;
  TreeItem NextSibling(TreeItem item) const override;
  TreeItem Parent(TreeItem item) const override;
  void DeleteItem(TreeItem item) override;
  std::string Text(TreeItem item) const override;
  bool IsChecked(TreeItem item) const override;
  void SetChecked(TreeItem item, bool checked) override;
  // Sets the mark on an item and everything below it.
  void SetCheckedBelow(TreeItem item, bool checked);

  // The item's node, or null for a handle that is not (or no longer) in the tree.
  const Node* Find(TreeItem item) const;
  // Every item below `item` in display order, with its depth below `item` (1 for a child).
  void ForEachBelow(TreeItem item, const std::function<void(TreeItem, int depth)>& visit) const;

 private:
  Node* Live(TreeItem item);
  TreeItem NewNode(TreeItem parent, const std::string& text, int image);

  std::vector<Node> nodes_;  // index = handle; 0 is the invisible top
};

// The order a sorted tree control gives its items: case-insensitive, then as stored.
bool TreeTextLess(const std::string& a, const std::string& b);

}  // namespace marrow
