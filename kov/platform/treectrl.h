// CKovTreeCtrl: a tree of text items, as a tree view holds it, and its rendering as text.
//
// Items are inserted with text only, each behind the last child of its parent, and stay until
// the tree goes. Handles count from 1 in the order of inserting; kRoot stands for the invisible
// root above the top-level items. GetText renders the whole tree for a terminal, one line an
// item, depth first, two spaces of indent a level:
//   Radio
//     Channels
//       Frequency
// Inserting and looking up are O(1); GetText is linear in the items. Never throws but for
// exhausted memory.
#ifndef KOV_PLATFORM_TREECTRL_H
#define KOV_PLATFORM_TREECTRL_H

#include <cstdint>
#include <string>
#include <vector>

using KovTreeItem = uint32_t;

class CKovTreeCtrl {
 public:
  static constexpr KovTreeItem kRoot = 0;
  // Window style bits of a tree view: expand buttons, lines between items, lines at the root.
  static constexpr uint32_t kHasButtons = 0x1;
  static constexpr uint32_t kHasLines = 0x2;
  static constexpr uint32_t kLinesAtRoot = 0x4;

  // Inserts an item with text as the last child of parent; its handle, or 0 when parent is no
  // item of this tree.
  KovTreeItem InsertItem(const std::string& text, KovTreeItem parent = kRoot);
  // The text of item; "" for no item.
  std::string GetItemText(KovTreeItem item) const;
  // The children of item in order; kRoot gives the top-level items, no item none.
  const std::vector<KovTreeItem>& GetChildItems(KovTreeItem item) const;
  // The number of items.
  int GetCount() const { return static_cast<int>(m_items.size()); }
  // The tree as indented text, every line ending in a newline; "" for an empty tree.
  std::string GetText() const;

 private:
  struct Item {
    std::string text;
    std::vector<KovTreeItem> children;
  };
  std::vector<Item> m_items;  // handle n at index n − 1
  std::vector<KovTreeItem> m_topItems;
};

#endif  // KOV_PLATFORM_TREECTRL_H
