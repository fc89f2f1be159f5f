#include "kov/layout/view/cplayoutview.h"

#include <string>

#include "kov/kovtest.h"
#include "kov/layout/listfieldlayout.h"
#include "kov/platform/strresource.h"

namespace {

// The application's document.
class AppDocument : public CKovDocument {
  KOV_DECLARE_RUNTIME_CLASS(AppDocument)
};
KOV_IMPLEMENT_RUNTIME_CLASS(AppDocument, CKovDocument)

// Opens the process-wide indices, so that each test starts from 0.
class LayoutViewState : public CKovCpLayoutView {
 public:
  static void Reset() {
    m_lastVersionIndex = 0;
    m_lastModelIndex = 0;
  }
};

// Blocks added 1, 2, 17. Block 2 has fields added 0x30 (a list holding 0x31), 0x20, 5: map order
// 5, 0x20, 0x30. Id 5 has no name.
struct ThreeBlocks {
  ThreeBlocks() {
    b.Block(1, "A", 0x21, 1, 0, 0, 4);
    CKovBlkLayout* blk = b.Block(2, "B", 0x22, 1, 0, 0, 3);
    b.Block(17, "C", 0x23, 1, 0, 0, 1);
    auto* entry = new CKovDataLayout(ListEntryLayout, 0, 7, 0x30, false);
    entry->AddField(0x31, 0, new CKovNumFieldLayout(0x31, 0, 8, 7, true, 0, entry), 0);
    blk->AddField(0x30, 0,
                  new CKovListFieldLayout(0x30, 0, 7,
                                          KovListAttribStruct(0, FixedSzNoLeq, 1, 0, 8, 0, nullptr),
                                          true, 0, blk->GetDataLayout(), entry),
                  0);
    LayoutBuilder::Num(blk, 0x20, 0x30, 1, 7, 8, 1);
    LayoutBuilder::Num(blk, 5, 0x20, 2, 7, 8, 2);
    kovRegisterString(0x20, "Power");
    kovRegisterString(0x30, "Channels");
    kovRegisterString(0x31, "Frequency");
  }
  ~ThreeBlocks() { kovClearRegisteredStrings(); }
  LayoutBuilder b;
};

TEST(LayoutView, TreeTextShowsBlocksAndTheirOwnFieldsInMapOrder) {
  ThreeBlocks l;
  EXPECT_EQ(CKovCpLayoutView::GetLayoutTreeText(l.b.cp.get()),
            "CodePlugLayout VersionIndex(1 ) ModelIndex(2 )\n"
            "  Block - 2, (Size = 3 bytes)\n"
            "    Block - 2, (Size = 3 bytes)\n"
            "      \n"
            "      Power\n"
            "      Channels\n"
            "  Block - 1, (Size = 4 bytes)\n"
            "    Block - 1, (Size = 4 bytes)\n"
            "  Block - 17, (Size = 1 bytes)\n"
            "    Block - 17, (Size = 1 bytes)\n");
  CKovCpLayout empty(-3, 0, 0, 0);
  EXPECT_EQ(CKovCpLayoutView::GetLayoutTreeText(&empty),
            "CodePlugLayout VersionIndex(-3 ) ModelIndex(0 )\n");
}

TEST(LayoutView, ShowsOrBringsBackViewsByTheLastIndicesNoted) {
  LayoutViewState::Reset();
  ThreeBlocks l;  // version index 1, model index 2
  AppDocument doc;

  CKovCpLayoutView::showLayoutView(l.b.cp.get(), &doc);
  ASSERT_EQ(doc.GetViews().size(), 1u);
  CKovView* first = doc.GetViews().front();
  ASSERT_TRUE(first->IsKindOf(KOV_RUNTIME_CLASS(CKovCpLayoutView)));
  EXPECT_TRUE(first->GetParentFrame()->IsWindowVisible());
  EXPECT_EQ(first->GetStyle(), 0x50800007u);
  EXPECT_EQ(static_cast<CKovCpLayoutView*>(first)->GetTreeCtrl().GetText(),
            CKovCpLayoutView::GetLayoutTreeText(l.b.cp.get()));

  // The first view notes 1 and 2 without matching the 0 and 0 before: a second view opens.
  CKovCpLayoutView::showLayoutView(l.b.cp.get(), &doc);
  EXPECT_EQ(doc.GetViews().size(), 2u);
  // Now the first view matches and is brought back.
  CKovCpLayoutView::showLayoutView(l.b.cp.get(), &doc);
  EXPECT_EQ(doc.GetViews().size(), 2u);
  EXPECT_EQ(first->GetParentFrame()->GetActivationCount(), 2);

  doc.CloseFrame(first->GetParentFrame());
  EXPECT_EQ(doc.GetViews().size(), 1u);

  // One template for the whole process, for the document class of the first call.
  int layoutTemplates = 0;
  for (const auto& t : kovGetDocTemplates()) {
    if (t->GetViewClass() != KOV_RUNTIME_CLASS(CKovCpLayoutView)) continue;
    ++layoutTemplates;
    EXPECT_EQ(t->GetResourceID(), 129u);
    EXPECT_EQ(t->GetDocClass(), KOV_RUNTIME_CLASS(AppDocument));
  }
  EXPECT_EQ(layoutTemplates, 1);
}

}  // namespace
