// CException: the base of the library's exception, with a run-time class record.
//
// Exceptions are heap objects thrown by pointer (`throw new CMevGenException(...)`); whoever
// catches one for good deletes it through this class's virtual destructor.
#ifndef KOV_PLATFORM_EXCEPTION_H
#define KOV_PLATFORM_EXCEPTION_H

#include "kov/platform/runtimeclass.h"

class CException {
  KOV_DECLARE_RUNTIME_ROOT(CException)

 public:
  CException() = default;
  virtual ~CException() = default;

  // Copies the text, cut to fit and always terminated, into buffer (of size bytes). Sets
  // *helpContext to 0 when it is given. Returns false when there is no room at all (buffer null
  // or size 0), true otherwise. Never throws.
  virtual bool GetErrorMessage(char* buffer, unsigned size, unsigned* helpContext = nullptr) const;

  // Explicitly deletes the object; the same as `delete e`.
  void Delete() { delete this; }
};

#endif  // KOV_PLATFORM_EXCEPTION_H
