#include "kov/platform/mainwnd.h"

namespace {
KovMainWnd* g_mainWnd = nullptr;
}  // namespace

KovMainWnd* kovSetMainWnd(KovMainWnd* window) {
  KovMainWnd* previous = g_mainWnd;
  g_mainWnd = window;
  return previous;
}

KovMainWnd* kovGetMainWnd() { return g_mainWnd; }

void kovBeginWaitCursor() {
  if (g_mainWnd != nullptr) g_mainWnd->BeginWaitCursor();
}

void kovRestoreWaitCursor() {
  if (g_mainWnd != nullptr) g_mainWnd->RestoreWaitCursor();
}

void kovEndWaitCursor() {
  if (g_mainWnd != nullptr) g_mainWnd->EndWaitCursor();
}

void kovSendMessageToMainWnd(uint32_t message, uint32_t wParam, uint32_t lParam) {
  if (g_mainWnd != nullptr) g_mainWnd->SendMessage(message, wParam, lParam);
}
