#include "kov/platform/msgbox.h"

#include <atomic>
#include <cstdio>

#include "kov/platform/arena.h"

namespace {

void writeToStderr(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fputc('\n', stderr);
}

std::atomic<KovMessageBoxHandler> g_handler{writeToStderr};

}  // namespace

void kovMessageBox(const std::string& text) {
  // The handler is the application's: what it makes is never in an unpack's arena.
  KovArenaPause pause;
  g_handler.load()(text);
}

KovMessageBoxHandler kovSetMessageBoxHandler(KovMessageBoxHandler handler) {
  return g_handler.exchange(handler != nullptr ? handler : writeToStderr);
}
