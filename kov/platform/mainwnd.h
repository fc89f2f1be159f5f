// The application's main window as the pack driver sees it: a wait cursor and window messages.
//
// The application derives from KovMainWnd and installs it with kovSetMainWnd. The pack driver
// brackets its work with BeginWaitCursor/EndWaitCursor, calls RestoreWaitCursor after a message
// has come back, and sends its notifications with SendMessage, which must return when the
// application has handled them. With none installed every call does nothing. The window is not
// owned by the library; the application keeps it alive while it is installed. Installing is
// safe while packs run on other threads; those threads then call the window from each of them.
// The window's code runs outside any arena scope of the library (kov/platform/arena.h).
#ifndef KOV_PLATFORM_MAINWND_H
#define KOV_PLATFORM_MAINWND_H

#include <cstdint>

class KovMainWnd {
 public:
  virtual ~KovMainWnd() = default;
  virtual void BeginWaitCursor() {}
  virtual void RestoreWaitCursor() {}
  virtual void EndWaitCursor() {}
  // Synchronous delivery of one message with its two parameters; the result is not used.
  virtual void SendMessage(uint32_t message, uint32_t wParam, uint32_t lParam) = 0;
};

// Installs window (null: none) and returns the one it replaces.
KovMainWnd* kovSetMainWnd(KovMainWnd* window);
KovMainWnd* kovGetMainWnd();

// The calls the library makes; each does nothing when no window is installed. Never throw.
void kovBeginWaitCursor();
void kovRestoreWaitCursor();
void kovEndWaitCursor();
void kovSendMessageToMainWnd(uint32_t message, uint32_t wParam, uint32_t lParam);

// Ends the wait cursor when it goes out of scope, whichever way the scope is left.
class KovWaitCursor {
 public:
  KovWaitCursor() { kovBeginWaitCursor(); }
  ~KovWaitCursor() { kovEndWaitCursor(); }
  KovWaitCursor(const KovWaitCursor&) = delete;
  KovWaitCursor& operator=(const KovWaitCursor&) = delete;
};

#endif  // KOV_PLATFORM_MAINWND_H
