#include "kov/platform/treectrl.h"

#include <utility>

namespace {

const std::vector<KovTreeItem> kNoItems;

}  // namespace

KovTreeItem CKovTreeCtrl::InsertItem(const std::string& text, KovTreeItem parent) {
  if (parent > m_items.size()) return 0;
  m_items.push_back(Item{text, {}});
  const auto item = static_cast<KovTreeItem>(m_items.size());
  (parent == kRoot ? m_topItems : m_items[parent - 1].children).push_back(item);
  return item;
}

std::string CKovTreeCtrl::GetItemText(KovTreeItem item) const {
  if (item == kRoot || item > m_items.size()) return std::string();
  return m_items[item - 1].text;
}

const std::vector<KovTreeItem>& CKovTreeCtrl::GetChildItems(KovTreeItem item) const {
  if (item == kRoot) return m_topItems;
  if (item > m_items.size()) return kNoItems;
  return m_items[item - 1].children;
}

std::string CKovTreeCtrl::GetText() const {
  // Depth first with a stack of its own, so that a deep tree cannot exhaust the call stack.
  std::string text;
  std::vector<std::pair<KovTreeItem, size_t>> pending;  // item, depth
  for (auto it = m_topItems.rbegin(); it != m_topItems.rend(); ++it) pending.emplace_back(*it, 0);
  while (!pending.empty()) {
    const auto [item, depth] = pending.back();
    pending.pop_back();
    const Item& node = m_items[item - 1];
    text.append(2 * depth, ' ').append(node.text).push_back('\n');
    for (auto it = node.children.rbegin(); it != node.children.rend(); ++it) {
      pending.emplace_back(*it, depth + 1);
    }
  }
  return text;
}
