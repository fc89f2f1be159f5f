// Test helpers: exception assertions, a recording message box, byte-vector literals.
// Used by the *_test.cpp files only; neither installed nor included by library code.
#ifndef KOV_KOVTEST_H
#define KOV_KOVTEST_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kov/platform/mevgenexception.h"
#include "kov/platform/msgbox.h"

// Runs statement, which must throw a CMevGenException* whose text is text; deletes it.
#define EXPECT_KOV_THROW(statement, text)                                             \
  do {                                                                                \
    bool kovThrew_ = false;                                                           \
    try {                                                                             \
      statement;                                                                      \
    } catch (CMevGenException * kovE_) {                                              \
      kovThrew_ = true;                                                               \
      EXPECT_EQ(kovE_->GetMessage(), std::string(text)) << "from " #statement;        \
      delete kovE_;                                                                   \
    } catch (...) {                                                                   \
      kovThrew_ = true;                                                               \
      ADD_FAILURE() << "foreign exception from " #statement;                          \
    }                                                                                 \
    if (!kovThrew_) ADD_FAILURE() << "no exception from " #statement;                 \
  } while (0)

// Runs statement, which must not throw; reports the text of a CMevGenException* if it does.
#define EXPECT_KOV_NO_THROW(statement)                                                \
  do {                                                                                \
    try {                                                                             \
      statement;                                                                      \
    } catch (CMevGenException * kovE_) {                                              \
      ADD_FAILURE() << "unexpected exception from " #statement ": " << kovE_->GetMessage(); \
      delete kovE_;                                                                   \
    }                                                                                 \
  } while (0)

// While alive, message boxes are recorded instead of shown.
class MessageBoxRecorder {
 public:
  MessageBoxRecorder() : m_previous(kovSetMessageBoxHandler(&record)) { texts().clear(); }
  ~MessageBoxRecorder() { kovSetMessageBoxHandler(m_previous); }
  MessageBoxRecorder(const MessageBoxRecorder&) = delete;
  MessageBoxRecorder& operator=(const MessageBoxRecorder&) = delete;

  const std::vector<std::string>& Texts() const { return texts(); }
  void Clear() { texts().clear(); }

 private:
  static std::vector<std::string>& texts() {
    static std::vector<std::string> recorded;
    return recorded;
  }
  static void record(const std::string& text) { texts().push_back(text); }
  KovMessageBoxHandler m_previous;
};

using Bytes = std::vector<uint8_t>;

#endif  // KOV_KOVTEST_H
