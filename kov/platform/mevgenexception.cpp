#include "kov/platform/mevgenexception.h"

#include <cstring>

KOV_IMPLEMENT_RUNTIME_CLASS(CMevGenException, CException)

CMevGenException::CMevGenException(const std::string& message, uint32_t code)
    : m_message(message), m_code(code) {}

bool CMevGenException::GetErrorMessage(char* buffer, unsigned size, unsigned* helpContext) const {
  if (helpContext != nullptr) *helpContext = 0;
  if (buffer == nullptr || size == 0) return false;
  size_t n = m_message.size() < size - 1 ? m_message.size() : size - 1;
  std::memcpy(buffer, m_message.data(), n);
  buffer[n] = '\0';
  return true;
}
