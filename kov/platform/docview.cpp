#include "kov/platform/docview.h"

#include <utility>

KOV_IMPLEMENT_RUNTIME_ROOT(CKovView)
KOV_IMPLEMENT_RUNTIME_CLASS(CKovTreeView, CKovView)
KOV_IMPLEMENT_RUNTIME_ROOT(CKovDocument)

namespace {

std::list<std::unique_ptr<CKovMultiDocTemplate>>& appDocTemplates() {
  static std::list<std::unique_ptr<CKovMultiDocTemplate>> templates;
  return templates;
}

}  // namespace

CKovView::~CKovView() = default;

void CKovView::OnInitialUpdate() {}

CKovFrameWnd::CKovFrameWnd(std::unique_ptr<CKovView> view) : m_view(std::move(view)) {}

CKovFrameWnd::~CKovFrameWnd() = default;

void CKovFrameWnd::ActivateFrame() {
  m_visible = true;
  ++m_activations;
}

CKovDocument::~CKovDocument() {
  m_views.clear();
  m_frames.clear();
}

void CKovDocument::AddFrame(std::unique_ptr<CKovFrameWnd> frame) {
  CKovView* view = frame->GetActiveView();
  view->m_document = this;
  view->m_frame = frame.get();
  m_frames.push_back(std::move(frame));
  m_views.push_back(view);
}

void CKovDocument::CloseFrame(CKovFrameWnd* frame) {
  for (auto it = m_frames.begin(); it != m_frames.end(); ++it) {
    if (it->get() != frame) continue;
    m_views.remove(frame->GetActiveView());
    m_frames.erase(it);
    return;
  }
}

CKovMultiDocTemplate::CKovMultiDocTemplate(uint32_t resourceID, const KovRuntimeClass* docClass,
                                           const KovRuntimeClass* viewClass,
                                           KovCreateViewFunc createView)
    : m_resourceID(resourceID),
      m_docClass(docClass),
      m_viewClass(viewClass),
      m_createView(createView) {}

CKovFrameWnd* CKovMultiDocTemplate::CreateNewFrame(CKovDocument* document) const {
  if (document == nullptr || m_createView == nullptr) return nullptr;
  std::unique_ptr<CKovView> view(m_createView());
  if (view == nullptr) return nullptr;
  auto frame = std::make_unique<CKovFrameWnd>(std::move(view));
  CKovFrameWnd* made = frame.get();
  document->AddFrame(std::move(frame));
  return made;
}

void CKovMultiDocTemplate::InitialUpdateFrame(CKovFrameWnd* frame, CKovDocument*) const {
  frame->ActivateFrame();
  frame->GetActiveView()->OnInitialUpdate();
}

void kovAddDocTemplate(std::unique_ptr<CKovMultiDocTemplate> docTemplate) {
  if (docTemplate != nullptr) appDocTemplates().push_back(std::move(docTemplate));
}

const std::list<std::unique_ptr<CKovMultiDocTemplate>>& kovGetDocTemplates() {
  return appDocTemplates();
}
