// The message box: advice and non-fatal failures shown to the user.
//
// kovMessageBox hands the text to the installed handler and returns when it has run; the library
// then carries on. The default handler writes the text and a newline to standard error. An
// application installs its own with kovSetMessageBoxHandler; null restores the default. The
// handler must not throw. Packs and unpacks on several threads call it from each of them, and it
// may be swapped while they run (each call uses the handler installed when it begins).
#ifndef KOV_PLATFORM_MSGBOX_H
#define KOV_PLATFORM_MSGBOX_H

#include <string>

using KovMessageBoxHandler = void (*)(const std::string& text);

// Shows text through the current handler. Never throws.
void kovMessageBox(const std::string& text);

// Installs handler (null: the default) and returns the one it replaces (never null).
KovMessageBoxHandler kovSetMessageBoxHandler(KovMessageBoxHandler handler);

#endif  // KOV_PLATFORM_MSGBOX_H
