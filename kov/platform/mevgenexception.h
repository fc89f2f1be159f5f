// CMevGenException: the one exception type of the library.
//
// Created with `new` and thrown by pointer; the catcher deletes it. It carries a text and a code
// (the library always gives 0). Levels that catch it on the way up give it a text only when its
// text is empty, so the innermost words win, and throw the same object on.
#ifndef KOV_PLATFORM_MEVGENEXCEPTION_H
#define KOV_PLATFORM_MEVGENEXCEPTION_H

#include <cstdint>
#include <string>

#include "kov/platform/exception.h"

class CMevGenException : public CException {
  KOV_DECLARE_RUNTIME_CLASS(CMevGenException)

 public:
  CMevGenException(const std::string& message, uint32_t code);
  ~CMevGenException() override = default;

  // A copy of the text.
  std::string GetMessage() const { return m_message; }
  // Replaces the text.
  void SetMessage(const std::string& message) { m_message = message; }
  uint32_t GetCode() const { return m_code; }

  // The text, cut to fit buffer and terminated. Returns false only for a null or empty buffer.
  bool GetErrorMessage(char* buffer, unsigned size, unsigned* helpContext = nullptr) const override;

 private:
  std::string m_message;
  uint32_t m_code;
};

#endif  // KOV_PLATFORM_MEVGENEXCEPTION_H
