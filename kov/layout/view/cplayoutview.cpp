#include "kov/layout/view/cplayoutview.h"

#include <memory>
#include <utility>

#include "kov/layout/blklayout.h"
#include "kov/layout/cplayout.h"
#include "kov/layout/datalayout.h"
#include "kov/platform/format.h"
#include "kov/platform/strresource.h"

KOV_IMPLEMENT_RUNTIME_CLASS(CKovCpLayoutView, CKovTreeView)

CKovMultiDocTemplate* CKovCpLayoutView::m_layoutDocTemplate = nullptr;
int8_t CKovCpLayoutView::m_lastVersionIndex = 0;
int8_t CKovCpLayoutView::m_lastModelIndex = 0;

CKovView* CKovCpLayoutView::CreateView() { return new CKovCpLayoutView(); }

void CKovCpLayoutView::showLayoutView(const CKovCpLayout* cpLayout, CKovDocument* document) {
  if (cpLayout == nullptr || document == nullptr) return;
  if (m_layoutDocTemplate == nullptr) {
    // One string table serves the application and the library here: no resource module to
    // switch while the template is made.
    auto docTemplate =
        std::make_unique<CKovMultiDocTemplate>(kLayoutResourceID, document->GetRuntimeClass(),
                                               KOV_RUNTIME_CLASS(CKovCpLayoutView), &CreateView);
    m_layoutDocTemplate = docTemplate.get();
    kovAddDocTemplate(std::move(docTemplate));
  }

  for (CKovView* view : document->GetViews()) {
    if (!view->IsKindOf(KOV_RUNTIME_CLASS(CKovCpLayoutView))) continue;
    if (cpLayout->GetVersionIndex() == m_lastVersionIndex &&
        cpLayout->GetModelIndex() == m_lastModelIndex) {
      view->GetParentFrame()->ActivateFrame();
      return;
    }
    m_lastVersionIndex = cpLayout->GetVersionIndex();
    m_lastModelIndex = cpLayout->GetModelIndex();
  }

  CKovFrameWnd* frame = m_layoutDocTemplate->CreateNewFrame(document);
  if (frame == nullptr) return;
  m_layoutDocTemplate->InitialUpdateFrame(frame, document);
  auto* view = static_cast<CKovCpLayoutView*>(frame->GetActiveView());
  view->ModifyStyle(
      0, CKovTreeCtrl::kHasButtons | CKovTreeCtrl::kHasLines | CKovTreeCtrl::kLinesAtRoot);
  FillTree(view->GetTreeCtrl(), cpLayout);
}

std::string CKovCpLayoutView::GetLayoutTreeText(const CKovCpLayout* cpLayout) {
  if (cpLayout == nullptr) return std::string();
  CKovTreeCtrl tree;
  FillTree(tree, cpLayout);
  return tree.GetText();
}

void CKovCpLayoutView::FillTree(CKovTreeCtrl& tree, const CKovCpLayout* cpLayout) {
  const KovTreeItem root =
      tree.InsertItem(kovFormat("CodePlugLayout VersionIndex(%d ) ModelIndex(%d )",
                                cpLayout->GetVersionIndex(), cpLayout->GetModelIndex()));
  for (const auto& idAndBlk : *cpLayout->GetBlkLayoutMap()) {
    const CKovBlkLayout* blk = idAndBlk.second;
    const std::string text =
        kovFormat("Block - %d, (Size = %d bytes)", idAndBlk.first, blk->GetMaxDataSzInBytes());
    const KovTreeItem fieldsItem = tree.InsertItem(text, tree.InsertItem(text, root));
    if (blk->GetDataLayout() == nullptr) continue;
    for (const auto& idAndField : blk->GetDataLayout()->GetFieldMap()) {
      tree.InsertItem(kovLoadString(idAndField.first), fieldsItem);
    }
  }
}
