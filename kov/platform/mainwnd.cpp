#include "kov/platform/mainwnd.h"

#include <atomic>

#include "kov/platform/arena.h"

namespace {
std::atomic<KovMainWnd*> g_mainWnd{nullptr};
}  // namespace

KovMainWnd* kovSetMainWnd(KovMainWnd* window) { return g_mainWnd.exchange(window); }

KovMainWnd* kovGetMainWnd() { return g_mainWnd.load(); }

void kovBeginWaitCursor() {
  if (KovMainWnd* wnd = g_mainWnd.load()) {
    KovArenaPause pause;
    wnd->BeginWaitCursor();
  }
}

void kovRestoreWaitCursor() {
  if (KovMainWnd* wnd = g_mainWnd.load()) {
    KovArenaPause pause;
    wnd->RestoreWaitCursor();
  }
}

void kovEndWaitCursor() {
  if (KovMainWnd* wnd = g_mainWnd.load()) {
    KovArenaPause pause;
    wnd->EndWaitCursor();
  }
}

void kovSendMessageToMainWnd(uint32_t message, uint32_t wParam, uint32_t lParam) {
  if (KovMainWnd* wnd = g_mainWnd.load()) {
    KovArenaPause pause;
    wnd->SendMessage(message, wParam, lParam);
  }
}
