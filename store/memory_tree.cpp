#include "store/memory_tree.h"

#include <algorithm>
#include <cctype>

namespace marrow {

bool TreeTextLess(const std::string& a, const std::string& b) {
  const std::size_t n = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < n; ++i) {
    const int x = std::tolower(static_cast<unsigned char>(a[i]));
    const int y = std::tolower(static_cast<unsigned char>(b[i]));
    if (x != y) return x < y;
  }
  return a.size() < b.size();
}

MemoryTree::MemoryTree() {
  nodes_.emplace_back();
  nodes_[0].alive = true;
}

TreeItem MemoryTree::NewNode(TreeItem parent, const std::string& text, int image) {
  Node node;
  node.text = text;
  node.image = image;
  node.parent = parent;
  node.alive = true;
  nodes_.push_back(std::move(node));
  return static_cast<TreeItem>(nodes_.size() - 1);
}

TreeItem MemoryTree::AddRoot(const std::string& text, int image) {
  const TreeItem item = NewNode(0, text, image);
  nodes_[0].children.push_back(item);
  return item;
}

MemoryTree::Node* MemoryTree::Live(TreeItem item) {
  if (item >= nodes_.size() || !nodes_[item].alive) return nullptr;
  return &nodes_[item];
}

const MemoryTree::Node* MemoryTree::Find(TreeItem item) const {
  if (item == 0 || item >= nodes_.size() || !nodes_[item].alive) return nullptr;
  return &nodes_[item];
}

TreeItem MemoryTree::InsertSorted(TreeItem parent, const std::string& text, int image) {
  if (Live(parent) == nullptr) return 0;
  const TreeItem item = NewNode(parent, text, image);
  std::vector<TreeItem>& siblings = nodes_[parent].children;
  // After every sibling that does not sort above the new text.
  auto at = std::upper_bound(siblings.begin(), siblings.end(), text,
                             [this](const std::string& t, TreeItem s) { return TreeTextLess(t, nodes_[s].text); });
  siblings.insert(at, item);
  return item;
}

void MemoryTree::Expand(TreeItem item) {
  if (Node* n = Live(item)) n->expanded = true;
}

void MemoryTree::SetBold(TreeItem item) {
  if (Node* n = Live(item)) n->bold = true;
}

TreeItem MemoryTree::FirstChild(TreeItem item) const {
  if (item >= nodes_.size() || !nodes_[item].alive || nodes_[item].children.empty()) return 0;
  return nodes_[item].children.front();
}

TreeItem MemoryTree::NextSibling(TreeItem item) const {
  const Node* n = Find(item);
  if (n == nullptr) return 0;
  const std::vector<TreeItem>& siblings = nodes_[n->parent].children;
  auto at = std::find(siblings.begin(), siblings.end(), item);
  if (at == siblings.end() || ++at == siblings.end()) return 0;
  return *at;
}

TreeItem MemoryTree::Parent(TreeItem item) const {
  const Node* n = Find(item);
  return n == nullptr ? 0 : n->parent;
}

void MemoryTree::DeleteItem(TreeItem item) {
  Node* n = Live(item);
  if (n == nullptr || item == 0) return;
  std::vector<TreeItem>& siblings = nodes_[n->parent].children;
  siblings.erase(std::remove(siblings.begin(), siblings.end(), item), siblings.end());
  // Children are released with an explicit stack: a deep tree must not recurse.
  std::vector<TreeItem> pending{item};
  while (!pending.empty()) {
    const TreeItem at = pending.back();
    pending.pop_back();
    Node& dead = nodes_[at];
    dead.alive = false;
    pending.insert(pending.end(), dead.children.begin(), dead.children.end());
    dead.children.clear();
  }
}

std::string MemoryTree::Text(TreeItem item) const {
  const Node* n = Find(item);
  return n == nullptr ? std::string() : n->text;
}

bool MemoryTree::IsChecked(TreeItem item) const {
  const Node* n = Find(item);
  return n != nullptr && n->checked;
}

void MemoryTree::SetChecked(TreeItem item, bool checked) {
  if (Node* n = Live(item); n != nullptr && item != 0) n->checked = checked;
}

void MemoryTree::SetCheckedBelow(TreeItem item, bool checked) {
  SetChecked(item, checked);
  ForEachBelow(item, [&](TreeItem below, int) { SetChecked(below, checked); });
}

void MemoryTree::ForEachBelow(TreeItem item, const std::function<void(TreeItem, int)>& visit) const {
  if (item >= nodes_.size() || !nodes_[item].alive) return;
  std::vector<std::pair<TreeItem, int>> pending;
  const std::vector<TreeItem>& top = nodes_[item].children;
  for (auto it = top.rbegin(); it != top.rend(); ++it) pending.emplace_back(*it, 1);
  while (!pending.empty()) {
    const auto [at, depth] = pending.back();
    pending.pop_back();
    visit(at, depth);
    const std::vector<TreeItem>& kids = nodes_[at].children;
    for (auto it = kids.rbegin(); it != kids.rend(); ++it) pending.emplace_back(*it, depth + 1);
  }
}

}  // namespace marrow
