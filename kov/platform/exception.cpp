#include "kov/platform/exception.h"

KOV_IMPLEMENT_RUNTIME_ROOT(CException)

bool CException::GetErrorMessage(char* buffer, unsigned size, unsigned* helpContext) const {
  if (helpContext != nullptr) *helpContext = 0;
  if (buffer == nullptr || size == 0) return false;
  buffer[0] = '\0';
  return true;
}
