// Documents, views and frames: the least of a document/view framework that the layout tree view
// needs, with no windows behind it.
//
// The application's document derives from CKovDocument and has a run-time class record. Each view
// of a document lives in a frame; the document owns its frames, and a frame its view, so closing
// a frame (CloseFrame) or deleting the document ends the view. A CKovMultiDocTemplate makes a
// frame with a new view for a document and shows it. Templates given to the application with
// kovAddDocTemplate stay until the process ends, which deletes them.
//
// Of the windows only what can be observed is kept: a view's window style, a frame's visibility
// and how often it was activated. There are no menus: CloseFrame is what a frame's close command
// does. Everything runs on the caller's thread, unguarded. Nothing throws but for exhausted memory.
#ifndef KOV_PLATFORM_DOCVIEW_H
#define KOV_PLATFORM_DOCVIEW_H

#include <cstdint>
#include <list>
#include <memory>

#include "kov/platform/runtimeclass.h"
#include "kov/platform/treectrl.h"

class CKovDocument;
class CKovFrameWnd;

class CKovView {
  KOV_DECLARE_RUNTIME_ROOT(CKovView)

 public:
  // The style of a view's window before its kind adds its own bits: child, visible, border.
  static constexpr uint32_t kDefaultStyle = 0x50800000;

  CKovView() = default;
  virtual ~CKovView();
  CKovView(const CKovView&) = delete;
  CKovView& operator=(const CKovView&) = delete;

  // The document and frame the view belongs to; null until a template has placed it.
  CKovDocument* GetDocument() const { return m_document; }
  CKovFrameWnd* GetParentFrame() const { return m_frame; }
  // The window style: kDefaultStyle, less what was removed, plus what was added.
  uint32_t GetStyle() const { return m_style; }
  void ModifyStyle(uint32_t remove, uint32_t add) { m_style = (m_style & ~remove) | add; }
  // Called once, when the frame is first shown. Does nothing here.
  virtual void OnInitialUpdate();

 private:
  friend class CKovDocument;
  CKovDocument* m_document = nullptr;
  CKovFrameWnd* m_frame = nullptr;
  uint32_t m_style = kDefaultStyle;
};

// A view that shows a tree.
class CKovTreeView : public CKovView {
  KOV_DECLARE_RUNTIME_CLASS(CKovTreeView)

 public:
  CKovTreeCtrl& GetTreeCtrl() { return m_tree; }
  const CKovTreeCtrl& GetTreeCtrl() const { return m_tree; }

 private:
  CKovTreeCtrl m_tree;
};

class CKovFrameWnd {
 public:
  // A hidden frame around view (not null), which it owns.
  explicit CKovFrameWnd(std::unique_ptr<CKovView> view);
  ~CKovFrameWnd();
  CKovFrameWnd(const CKovFrameWnd&) = delete;
  CKovFrameWnd& operator=(const CKovFrameWnd&) = delete;

  CKovView* GetActiveView() const { return m_view.get(); }
  // Shows the frame and brings it to the top.
  void ActivateFrame();
  bool IsWindowVisible() const { return m_visible; }
  // How often ActivateFrame was called, the showing by InitialUpdateFrame included.
  int GetActivationCount() const { return m_activations; }

 private:
  std::unique_ptr<CKovView> m_view;
  bool m_visible = false;
  int m_activations = 0;
};

class CKovDocument {
  KOV_DECLARE_RUNTIME_ROOT(CKovDocument)

 public:
  CKovDocument() = default;
  // Closes every frame, and with them the views.
  virtual ~CKovDocument();
  CKovDocument(const CKovDocument&) = delete;
  CKovDocument& operator=(const CKovDocument&) = delete;

  // The views, in the order they were made.
  const std::list<CKovView*>& GetViews() const { return m_views; }
  // Takes frame over and enters its view among the document's views.
  void AddFrame(std::unique_ptr<CKovFrameWnd> frame);
  // Deletes frame, and its view; a frame of another document is ignored.
  void CloseFrame(CKovFrameWnd* frame);

 private:
  std::list<std::unique_ptr<CKovFrameWnd>> m_frames;
  std::list<CKovView*> m_views;
};

// Makes a view of the kind a template was made for; null when it can't.
using KovCreateViewFunc = CKovView* (*)();

class CKovMultiDocTemplate {
 public:
  // A template of resource resourceID for documents of docClass, with views of viewClass made by
  // createView.
  CKovMultiDocTemplate(uint32_t resourceID, const KovRuntimeClass* docClass,
                       const KovRuntimeClass* viewClass, KovCreateViewFunc createView);

  uint32_t GetResourceID() const { return m_resourceID; }
  const KovRuntimeClass* GetDocClass() const { return m_docClass; }
  const KovRuntimeClass* GetViewClass() const { return m_viewClass; }

  // A hidden frame holding a new view, added to document; null when no view can be made.
  CKovFrameWnd* CreateNewFrame(CKovDocument* document) const;
  // Shows frame, activating it, and has its view make its initial update.
  void InitialUpdateFrame(CKovFrameWnd* frame, CKovDocument* document) const;

 private:
  uint32_t m_resourceID;
  const KovRuntimeClass* m_docClass;
  const KovRuntimeClass* m_viewClass;
  KovCreateViewFunc m_createView;
};

// Hands docTemplate to the application until the process ends; null is ignored.
void kovAddDocTemplate(std::unique_ptr<CKovMultiDocTemplate> docTemplate);
// The application's templates in the order they were added.
const std::list<std::unique_ptr<CKovMultiDocTemplate>>& kovGetDocTemplates();

#endif  // KOV_PLATFORM_DOCVIEW_H
