#include "kov/platform/msgbox.h"

#include <cstdio>

namespace {

void writeToStderr(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fputc('\n', stderr);
}

KovMessageBoxHandler g_handler = writeToStderr;

}  // namespace

void kovMessageBox(const std::string& text) { g_handler(text); }

KovMessageBoxHandler kovSetMessageBoxHandler(KovMessageBoxHandler handler) {
  KovMessageBoxHandler previous = g_handler;
  g_handler = handler != nullptr ? handler : writeToStderr;
  return previous;
}
