// CKovCpLayoutView: a codeplug layout shown to a person as a tree, in a view of the application's
// document, or as text for a terminal.
//
// The tree, the same in the view and in GetLayoutTreeText:
//   CodePlugLayout VersionIndex(<version index> ) ModelIndex(<model index> )
//     Block - <id>, (Size = <bytes> bytes)         one a block, in map order
//       Block - <id>, (Size = <bytes> bytes)       the same text again
//         <name of a field>                        the block's own fields, in map order
// Map order is that of CKovMap: blocks added 1, 2, 17 show as 2, 1, 17. The size is the block's
// maximum data size, its configuration area included. A field is named by the string resource of
// its id, and an id without one gives an item with empty text. A list or union is one item: the
// fields inside it are not shown.
//
// showLayoutView keeps state for the whole process, unguarded: the one document template of
// layout views (resource id 129), made at the first call for the class of the document given then,
// and handed to the application for good; and the last version and model index, both starting at
// 0. It walks the document's layout views in order: when the layout's two indices equal the last
// ones, it activates that view's frame and is done; otherwise it notes the layout's indices and
// looks at the next view. When no frame was activated it opens a new one and fills its tree. So
// the indices change only while a layout view exists, and a layout is shown once more at the first
// call after another one. Nothing is reported: when no frame can be made, nothing is shown.
#ifndef KOV_LAYOUT_VIEW_CPLAYOUTVIEW_H
#define KOV_LAYOUT_VIEW_CPLAYOUTVIEW_H

#include <cstdint>
#include <string>

#include "kov/platform/docview.h"

class CKovCpLayout;

class CKovCpLayoutView : public CKovTreeView {
  KOV_DECLARE_RUNTIME_CLASS(CKovCpLayoutView)

 public:
  // The resource id of the layout views' template.
  static constexpr uint32_t kLayoutResourceID = 129;

  // Shows cpLayout in a view of document, as above. Does nothing when either is null.
  static void showLayoutView(const CKovCpLayout* cpLayout, CKovDocument* document);

  // The tree of cpLayout as indented text, one line an item, two spaces a level; "" for null.
  static std::string GetLayoutTreeText(const CKovCpLayout* cpLayout);

 protected:
  // Puts the tree of cpLayout into tree.
  static void FillTree(CKovTreeCtrl& tree, const CKovCpLayout* cpLayout);

  static CKovMultiDocTemplate* m_layoutDocTemplate;  // the application's
  static int8_t m_lastVersionIndex;
  static int8_t m_lastModelIndex;

 private:
  static CKovView* CreateView();
};

#endif  // KOV_LAYOUT_VIEW_CPLAYOUTVIEW_H
